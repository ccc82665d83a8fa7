#include "vxdicom/reader/DicomPGMConverter.h"

#include "platform/dicom/dicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

// The first value of a numeric element of the image's file; false when absent
// or not a number.
bool headerNumber(const VxDicomImage *image, uint16_t group, uint16_t element, float &value)
{
    if (!image->file || !image->file->data)
        return false;
    const char *text = dicom::dicomGetById(image->file->data, group, element);
    if (!text || !*text)
        return false;
    char *end = nullptr;
    const double v = std::strtod(text, &end);
    if (end == text || !std::isfinite(v))
        return false;
    value = static_cast<float>(v);
    return true;
}

} // namespace

DicomPGMConverter::DicomPGMConverter(VxDicomImage *img) : image(img)
{
    if (image && image->width > 0 && image->height > 0) {
        width = image->width;
        height = image->height;
    }
    numPixels = width * height;
    headerLength = writeHeader(255);
    buffer.resize(headerLength + numPixels);
}

int DicomPGMConverter::writeHeader(int maxGrey)
{
    header = QString::asprintf(headerFormat, width, height, maxGrey).toLatin1();
    return static_cast<int>(header.size());
}

const unsigned char *DicomPGMConverter::convert()
{
    if (!image || !image->hasPixels() || numPixels == 0)
        return nullptr;
    if (image->bytesPerSample == 1) {
        int lo = 0, hi = 255;
        image->dataRange(&lo, &hi);
        writeHeader(hi >= 1 && hi <= 255 ? hi : 255);
        buffer.resize(static_cast<int>(header.size()) + numPixels);
        std::memcpy(buffer.data(), header.constData(), static_cast<size_t>(header.size()));
        std::memcpy(buffer.data() + header.size(), image->pixels, static_cast<size_t>(numPixels));
    } else if (image->samplesPerPixel == 1 &&
               (image->bytesPerSample == 2 || image->bytesPerSample == 4)) {
        convertTo8Bit();
    } else {
        return nullptr;
    }
    return buffer.data();
}

void DicomPGMConverter::convertTo8Bit()
{
    int lo = 0, hi = 0;
    image->dataRange(&lo, &hi);

    float slope = 1, intercept = 0;
    if (!headerNumber(image, 0x0028, 0x1053, slope) || slope == 0)
        slope = 1;
    if (!headerNumber(image, 0x0028, 0x1052, intercept))
        intercept = 0;
    float windowWidth = 0, centre = 0;
    if (!headerNumber(image, 0x0028, 0x1051, windowWidth))
        windowWidth = static_cast<float>(hi - lo);
    if (!headerNumber(image, 0x0028, 0x1050, centre))
        centre = static_cast<float>(lo) + windowWidth * 0.5f;
    // A window narrower than one value (the standard asks for at least 1, and
    // an image of one value has a stored range of 0) would divide by zero.
    if (windowWidth < 1)
        windowWidth = 1;

    const float lower = centre - windowWidth / 2;
    const float factor = 255 / windowWidth;
    const int lowClamp = static_cast<int>(lower);
    const int highClamp = static_cast<int>(lower + windowWidth);

    writeHeader(255);
    buffer.resize(static_cast<int>(header.size()) + numPixels);
    std::memcpy(buffer.data(), header.constData(), static_cast<size_t>(header.size()));
    unsigned char *out = buffer.data() + header.size();
    // The stored samples as their type says (32-bit ones are RT Dose grids).
    const KcPrimType type = image->primType();
    const auto stored = [&](int i) -> double {
        if (type == KcPrimType::Int32)
            return static_cast<const int *>(image->pixels)[i];
        if (type == KcPrimType::UInt16)
            return static_cast<const unsigned short *>(image->pixels)[i];
        return static_cast<const short *>(image->pixels)[i];
    };
    for (int i = 0; i < numPixels; ++i) {
        const float rescaled = static_cast<float>(stored(i) * slope + intercept);
        // Clamped before the conversion: a slope of 1e30 must not overflow int.
        const double rounded =
            std::clamp(std::floor(static_cast<double>(rescaled) + 0.5), -2e9, 2e9);
        int v = static_cast<int>(rounded);
        if (static_cast<float>(v) < lower)
            v = lowClamp;
        if (static_cast<float>(v) > lower + windowWidth)
            v = highClamp;
        const int grey = static_cast<int>(static_cast<float>(v - lower) * factor);
        out[i] = static_cast<unsigned char>(std::clamp(grey, 0, 255));
    }
}
