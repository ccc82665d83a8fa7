// The information-object modules of Dicom3Object and the builders that
// compose them, one per storage class.

#include "vxdicom/export/Dicom3Object.h"

#include "platform/core/KcRawData3D.h"
#include "platform/core/VxMessage.h"
#include "platform/gui/VxSkin.h"
#include "vxdicom/params/DicomUid.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QTime>

#include <cstdio>
#include <memory>

// Builders: each reads as the module list of its storage class.

void Dicom3Object::createCRObjectFromField()
{
    if (!prepareData())
        return;
    createPatientModule();
    createStudyModule();
    createSeriesModule(dataMinimum, dataMaximum);
    createCRSeriesModule();
    createEquipmentModule();
    createImagePixelModule(dims[1], dims[0], bitsAllocated, makeVolumeView(false), typedData.type);
    createCRImageModule();
    createSOPModule();
    setSlice(0);
}

void Dicom3Object::createCTObjectFromField()
{
    if (!prepareData())
        return;
    createPatientModule();
    createStudyModule();
    createSeriesModule(dataMinimum, dataMaximum);
    createCineModule();
    createEquipmentModule();
    createImagePixelModule(dims[1], dims[0], bitsAllocated, makeVolumeView(false), typedData.type);
    createCineModule();
    createSOPModule();
    setSlice(0);
}

void Dicom3Object::createMRObjectFromField()
{
    if (!prepareData())
        return;
    createPatientModule();
    createStudyModule();
    createSeriesModule(dataMinimum, dataMaximum);
    createEquipmentModule();
    createImagePixelModule(dims[1], dims[0], bitsAllocated, makeVolumeView(false), typedData.type);
    createMRImageModule();
    createSOPModule();
    setSlice(0);
    char text[64];
    std::snprintf(text, sizeof text, "%3.6f", 0.0);
    insertText(0x0028, 0x1052, dicom::DS, text); // Rescale Intercept
    std::snprintf(text, sizeof text, "%3.6f", 1.0);
    insertText(0x0028, 0x1053, dicom::DS, text); // Rescale Slope
}

void Dicom3Object::createNMObjectFromField()
{
    if (!prepareData())
        return;
    createPatientModule();
    createStudyModule();
    createSeriesModule(dataMinimum, dataMaximum);
    createNMPETPatientOrientationModule();
    createEquipmentModule();
    createImagePixelModule(dims[1], dims[0], bitsAllocated, makeVolumeView(false), typedData.type);
    createNMImagePixelModule(voxelSizeX, voxelSizeY, bitsAllocated);
    createNMImageModule();
    createMultiFrameModule();
    createNMMultiFrameModule();
    createNMIsotopeModule();
    createNMDetectorModule();
    createSOPModule();
    setSlice(0);
}

void Dicom3Object::createSCObjectFromField()
{
    if (!prepareData())
        return;
    createPatientModule();
    createStudyModule();
    createSeriesModule(dataMinimum, dataMaximum);
    createCineModule();
    // Colour samples travel as one element of components x sample size bytes.
    createImagePixelModule(dims[1], dims[0], bitsAllocated, makeVolumeView(true), typedData.type);
    createCineModule();
    createSOPModule();
    setSlice(0);
}

void Dicom3Object::createUSObjectFromField()
{
    if (!prepareData())
        return;
    createPatientModule();
    createStudyModule();
    createSeriesModule(dataMinimum, dataMaximum);
    createEquipmentModule();
    createImagePixelModule(dims[1], dims[0], bitsAllocated, makeVolumeView(false), typedData.type);
    createCineModule();
    createSOPModule();
    setSlice(0);
}

void Dicom3Object::createUS_MULTI_FRAMEObjectFromField()
{
    if (!prepareData())
        return;
    createPatientModule();
    createStudyModule();
    createSeriesModule(dataMinimum, dataMaximum);
    createEquipmentModule();
    createImagePixelModule(dims[1], dims[0], bitsAllocated, makeVolumeView(false), typedData.type);
    createCineModule();
    createMultiFrameModule();
    createUSImageModule();
    createSOPModule();
    // Written like the others: one frame per file.
    setSlice(0);
}

void Dicom3Object::createSC_MULTI_FRAME_SINGLE_BITObjectFromField()
{
    VxMessage::getTheMsg()->printf("Dicom3Object: Not implemented yet!\n");
}

void Dicom3Object::createSC_MULTI_FRAME_GRAYSCALE_BYTEObjectFromField()
{
    VxMessage::getTheMsg()->printf("Dicom3Object: Not implemented yet!\n");
}

void Dicom3Object::createSC_MULTI_FRAME_GRAYSCALE_WORDObjectFromField()
{
    VxMessage::getTheMsg()->printf("Dicom3Object: Not implemented yet!\n");
}

void Dicom3Object::createSC_MULTI_FRAME_TRUE_COLORObjectFromField()
{
    VxMessage::getTheMsg()->printf("Dicom3Object: Not implemented yet!\n");
}

// Modules with content.

void Dicom3Object::createPatientModule()
{
    if (!createPatient || dicom3ZiehmReconstruction())
        return;
    insertText(0x0010, 0x0010, dicom::PN, patientName);   // Patient's Name
    insertText(0x0010, 0x0020, dicom::LO, "12345/56753"); // Patient ID
    // Today, on purpose: the real birth date is not known here.
    insertText(0x0010, 0x0030, dicom::DA, getDicomDate()); // Patient's Birth Date
    insertText(0x0010, 0x0040, dicom::CS, "O");            // Patient's Sex
}

void Dicom3Object::createStudyModule()
{
    if (dicom3ZiehmReconstruction())
        return;
    const QString date = getDicomDate();
    const QString time = getDicomTime();
    insertText(0x0020, 0x000D, dicom::UI,
               generateSOPInstanceUID(QTime::currentTime().msec(), -1)); // Study Instance UID
    insertText(0x0020, 0x0010, dicom::SH,
               QString(date + time).remove(QLatin1Char('.')).left(16)); // Study ID
    insertText(0x0008, 0x0020, dicom::DA, date);                        // Study Date
    insertText(0x0008, 0x0030, dicom::TM, time);                        // Study Time
    insertText(0x0008, 0x0090, dicom::PN, demoPhysician); // Referring Physician's Name
    insertText(0x0008, 0x0050, dicom::SH, "12345");       // Accession Number
}

void Dicom3Object::createSeriesModule(float, float)
{
    if (dicom3ZiehmReconstruction())
        return;
    char text[32];
    std::snprintf(text, sizeof text, "%d", seed);
    insertText(0x0020, 0x000E, dicom::UI, generateSOPInstanceUID(seed, -1)); // Series Instance UID
    insertText(0x0020, 0x0011, dicom::IS, text);                             // Series Number
    if (sopClassIndex >= 0 && sopClassIndex < nSOPClasses)
        insertText(0x0008, 0x0060, dicom::CS, theModality[sopClassIndex]); // Modality
}

void Dicom3Object::createEquipmentModule()
{
    if (dicom3ZiehmReconstruction())
        return;
    insertText(0x0008, 0x0070, dicom::LO, VxSkin::instance()->manufacturer()); // Manufacturer
}

void Dicom3Object::createSOPModule()
{
    if (sopClassIndex >= 0 && sopClassIndex < nSOPClasses)
        insertText(0x0008, 0x0016, dicom::UI, theSOPClass[sopClassIndex]); // SOP Class UID
    if (!dicom3ZiehmReconstruction())
        insertText(0x0008, 0x0014, dicom::UI, creatorUID); // Instance Creator UID
}

void Dicom3Object::createGeneralImageModule(int slice)
{
    char text[32];
    std::snprintf(text, sizeof text, "%d", slice);
    insertText(0x0020, 0x0013, dicom::IS, text); // Instance Number, from 0
}

void Dicom3Object::createImagePlaneModule(float dx, float dy, float dz, int slice)
{
    const float *position = getSlicePosition(slice);
    if (!position)
        return;
    char text[256];
    // Row spacing (between rows, along a column) first, as PS3.3 10.7.1.3 says.
    std::snprintf(text, sizeof text, "%1.6f\\%1.6f", dy, dx);
    insertText(0x0028, 0x0030, dicom::DS, text); // Pixel Spacing
    // Always axis-aligned: the field's own rotation is not carried.
    std::snprintf(text, sizeof text, "%3.6f\\%3.6f\\%3.6f\\%3.6f\\%3.6f\\%3.6f", 1.0, 0.0, 0.0, 0.0,
                  1.0, 0.0);
    insertText(0x0020, 0x0037, dicom::DS, text); // Image Orientation (Patient)
    std::snprintf(text, sizeof text, "%3.6f\\%3.6f\\%3.6f", position[0], position[1], position[2]);
    insertText(0x0020, 0x0032, dicom::DS, text); // Image Position (Patient)
    std::snprintf(text, sizeof text, "%3.6f", dz);
    insertText(0x0018, 0x0050, dicom::DS, text); // Slice Thickness
    // The trailing blank is intended.
    std::snprintf(text, sizeof text, "%3.6f ", position[2]);
    insertText(0x0020, 0x1041, dicom::DS, text); // Slice Location
}

void Dicom3Object::createImagePixelModule(int rows, int columns, int bits, KcRawData3D *data,
                                          KcPrimType type)
{
    const char *photometric = componentsPerPixel == 3   ? "RGB"
                              : componentsPerPixel == 4 ? "ARGB"
                                                        : "MONOCHROME2";
    insertU16(0x0028, 0x0002, static_cast<unsigned short>(componentsPerPixel)); // Samples per Pixel
    insertText(0x0028, 0x0004, dicom::CS, photometric);               // Photometric Interpretation
    insertU16(0x0028, 0x0010, static_cast<unsigned short>(rows));     // Rows
    insertU16(0x0028, 0x0011, static_cast<unsigned short>(columns));  // Columns
    insertU16(0x0028, 0x0100, static_cast<unsigned short>(bits));     // Bits Allocated
    insertU16(0x0028, 0x0101, static_cast<unsigned short>(bits));     // Bits Stored
    insertU16(0x0028, 0x0102, static_cast<unsigned short>(bits - 1)); // High Bit
    insertU16(0x0028, 0x0103, dataMinimum < 0.0f ? 1 : 0);            // Pixel Representation

    auto pixels =
        std::make_unique<Dicom3Element>(0x7FE0, 0x0010, bits <= 8 ? dicom::OB : dicom::OW);
    if (pixels->setRawDataPtr(data, type, componentsPerPixel, 2, 0) < 0)
        return;
    Dicom3Element *element = pixels.get();
    if (insertElement(pixels.release(), -2) == 1)
        pixelDataElement = element;
}

void Dicom3Object::createNMImagePixelModule(float dx, float dy, int bits)
{
    insertU16(0x0028, 0x0002, 1);
    insertText(0x0028, 0x0004, dicom::CS, "MONOCHROME2");
    insertU16(0x0028, 0x0100, static_cast<unsigned short>(bits));
    insertU16(0x0028, 0x0101, static_cast<unsigned short>(bits));
    insertU16(0x0028, 0x0102, static_cast<unsigned short>(bits - 1));
    char text[128];
    std::snprintf(text, sizeof text, "%1.6f\\%1.6f", dy, dx); // row spacing first
    insertText(0x0028, 0x0030, dicom::DS, text);                 // Pixel Spacing
}
