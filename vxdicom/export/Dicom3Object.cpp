#include "vxdicom/export/Dicom3Object.h"

#include "platform/core/KcRawData3D.h"
#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"
#include "platform/gui/VxSkin.h"
#include "vxdicom/params/DicomParamFilter.h"
#include "vxdicom/params/DicomUid.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QByteArray>
#include <QTime>

#include <algorithm>
#include <cmath>
#include <cstring>

const char Dicom3Object::signature[4] = {'D', 'I', 'C', 'M'};

const Dicom3Object::TransferSyntax Dicom3Object::theTransferSyntax[nTransferSyntaxes] = {
    {"None", dicom::ENC_NONE, "unknown"},
    {"1.2.840.10008.1.2", dicom::IMPLICIT_LITTLE_ENDIAN, "impl. VR, little endian"},
    {"1.2.840.10008.1.2.1", dicom::EXPLICIT_LITTLE_ENDIAN, "expl. VR, little endian"},
    {"1.2.840.10008.1.2.2", dicom::EXPLICIT_BIG_ENDIAN, "expl. VR, big endian"},
    {"1.2.840.10008.1.2.4.70", dicom::JPEG_LOSSLESS, "JPEG lossless, hierar."},
    {"1.2.840.10008.1.2.5", dicom::RLE_LOSSLESS, "RLE lossless."},
};

const char *const Dicom3Object::theSOPClass[nSOPClasses] = {
    "1.2.840.10008.5.1.4.1.1.1",   // Computed Radiography Image Storage
    "1.2.840.10008.5.1.4.1.1.2",   // CT Image Storage
    "1.2.840.10008.5.1.4.1.1.4",   // MR Image Storage
    "1.2.840.10008.5.1.4.1.1.20",  // Nuclear Medicine Image Storage
    "1.2.840.10008.5.1.4.1.1.7",   // Secondary Capture Image Storage
    "1.2.840.10008.5.1.4.1.1.7.1", // Multi-frame Single Bit Secondary Capture
    "1.2.840.10008.5.1.4.1.1.7.2", // Multi-frame Grayscale Byte Secondary Capture
    "1.2.840.10008.5.1.4.1.1.7.3", // Multi-frame Grayscale Word Secondary Capture
    "1.2.840.10008.5.1.4.1.1.7.4", // Multi-frame True Color Secondary Capture
    "1.2.840.10008.5.1.4.1.1.6.1", // Ultrasound Image Storage
    "1.2.840.10008.5.1.4.1.1.3.1", // Ultrasound Multi-frame Image Storage
};

const char *const Dicom3Object::theModality[nSOPClasses] = {
    "CR", "CT", "MR", "NM", "SC", "SC", "SC", "SC", "SC", "US", "US",
};

const char *const Dicom3Object::demoPatient = "Unknown";
const char *const Dicom3Object::demoPhysician = "Unknown";

Dicom3Object::Dicom3Object(VxStackedScalarField3 *field)
{
    constructor(field);
}

Dicom3Object::Dicom3Object(VxUniformScalarField3 *field)
{
    constructor(field);
}

Dicom3Object::Dicom3Object(const int *imageDims, const unsigned char *pixels)
{
    constructor(nullptr);
    sopClassIndex = 4;
    if (imageDims && pixels && imageDims[0] > 0 && imageDims[1] > 0 && imageDims[2] > 0) {
        dims[0] = imageDims[0];
        dims[1] = imageDims[1];
        dims[2] = 1;
        componentsPerPixel = imageDims[2];
        rawImage = pixels;
    }
}

Dicom3Object::~Dicom3Object() = default;

void Dicom3Object::constructor(VxRegScalarField3 *field)
{
    std::memset(preamble, 0, sizeof preamble);
    architecture = getArchitecture();
    // The data set is always written in the host's own byte order.
    transferSyntaxIndex = architecture == 0 ? 2 : 3;
    sopClassIndex = 2;
    createPatient = true;
    patientName = demoPatient;
    lengthUnitFactor = 1.0f;
    generated = false;
    componentsPerPixel = 1;
    sliceCount = -1;
    inputField = field;
    rawImage = nullptr;
    dims[0] = dims[1] = dims[2] = -1;
}

int Dicom3Object::getArchitecture()
{
    const unsigned short one = 1;
    unsigned char first = 0;
    std::memcpy(&first, &one, 1);
    return first == 0 ? 1 : 0;
}

Dicom3Group *Dicom3Object::findGroup(unsigned short groupId) const
{
    for (const auto &g : groups)
        if (g->getGroupId() == groupId)
            return g.get();
    return nullptr;
}

Dicom3Element *Dicom3Object::findElement(unsigned short groupId, unsigned short elementId) const
{
    const Dicom3Group *g = findGroup(groupId);
    return g ? g->findElement(elementId) : nullptr;
}

float Dicom3Object::getVoxelSize(int axis) const
{
    switch (axis) {
    case 0:
        return voxelSizeX;
    case 1:
        return voxelSizeY;
    case 2:
        return voxelSizeZ;
    default:
        return 0.0f;
    }
}

const float *Dicom3Object::getSlicePosition(int k) const
{
    if (k < 0 || k >= static_cast<int>(slicePositions.size()))
        return nullptr;
    return slicePositions[static_cast<size_t>(k)].data();
}

int Dicom3Object::generate()
{
    VxMessage *msg = VxMessage::getTheMsg();
    // 1.
    if (!inputField && !rawImage) {
        msg->printf("Dicom3Object: Invalid input field.\n");
        return -1;
    }
    // 2.
    if (generated) {
        msg->printf("Dicom3Object: You can call generate() only once.\n");
        return -1;
    }
    // 3. Data range and sample type.
    if (inputField) {
        double minimum = 0.0, maximum = 0.0;
        if (!inputField->getRange(minimum, maximum))
            minimum = maximum = 0.0;
        dataMinimum = static_cast<float>(minimum);
        dataMaximum = static_cast<float>(maximum);
        primType = inputField->primType();
    } else {
        dataMinimum = 0.0f;
        dataMaximum = 255.0f;
        primType = KcPrimType::UInt8;
    }
    // 4.
    generated = true;
    // 5. The seed of every UID of this object, and its series number.
    const QTime now = QTime::currentTime();
    const int divisor = now.hour() != 0 ? now.hour() : 24; // midnight: 24 stands in for hour 0
    seed = now.second() * ((now.msec() * now.minute()) / divisor);
    // 6.
    applySOPInstanceUID(0);
    createHeaderAndMeta();
    // 7. One builder per supported storage class.
    switch (sopClassIndex) {
    case 0:
        createCRObjectFromField();
        break;
    case 1:
        createCTObjectFromField();
        break;
    case 2:
        createMRObjectFromField();
        break;
    case 3:
        createNMObjectFromField();
        break;
    case 4:
        createSCObjectFromField();
        break;
    case 9:
        createUSObjectFromField();
        break;
    case 10:
        createUS_MULTI_FRAMEObjectFromField();
        break;
    default:
        msg->printf("Dicom3Object:: unsupported SOP Class.\n");
        return -1;
    }
    return pixelDataElement ? 1 : -1;
}

void Dicom3Object::createHeaderAndMeta()
{
    sliceCount = -1;
    slicePositions.clear();
    pixelDataElement = nullptr;
    std::memset(preamble, 0, sizeof preamble);

    auto *version = new Dicom3Element(0x0002, 0x0001, dicom::OB); // File Meta Information Version
    const unsigned char versionBytes[2] = {0x00, 0x01};
    version->setU8bitStringData(versionBytes, 2);
    insertElement(version, -2);

    insertText(0x0002, 0x0010, dicom::UI, theTransferSyntax[transferSyntaxIndex].uid);
    if (sopClassIndex >= 0 && sopClassIndex < nSOPClasses)
        insertText(0x0002, 0x0002, dicom::UI, theSOPClass[sopClassIndex]);
    if (!dicom3ZiehmReconstruction()) {
        insertText(0x0002, 0x0012, dicom::UI, creatorUID);
        insertText(0x0002, 0x0013, dicom::SH, VxSkin::instance()->versionText());
    }
}

void Dicom3Object::applySOPInstanceUID(int k)
{
    if (dicom3ZiehmReconstruction())
        return;
    const QString uid = generateSOPInstanceUID(seed, k);
    insertText(0x0002, 0x0003, dicom::UI, uid); // Media Storage SOP Instance UID
    insertText(0x0008, 0x0018, dicom::UI, uid); // SOP Instance UID
}

int Dicom3Object::setSlice(int k)
{
    if (!pixelDataElement || k < 0 || k >= sliceCount)
        return -1;
    if (!dicom3ZiehmReconstruction()) {
        auto *acquisition = new Dicom3Element(0x0020, 0x0012, dicom::IS); // Acquisition Number
        acquisition->setISData(k);
        insertElement(acquisition, -2);
    }
    createGeneralImageModule(k);
    createImagePlaneModule(voxelSizeX, voxelSizeY, voxelSizeZ, k);
    applySOPInstanceUID(k);
    return pixelDataElement->setRawDataSlice(k);
}

int Dicom3Object::insertElement(Dicom3Element *e, int)
{
    if (!e)
        return -1;
    const unsigned short groupId = e->getGroupId();
    Dicom3Group *g = findGroup(groupId);
    bool created = false;
    if (!g) {
        auto group = std::make_unique<Dicom3Group>(groupId);
        g = group.get();
        auto byGroup = [](const std::unique_ptr<Dicom3Group> &a, const Dicom3Group *b) {
            return Dicom3Group::compareGroupId(a.get(), b) < 0;
        };
        groups.insert(std::lower_bound(groups.begin(), groups.end(), g, byGroup), std::move(group));
        created = true;
    }
    const int result = g->insertElement(e);
    if (result < 0 && created && g->numElements() == 0) {
        // A refused element leaves no empty group behind.
        groups.erase(std::find_if(groups.begin(), groups.end(),
                                  [g](const auto &p) { return p.get() == g; }));
    }
    return result;
}

void Dicom3Object::insertDicomParamBundle(VxParamBundle *bundle)
{
    if (!bundle)
        return;
    const VxParamBundle *all = bundle->bundle("All");
    if (!all)
        return;
    for (int i = 0; i < all->size(); ++i) {
        VxParamBase *entry = all->entry(i);
        if (entry && !entry->isBundle())
            insertParamAsElement(static_cast<VxParameter *>(entry));
    }
}

int Dicom3Object::insertParamAsElement(VxParameter *p)
{
    if (!p)
        return -1;
    bool ok = false;
    const unsigned elementId = decodeDicomParam(p, ContentElement).toUInt(&ok, 16);
    // Element 0000 is a group length, which the writer makes itself.
    if (!ok || elementId == 0 || elementId > 0xFFFF)
        return 1;
    const unsigned groupId = decodeDicomParam(p, ContentGroup).toUInt(&ok, 16);
    if (!ok || groupId > 0xFFFF)
        return 1;
    const dicom::valRep vr = decodeVRString(decodeDicomParam(p, ContentVR));
    const QString value = decodeDicomParam(p, ContentValue);

    auto *e = new Dicom3Element(static_cast<unsigned short>(groupId),
                                static_cast<unsigned short>(elementId), vr);
    e->setParamDataString(value);
    return insertElement(e, -2);
}

int Dicom3Object::insertDicomSliceParam(int k)
{
    return k >= 0 && k < sliceCount ? 1 : -1;
}

int Dicom3Object::prepareData()
{
    if (inputField && inputField->lattice()) {
        const VxLattice3 *lattice = inputField->lattice();
        for (int i = 0; i < 3; ++i)
            dims[i] = lattice->dim(i);
        float bbox[6];
        inputField->getBoundingBox(bbox);
        float *voxel[3] = {&voxelSizeX, &voxelSizeY, &voxelSizeZ};
        for (int i = 0; i < 3; ++i)
            *voxel[i] = std::fabs(bbox[2 * i + 1] - bbox[2 * i]) /
                        static_cast<float>(std::max(dims[i] - 1, 1)) * lengthUnitFactor;
        sliceCount = dims[2];
        slicePositions.assign(static_cast<size_t>(std::max(sliceCount, 0)), {0.f, 0.f, 0.f});
        for (int k = 0; k < sliceCount; ++k) {
            float world[3];
            inputField->voxelToWorld(0, 0, k, world);
            for (int i = 0; i < 3; ++i)
                slicePositions[static_cast<size_t>(k)][static_cast<size_t>(i)] =
                    world[i] * lengthUnitFactor;
        }
        bitsAllocated = primType.size() * 8;
        typedData.data = lattice->data();
        typedData.type = primType;
        return 1;
    }
    if (rawImage) {
        voxelSizeX = voxelSizeY = voxelSizeZ = 1.0f;
        sliceCount = 1;
        slicePositions.assign(1, {0.f, 0.f, 0.f});
        bitsAllocated = primType.size() * 8;
        typedData.data = rawImage;
        typedData.type = primType;
        return 1;
    }
    return 0;
}

int Dicom3Object::read(FILE *f)
{
    if (!f)
        return -1;
    VxMessage *msg = VxMessage::getTheMsg();
    Dicom3Element scratch(0x0001, 0x0001, dicom::US);
    if (std::fseek(f, 128, SEEK_CUR) != 0)
        return -1;
    char sig[5] = {0, 0, 0, 0, 0};
    const size_t n = std::fread(sig, 1, 4, f);
    msg->printf("Readed %d bytes: %s", static_cast<int>(n), sig);
    if (n != 4)
        return -1;
    long bytes = 128 + 4;
    for (int i = 0; i < 10 && !std::feof(f); ++i) {
        msg->printf("reading %d\n", i);
        const int header = scratch.read(f, dicom::EXPLICIT_LITTLE_ENDIAN);
        if (header < 0)
            break;
        scratch.print();
        bytes += header + scratch.getReadLength();
    }
    return static_cast<int>(bytes);
}

void Dicom3Object::insertText(unsigned short group, unsigned short element, dicom::valRep vr,
                              const char *text)
{
    auto *e = new Dicom3Element(group, element, vr);
    e->setCharStringData(text, -2);
    insertElement(e, -2);
}

void Dicom3Object::insertText(unsigned short group, unsigned short element, dicom::valRep vr,
                              const QString &text)
{
    const QByteArray bytes = text.toLocal8Bit();
    insertText(group, element, vr, bytes.constData());
}

void Dicom3Object::insertU16(unsigned short group, unsigned short element, unsigned short value)
{
    auto *e = new Dicom3Element(group, element, dicom::US);
    e->setU16bitData(value);
    insertElement(e, -2);
}

KcRawData3D *Dicom3Object::makeVolumeView(bool componentAware)
{
    if (componentAware)
        pixelVolume = std::make_unique<KcRawData3D>(typedData.data, dims,
                                                    typedData.type.size() * componentsPerPixel);
    else
        pixelVolume = std::make_unique<KcRawData3D>(typedData.data, dims, typedData.type, 1);
    return pixelVolume.get();
}
