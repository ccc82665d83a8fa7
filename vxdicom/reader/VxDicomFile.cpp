#include "vxdicom/reader/VxDicomFile.h"

#include "platform/core/VxGunzip.h"
#include "platform/data/VxParamBundle.h"
#include "vxdicom/params/DicomElementConversion.h"
#include "vxdicom/reader/VxDicomImage.h"

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
// when the file cannot be unpacked or opened for reading.
KcString openableCopy(const char *name, VxGunzip &unpacked, KcString &text)
{
    KcString path(name);
    if (VxGunzip::needsUnpacking(name)) {
        KcString why;
        if (!unpacked.unpack(name, &why))
            throw failure(text, "cannot open: ", name, why);
        path = unpacked.path();
    }
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f)
        throw failure(text, "cannot open: ", name, std::strerror(errno));
    std::fclose(f);
    return path;
}

} // namespace

VxDicomFile::VxDicomFile(const char *name, int idx, int delayed) : index(idx)
{
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
    static KcString text;
    VxGunzip unpacked; // removes its temporary file on every way out
    const KcString path = openableCopy(name, unpacked, text);

    std::string why;
    data = dicom::dicomReadFile(path.c_str(), delayed, &why);
    if (!data)
        throw failure(text, "cannot extract DICOM information from: ", name, why);

    if (data->isDicomDir)
        return 1;
    return extractImageData();
}

int VxDicomFile::extractImageData()
{
    float frameSpacing = 1;
    if (const char *s = dicom::dicomGetById(data, 0x0018, 0x0088))
        frameSpacing = static_cast<float>(std::atof(s));

    for (int k = 0; k < data->frames; ++k) {
        unsigned char *pixels =
            data->pixelData ? data->pixelData + static_cast<size_t>(k) * data->frameSize : nullptr;
        auto image = std::make_unique<VxDicomImage>(this, pixels);
        image->setParameters();
        image->minValue = 1;
        image->maxValue = 0;
        if (data->frames > 1)
            image->sliceLocation = k * frameSpacing;
        if (pixels) {
            int lo, hi;
            image->dataRange(&lo, &hi);
        }
        images.append(image.release());
    }
    return images.size() == data->frames ? 1 : 0;
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
    static KcString text;
    const char *name = loadName.c_str();
    if (access(name, R_OK) != 0)
        throw failure(text, "cannot open: ", name, std::strerror(errno));

    VxGunzip unpacked;
    const KcString path = openableCopy(name, unpacked, text);

    if (data->frames > 1)
        throw failure(text, "Error: Delayed read for multi frame file: ", name);

    std::string why;
    if (!dicom::dicomReadImageData(data, path.c_str(), 0, buffer,
                                   static_cast<size_t>(image.dataSize), &why)) {
        text = "Error: unable to load image data.";
        if (!why.empty())
            text += " (" + why + ")";
        throw text.c_str();
    }
}
