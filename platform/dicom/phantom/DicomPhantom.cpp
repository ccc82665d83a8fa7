#include "platform/dicom/phantom/DicomPhantom.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <cmath>
#include <cstdio>
#include <vector>

namespace dicom {

namespace {

// Hounsfield units of the three materials.
constexpr int kWaterHu = 0;
constexpr int kBoneHu = 1000;
constexpr int kAirHu = -1000;
constexpr int kOutsideHu = -1000;
constexpr int kCtIntercept = -1024;

int phantomHu(const PhantomOptions &o, int x, int y, int z)
{
    // Normalised coordinates in -1..1 over the volume.
    const double u = (x + 0.5) / o.columns * 2.0 - 1.0;
    const double v = (y + 0.5) / o.rows * 2.0 - 1.0;
    const double w = (z + 0.5) / o.slices * 2.0 - 1.0;
    if (u * u / 0.81 + v * v / 0.49 + w * w / 0.81 > 1.0)
        return kOutsideHu;
    const double bu = u - 0.35, bv = v, bw = w - 0.2;
    if (bu * bu + bv * bv + bw * bw < 0.04)
        return kBoneHu;
    const double au = u + 0.35, av = v + 0.1, aw = w + 0.2;
    if (au * au + av * av + aw * aw < 0.03)
        return kAirHu;
    return kWaterHu;
}

KcString fmt(const char *f, double a, double b, double c)
{
    return KcString::format(f, a, b, c);
}

} // namespace

int phantomStoredValue(const PhantomOptions &o, int x, int y, int z)
{
    const int hu = phantomHu(o, x, y, z);
    if (o.modality == "CT")
        return hu - kCtIntercept;
    // MR: unsigned intensities, water bright, bone dark.
    return hu == kBoneHu ? 200 : hu == kAirHu ? 0 : hu == kOutsideHu ? 0 : 800;
}

bool writePhantomSeries(const KcString &directory, const PhantomOptions &o, KcString *error)
{
    char studyUid[100], seriesUid[100], frameUid[100];
    dcmGenerateUniqueIdentifier(studyUid, SITE_STUDY_UID_ROOT);
    dcmGenerateUniqueIdentifier(seriesUid, SITE_SERIES_UID_ROOT);
    dcmGenerateUniqueIdentifier(frameUid, SITE_SERIES_UID_ROOT);
    const bool ct = o.modality == "CT";

    std::vector<Uint16> pixels(static_cast<size_t>(o.columns) * o.rows);
    for (int z = 0; z < o.slices; ++z) {
        DcmFileFormat file;
        DcmDataset *ds = file.getDataset();
        char sopUid[100];
        dcmGenerateUniqueIdentifier(sopUid, SITE_INSTANCE_UID_ROOT);
        const char *sopClass = ct ? UID_CTImageStorage : UID_MRImageStorage;
        const double zPos = o.firstPositionMm[2] + z * o.sliceSpacingMm;

        ds->putAndInsertString(DCM_SpecificCharacterSet, "ISO_IR 100");
        ds->putAndInsertString(DCM_ImageType, "ORIGINAL\\PRIMARY\\AXIAL");
        ds->putAndInsertString(DCM_SOPClassUID, sopClass);
        ds->putAndInsertString(DCM_SOPInstanceUID, sopUid);
        ds->putAndInsertString(DCM_StudyDate, "20260101");
        ds->putAndInsertString(DCM_SeriesDate, "20260101");
        ds->putAndInsertString(DCM_StudyTime, "120000");
        ds->putAndInsertString(DCM_Modality, o.modality.c_str());
        ds->putAndInsertString(DCM_Manufacturer, "vxdicom phantom");
        ds->putAndInsertString(DCM_SeriesDescription, "built-in phantom");
        ds->putAndInsertString(DCM_PatientName, o.patientName.c_str());
        ds->putAndInsertString(DCM_PatientID, "VX-PHANTOM");
        ds->putAndInsertString(DCM_PatientBirthDate, "19700101");
        ds->putAndInsertString(DCM_PatientSex, "O");
        ds->putAndInsertString(DCM_SliceThickness, KcString::format("%g", o.sliceSpacingMm).c_str());
        if (!ct)
            ds->putAndInsertString(DCM_ScanningSequence, "GR");
        ds->putAndInsertString(DCM_PatientPosition, "HFS");
        ds->putAndInsertString(DCM_StudyInstanceUID, studyUid);
        ds->putAndInsertString(DCM_SeriesInstanceUID, seriesUid);
        ds->putAndInsertString(DCM_StudyID, "1");
        ds->putAndInsertString(DCM_SeriesNumber, "1");
        ds->putAndInsertString(DCM_InstanceNumber, KcString::format("%d", z + 1).c_str());
        ds->putAndInsertString(DCM_ImagePositionPatient,
                               fmt("%g\\%g\\%g", o.firstPositionMm[0], o.firstPositionMm[1], zPos).c_str());
        ds->putAndInsertString(DCM_ImageOrientationPatient, "1\\0\\0\\0\\1\\0");
        ds->putAndInsertString(DCM_FrameOfReferenceUID, frameUid);
        ds->putAndInsertString(DCM_SliceLocation, KcString::format("%g", zPos).c_str());
        ds->putAndInsertUint16(DCM_SamplesPerPixel, 1);
        ds->putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME2");
        ds->putAndInsertUint16(DCM_Rows, static_cast<Uint16>(o.rows));
        ds->putAndInsertUint16(DCM_Columns, static_cast<Uint16>(o.columns));
        ds->putAndInsertString(DCM_PixelSpacing,
                               KcString::format("%g\\%g", o.pixelSpacingMm, o.pixelSpacingMm).c_str());
        ds->putAndInsertUint16(DCM_BitsAllocated, 16);
        ds->putAndInsertUint16(DCM_BitsStored, 12);
        ds->putAndInsertUint16(DCM_HighBit, 11);
        ds->putAndInsertUint16(DCM_PixelRepresentation, 0);
        if (ct) {
            ds->putAndInsertString(DCM_RescaleIntercept, KcString::format("%d", kCtIntercept).c_str());
            ds->putAndInsertString(DCM_RescaleSlope, "1");
            ds->putAndInsertString(DCM_RescaleType, "HU");
            ds->putAndInsertString(DCM_WindowCenter, "40");
            ds->putAndInsertString(DCM_WindowWidth, "400");
        }
        for (int y = 0; y < o.rows; ++y)
            for (int x = 0; x < o.columns; ++x)
                pixels[static_cast<size_t>(y) * o.columns + x] =
                    static_cast<Uint16>(phantomStoredValue(o, x, y, z));
        ds->putAndInsertUint16Array(DCM_PixelData, pixels.data(),
                                    static_cast<unsigned long>(pixels.size()));

        const KcString name =
            directory + KcString::format("/IM%04d.dcm", z + 1);
        const OFCondition st = file.saveFile(name.c_str(), EXS_LittleEndianExplicit);
        if (st.bad()) {
            if (error)
                *error = name + ": " + st.text();
            return false;
        }
    }
    return true;
}

} // namespace dicom
