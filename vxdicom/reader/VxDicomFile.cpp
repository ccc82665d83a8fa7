#include "vxdicom/reader/VxDicomFile.h"

#include "platform/core/VxGunzip.h"
#include "platform/core/VxMessage.h"
#include "platform/data/VxParamBundle.h"
#include "vxdicom/params/CsaHeader.h"
#include "vxdicom/params/DicomElementConversion.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <QString>
#include <QStringList>

#include <atomic>
#include <cmath>
#include <mutex>
#include <string>
#include <vector>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

// Failure texts are rebuilt for every failure and handed out as const char*.
const char *failure(KcString &slot, const char *prefix, const KcString &name,
                    const KcString &reason = KcString())
{
    slot = KcString(prefix) + name;
    if (!reason.empty())
        slot += " (" + reason + ")";
    return slot.c_str();
}

// The path to read for `name`: the name itself, or for ".gz" and ".Z" names
// the file `unpacked` unpacks them to. Throws "cannot open: " with the name
// when the file cannot be unpacked.
KcString readablePath(const char *name, VxGunzip &unpacked, KcString &text)
{
    if (!VxGunzip::needsUnpacking(name))
        return name;
    KcString why;
    if (!unpacked.unpack(name, &why))
        throw failure(text, "cannot open: ", name, why);
    return unpacked.path();
}

// After a read of path failed: throws "cannot open: " with the name when the
// file cannot be opened for reading, so that this is said rather than what
// the reader made of it. Checked only then: a load opens thousands of files.
void throwIfUnopenable(const KcString &path, const char *name, KcString &text)
{
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f)
        throw failure(text, "cannot open: ", name, std::strerror(errno));
    std::fclose(f);
}

} // namespace

VxDicomFile::VxDicomFile(const char *name, int idx, int delayed) : index(idx)
{
    static std::atomic<uint64_t> files{0};
    serial = ++files;
    fileName = KcFilename(name);
    loadName = KcFilename(name);
    try {
        ok = readData(name, delayed);
    } catch (...) {
        for (VxDicomImage *image : images)
            delete image;
        images.clear();
        dicom::dicomFree(data);
        data = nullptr;
        throw;
    }
}

VxDicomFile::~VxDicomFile()
{
    for (VxDicomImage *image : images)
        delete image;
    dicom::dicomFree(data);
}

int VxDicomFile::readData(const char *name, int delayed)
{
    static thread_local KcString text; // what a failure throws
    VxGunzip unpacked; // removes its temporary file on every way out
    const KcString path = readablePath(name, unpacked, text);

    std::string why;
    data = dicom::dicomReadFile(path.c_str(), delayed, &why);
    if (!data) {
        throwIfUnopenable(path, name, text);
        throw failure(text, "cannot extract DICOM information from: ", name, why);
    }

    if (data->isDicomDir)
        return 1;
    return extractImageData();
}

int VxDicomFile::extractImageData()
{
    float frameSpacing = 1;
    if (const char *s = dicom::dicomGetById(data, 0x0018, 0x0088))
        frameSpacing = static_cast<float>(std::atof(s));
    // An enhanced multi-frame object places each frame through its
    // functional groups; other multi-frame files only say how far apart the
    // frames are.
    const bool placedFrames = dicom::dicomHasFunctionalGroups(data);
    // An RT Dose grid places its frames along the normal by its Grid Frame
    // Offset Vector (PS3.3 C.8.8.3.2), relative to Image Position whether the
    // offsets start at 0 or (the older form) at the position's own z.
    std::vector<double> gridOffsets;
    if (const char *g = dicom::dicomGetById(data, 0x3004, 0x000C))
        for (const QString &v : QString::fromLatin1(g).split(QLatin1Char('\\'))) {
            bool ok = false;
            const double offset = v.trimmed().toDouble(&ok);
            if (!ok || !std::isfinite(offset)) {
                gridOffsets.clear(); // an offset that is no distance places no frame
                break;
            }
            gridOffsets.push_back(offset);
        }

    int made = 0;
    for (int k = 0; k < data->frames; ++k) {
        unsigned char *pixels =
            data->pixelData ? data->pixelData + static_cast<size_t>(k) * data->frameSize : nullptr;
        auto image = std::make_unique<VxDicomImage>(this, pixels, k);
        image->setParameters();
        image->minValue = 1;
        image->maxValue = 0;
        if (data->frames > 1 && !placedFrames && image->hasPosition && image->hasRowDirection() &&
            gridOffsets.size() == static_cast<size_t>(data->frames)) {
            const double along = gridOffsets[static_cast<size_t>(k)] - gridOffsets[0];
            for (int i = 0; i < 3; ++i)
                image->position[i] += static_cast<float>(along * image->normal[i]);
            image->sliceLocation = image->normal[0] * image->position[0] +
                                   image->normal[1] * image->position[1] +
                                   image->normal[2] * image->position[2];
        } else if (data->frames > 1 && !(placedFrames && image->hasPosition)) {
            image->sliceLocation = k * frameSpacing;
        }
        ++made;
        if (appendMosaicTiles(*image))
            continue;
        if (pixels) {
            int lo, hi;
            image->dataRange(&lo, &hi);
        }
        images.append(image.release());
    }
    return made == data->frames ? 1 : 0;
}

namespace {

// The values of a tag of the Siemens CSA image header (0029,1010).
std::vector<std::string> csaImageValues(const dicom::dicomStruct *d, const char *name)
{
    const dicom::dicomDataElement *e = dicom::dicomFindElement(d, 0x0029, 0x1010);
    return e && e->data ? csa2Values(e->data, e->length, name) : std::vector<std::string>();
}

} // namespace

// A Siemens mosaic holds the slices of a volume as tiles of one frame, row by
// row. Its Image Position names the corner of the whole mosaic as if it were
// one slice; the first tile lies half the difference of the two sizes further
// along the rows and columns, and each next tile one slice distance along the
// slice normal of the CSA image header, which gives the order of the tiles
// (the normal of the row and column directions may point the other way).
bool VxDicomFile::appendMosaicTiles(const VxDicomImage &frame)
{
    const char *type = frame.headerText(0x0008, 0x0008);
    if (!type || !QString::fromLatin1(type).toUpper().contains(QLatin1String("MOSAIC")) ||
        !frame.hasPosition || !frame.hasRowDirection())
        return false;
    int count = 0;
    const std::vector<std::string> csaCount = csaImageValues(data, "NumberOfImagesInMosaic");
    if (!csaCount.empty())
        count = std::atoi(csaCount[0].c_str());
    else if (const char *s = dicom::dicomGetById(data, 0x0019, 0x100A))
        count = std::atoi(s);
    const int perRow = static_cast<int>(std::ceil(std::sqrt(static_cast<double>(count))));
    if (count < 2 || frame.width % perRow != 0 || frame.height % perRow != 0) {
        if (count >= 2)
            VxMessage::getTheMsg()->printf("%s: a mosaic of %d images does not divide %d x %d "
                                           "pixels; read as one image\n",
                                           fileName.c_str(), count, frame.width, frame.height);
        return false;
    }
    const int tileWidth = frame.width / perRow;
    const int tileHeight = frame.height / perRow;

    float normal[3] = {frame.normal[0], frame.normal[1], frame.normal[2]};
    const std::vector<std::string> csaNormal = csaImageValues(data, "SliceNormalVector");
    if (csaNormal.size() == 3) {
        float v[3];
        double length = 0;
        for (int i = 0; i < 3; ++i) {
            v[i] = static_cast<float>(std::atof(csaNormal[static_cast<size_t>(i)].c_str()));
            length += double(v[i]) * v[i];
        }
        length = std::sqrt(length);
        if (length > 0.5)
            for (int i = 0; i < 3; ++i)
                normal[i] = static_cast<float>(v[i] / length);
    }
    float spacing = 0;
    if (const char *s = frame.headerText(0x0018, 0x0088))
        spacing = static_cast<float>(std::atof(s));
    if (!(spacing > 0))
        spacing = frame.sliceThickness;

    const float alongRow = frame.pixelSpacing[0] * static_cast<float>(frame.width - tileWidth) / 2;
    const float alongColumn =
        frame.pixelSpacing[1] * static_cast<float>(frame.height - tileHeight) / 2;
    for (int t = 0; t < count; ++t) {
        float position[3];
        for (int i = 0; i < 3; ++i)
            position[i] = frame.position[i] + frame.rowDirection[i] * alongRow +
                          frame.columnDirection[i] * alongColumn + normal[i] * spacing * t;
        images.append(new VxDicomImage(frame, t, perRow, tileWidth, tileHeight, position));
    }
    return true;
}

std::unique_ptr<VxParamBundle> VxDicomFile::dicomDataElements() const
{
    auto bundle = std::make_unique<VxParamBundle>("DICOM Elements");
    if (!data)
        return bundle;
    for (int i = 0; i < data->numElements; ++i) {
        const dicom::dicomDataElement &e = data->elements[i];
        const char *value = dicom::dicomGetById(data, e.group, e.element);
        if (VxParamBase *p = convertDicomByIdToVxParamBase(&e, value, 0))
            bundle->insert(p, true);
    }
    return bundle;
}

void VxDicomFile::loadPixelData(const VxDicomImage &image, void *buffer) const
{
    if (image.tile >= 0 && data->pixelData) {
        cutTile(image, data->pixelData + static_cast<size_t>(image.frame) * data->frameSize,
                buffer);
        return;
    }
    // Frames may be decoded on several threads at once: each keeps the text
    // of its own failure until the thread that reports it has copied it.
    thread_local KcString text;
    const char *name = loadName.c_str();
    VxGunzip unpacked;
    const KcString path = readablePath(name, unpacked, text);

    std::string why;
    if (image.tile < 0) {
        // One frame, read on its own: multi-frame files are read lazily too.
        if (!dicom::dicomReadImageData(data, path.c_str(), image.frame, buffer,
                                       static_cast<size_t>(image.dataSize), &why)) {
            throwIfUnopenable(path, name, text);
            text = "Error: unable to load image data.";
            if (!why.empty())
                text += " (" + why + ")";
            throw text.c_str();
        }
        return;
    }
    // A mosaic tile: the frame is read once for all its tiles (they follow
    // each other in a stack) and kept until another frame is asked for.
    static std::mutex cacheMutex;
    static struct
    {
        uint64_t file = 0;
        int frame = -1;
        std::vector<unsigned char> bytes;
    } cache;
    const std::lock_guard<std::mutex> lock(cacheMutex);
    if (cache.file != serial || cache.frame != image.frame) {
        cache.file = 0;
        cache.bytes.resize(static_cast<size_t>(data->frameSize) + 1);
        if (!dicom::dicomReadImageData(data, path.c_str(), image.frame, cache.bytes.data(),
                                       cache.bytes.size(), &why)) {
            throwIfUnopenable(path, name, text);
            text = "Error: unable to load image data.";
            if (!why.empty())
                text += " (" + why + ")";
            throw text.c_str();
        }
        cache.file = serial;
        cache.frame = image.frame;
    }
    cutTile(image, cache.bytes.data(), buffer);
}

void VxDicomFile::cutTile(const VxDicomImage &image, const unsigned char *frameBytes,
                          void *buffer) const
{
    const size_t pixel =
        static_cast<size_t>(static_cast<float>(image.samplesPerPixel) * image.bytesPerSample);
    const size_t row = static_cast<size_t>(image.width) * pixel;
    const size_t frameRow = static_cast<size_t>(data->columns) * pixel;
    const size_t left = static_cast<size_t>(image.tile % image.tilesPerRow) * row;
    const size_t top = static_cast<size_t>(image.tile / image.tilesPerRow) * image.height;
    auto *out = static_cast<unsigned char *>(buffer);
    for (int y = 0; y < image.height; ++y)
        std::memcpy(out + y * row, frameBytes + (top + y) * frameRow + left, row);
}
