#pragma once

#include "platform/core/KcPrimType.h"
#include "vxdicom/export/Dicom3Element.h"
#include "vxdicom/export/Dicom3Group.h"

#include <QString>

#include <array>
#include <cstdio>
#include <memory>
#include <vector>

class KcRawData3D;
class VxParamBundle;
class VxParameter;
class VxRegScalarField3;
class VxStackedScalarField3;
class VxUniformScalarField3;

/// One DICOM image object built from a 3D scalar field (or a 2D pixel
/// buffer): preamble, "DICM" and the groups of one single-frame image.
/// generate() builds it once for slice 0; setSlice(k) moves the
/// slice-dependent attributes and the pixel data to slice k, so that writing
/// once per slice gives one file per slice with a shared patient, study and
/// series. writeDicom3Slices (Dicom3Writer.h) writes the files.
///
/// Deliberate properties that must stay: instance numbers start at 0, the
/// orientation is always 1\0\0\0\1\0, the patient's birth date is today,
/// group 0002 is explicit VR little endian and the data set is explicit VR in
/// the host's byte order.
class Dicom3Object
{
public:
    struct TransferSyntax
    {
        const char *uid;
        dicom::enCoding encoding;
        const char *label;
    };

    /// The sample pointer handed to the image pixel module.
    struct TypedDataPtr
    {
        const void *data = nullptr;
        KcPrimType type = KcPrimType::UInt8;
    };

    static const char signature[4];
    static const int nTransferSyntaxes = 6;
    static const TransferSyntax theTransferSyntax[nTransferSyntaxes];
    static const int nSOPClasses = 11;
    static const char *const theSOPClass[nSOPClasses];
    static const char *const theModality[nSOPClasses];
    static const char *const demoPatient;
    static const char *const demoPhysician;

    /// The field is borrowed and must outlive the object; null is accepted
    /// here and refused by generate().
    explicit Dicom3Object(VxStackedScalarField3 *field);
    explicit Dicom3Object(VxUniformScalarField3 *field);
    /// A 2D image: dims[0] width, dims[1] height, dims[2] components per
    /// pixel; unsigned 8-bit samples, interleaved, borrowed. Secondary Capture.
    Dicom3Object(const int *dims, const unsigned char *pixels);
    ~Dicom3Object();
    Dicom3Object(const Dicom3Object &) = delete;
    Dicom3Object &operator=(const Dicom3Object &) = delete;

    /// 1 on a big-endian host, 0 on a little-endian one.
    static int getArchitecture();

    /// Builds header, file meta group and the modules of the SOP class for
    /// slice 0. Only once per object. Returns 1, or -1 with a console message.
    int generate();
    /// Moves the slice-dependent attributes and the pixel data to slice k.
    /// Returns the pixel bytes of the slice, or -1 (nothing changes then).
    int setSlice(int k);

    /// Adds e to its group, creating the group on demand; takes ownership.
    /// The int is not used (callers pass -2). Returns 1 or -1.
    int insertElement(Dicom3Element *e, int unused = -2);
    /// Inserts every parameter of bundle's sub-bundle "All" (in order); a
    /// later tag replaces an earlier one, generated ones included.
    void insertDicomParamBundle(VxParamBundle *bundle);
    /// One "G%04X-%04X" parameter as an element; element 0000 is skipped (1).
    int insertParamAsElement(VxParameter *p);
    /// 1 when 0 <= k < slice count, else -1; changes nothing.
    int insertDicomSliceParam(int k);

    /// Dimensions, voxel size, slice positions, bits and sample pointer from
    /// the field or the 2D image. 1 when there is something to write, else 0.
    int prepareData();
    /// (0002,0003) and (0008,0018) for slice k, unless "ZENTA_ZIEHM_RECONSTRUCTION".
    void applySOPInstanceUID(int k);
    /// Resets the slice state and inserts the file meta group.
    void createHeaderAndMeta();

    /// Tracing: preamble, signature and up to 10 elements (explicit little
    /// endian) to the console. Returns the bytes read, or -1.
    int read(FILE *f);
    /// Does nothing.
    void print() const {}

    // Information-object builders, one per storage class.
    void createCRObjectFromField();
    void createCTObjectFromField();
    void createMRObjectFromField();
    void createNMObjectFromField();
    void createSCObjectFromField();
    void createUSObjectFromField();
    void createUS_MULTI_FRAMEObjectFromField();
    void createSC_MULTI_FRAME_SINGLE_BITObjectFromField();
    void createSC_MULTI_FRAME_GRAYSCALE_BYTEObjectFromField();
    void createSC_MULTI_FRAME_GRAYSCALE_WORDObjectFromField();
    void createSC_MULTI_FRAME_TRUE_COLORObjectFromField();

    // Modules with content.
    void createPatientModule();
    void createStudyModule();
    void createSeriesModule(float minimum, float maximum);
    void createEquipmentModule();
    void createSOPModule();
    void createGeneralImageModule(int slice);
    void createImagePlaneModule(float dx, float dy, float dz, int slice);
    void createImagePixelModule(int rows, int columns, int bits, KcRawData3D *data,
                                KcPrimType type);
    void createNMImagePixelModule(float dx, float dy, int bits);

    // Modules kept by name so that each builder reads as the module list of
    // its storage class; they add nothing.
    void createFrameOfReferenceModule() {}
    void createCineModule() {}
    void createMultiFrameModule() {}
    void createCRSeriesModule() {}
    void createCRImageModule() {}
    void createCTImageModule() {}
    void createMRImageModule() {}
    void createNMPETPatientOrientationModule() {}
    void createNMMultiFrameModule() {}
    void createNMImageModule() {}
    void createNMIsotopeModule() {}
    void createNMDetectorModule() {}
    void createUSImageModule() {}
    void createSCEquipmentModule() {}
    void createSCImageModule() {}

    // Settings, before generate().
    /// Index into theSOPClass/theModality; the default is 2 (MR).
    void setSOPClassIndex(int index) { sopClassIndex = index; }
    int getSOPClassIndex() const { return sopClassIndex; }
    void setPatientName(const QString &name) { patientName = name; }
    void setCreatePatient(bool on) { createPatient = on; }
    /// Multiplies voxel sizes and slice positions (e.g. 10 for cm to mm).
    void setLengthUnitFactor(float factor) { lengthUnitFactor = factor; }

    // State, for the file writer and tests.
    bool isGenerated() const { return generated; }
    int getSliceCount() const { return sliceCount; }
    const unsigned char *getPreamble() const { return preamble; }
    int getTransferSyntaxIndex() const { return transferSyntaxIndex; }
    int numGroups() const { return static_cast<int>(groups.size()); }
    Dicom3Group *group(int i) const { return groups[static_cast<size_t>(i)].get(); }
    /// The group with that number, or null.
    Dicom3Group *findGroup(unsigned short groupId) const;
    /// The element with that tag, or null.
    Dicom3Element *findElement(unsigned short groupId, unsigned short elementId) const;
    Dicom3Element *getPixelDataElement() const { return pixelDataElement; }
    int getSeed() const { return seed; }
    float getVoxelSize(int axis) const;
    /// World position of slice k (times the length unit factor), or null.
    const float *getSlicePosition(int k) const;

private:
    void constructor(VxRegScalarField3 *field);
    /// The text as an element of that tag and VR, set with setCharStringData(text, -2).
    void insertText(unsigned short group, unsigned short element, dicom::valRep vr,
                    const QString &text);
    void insertText(unsigned short group, unsigned short element, dicom::valRep vr,
                    const char *text);
    void insertU16(unsigned short group, unsigned short element, unsigned short value);
    /// A volume view over the typed data pointer for the image pixel module.
    KcRawData3D *makeVolumeView(bool componentAware);

    unsigned char preamble[128];
    int architecture = 0;
    int transferSyntaxIndex = 2;
    int sopClassIndex = 2;
    bool createPatient = true;
    QString patientName;
    float lengthUnitFactor = 1.0f;
    std::vector<std::array<float, 3>> slicePositions;
    bool generated = false;
    int componentsPerPixel = 1;
    int sliceCount = -1;
    float dataMinimum = 0.0f;
    float dataMaximum = 0.0f;
    float voxelSizeX = 1.0f;
    float voxelSizeY = 1.0f;
    float voxelSizeZ = 1.0f;
    VxRegScalarField3 *inputField = nullptr; ///< borrowed
    KcPrimType primType = KcPrimType::UInt8;
    TypedDataPtr typedData;
    Dicom3Element *pixelDataElement = nullptr; ///< owned by its group
    std::vector<std::unique_ptr<Dicom3Group>> groups;
    const unsigned char *rawImage = nullptr; ///< borrowed
    int dims[3] = {-1, -1, -1};
    int bitsAllocated = 8;
    int seed = 0;
    /// The view the pixel data element streams from.
    std::unique_ptr<KcRawData3D> pixelVolume;
};
