#include "vxdicom/reader/VxDicomImage.h"

#include "platform/core/VxMessage.h"
#include "vxdicom/params/DicomElementConversion.h"
#include "vxdicom/reader/VxDicomFile.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>

namespace {

void normalise(float v[3])
{
    const float len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (len > 0) {
        v[0] /= len;
        v[1] /= len;
        v[2] /= len;
    }
}

bool nearAnyAxis(const float v[3], float tolerance)
{
    for (int axis = 0; axis < 3; ++axis) {
        for (float sign : {1.0f, -1.0f}) {
            float d2 = 0;
            for (int k = 0; k < 3; ++k) {
                const float e = (k == axis ? sign : 0.0f) - v[k];
                d2 += e * e;
            }
            if (std::sqrt(d2) < tolerance)
                return true;
        }
    }
    return false;
}

// Why six direction cosines cannot orient an image, or null when they can:
// both directions finite, of unit length and perpendicular (PS3.3 C.7.6.2.1.1),
// to a thousandth.
const char *orientationFault(const float v[6])
{
    double r = 0, c = 0, dot = 0;
    for (int k = 0; k < 6; ++k)
        if (!std::isfinite(v[k]))
            return "is not finite";
    for (int k = 0; k < 3; ++k) {
        r += double(v[k]) * v[k];
        c += double(v[k + 3]) * v[k + 3];
        dot += double(v[k]) * v[k + 3];
    }
    if (r < 1e-12 || c < 1e-12)
        return "has a direction of length zero";
    if (std::fabs(dot) > 1e-3 * std::sqrt(r * c))
        return "has directions that are not perpendicular";
    return nullptr;
}

// What the module cannot hold of a sample format, named precisely; null when
// it can: 8- and 16-bit samples of one or more components, 32-bit integer
// samples of one component, and 32-bit RGB (reduced to 16 bits per component
// when the field is made).
const char *unsupportedFormat(const dicom::dicomStruct &d)
{
    static thread_local std::string text;
    if (d.bytesPerSample == 1 || d.bytesPerSample == 2)
        return nullptr;
    if (d.bytesPerSample == 4 && (d.samplesPerPixel == 1 || d.photometric == "RGB"))
        return nullptr;
    if (d.bytesPerSample == 4)
        text = "32-bit " + (d.photometric.empty() ? std::string("colour") : d.photometric) +
               " with " + std::to_string(d.samplesPerPixel) +
               " components is not supported: 32-bit colour is read as RGB only.";
    else
        text = std::to_string(d.bitsAllocated) +
               " bits allocated per sample are not supported: 8, 16 and 32 are.";
    return text.c_str();
}

float orientationTolerance()
{
    const char *env = std::getenv("DICOM_EPS_ORIENTATION");
    return env ? static_cast<float>(std::atof(env)) : 0.03f;
}

} // namespace

VxDicomImage::VxDicomImage(const VxDicomFile *f, void *px, int frameIndex)
    : file(f), frame(frameIndex), pixels(px)
{
    initialize();
}

VxDicomImage::VxDicomImage(const VxDicomImage &m, int tileIndex, int perRow, int tileWidth,
                           int tileHeight, const float tilePosition[3])
    : file(m.file), frame(m.frame), tile(tileIndex), tilesPerRow(perRow)
{
    parameters = m.parameters;
    width = tileWidth;
    height = tileHeight;
    bitsStored = m.bitsStored;
    samplesPerPixel = m.samplesPerPixel;
    planarConfig = m.planarConfig;
    imageNumber = m.imageNumber;
    bytesPerSample = m.bytesPerSample;
    dataSize = static_cast<int>(static_cast<float>(tileWidth * tileHeight * samplesPerPixel) *
                                bytesPerSample);
    std::memcpy(pixelSpacing, m.pixelSpacing, sizeof pixelSpacing);
    sliceThickness = m.sliceThickness;
    oblique = m.oblique;
    hasPosition = 1;
    std::memcpy(position, tilePosition, sizeof position);
    std::memcpy(rowDirection, m.rowDirection, sizeof rowDirection);
    std::memcpy(columnDirection, m.columnDirection, sizeof columnDirection);
    std::memcpy(normal, m.normal, sizeof normal);
    sliceLocation = normal[0] * position[0] + normal[1] * position[1] + normal[2] * position[2];
    rescaleSlope = m.rescaleSlope;
    rescaleIntercept = m.rescaleIntercept;
    isSigned = m.isSigned;
    highBit = m.highBit;
}

void VxDicomImage::complain(const char *fmt, ...) const
{
    char what[512];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(what, sizeof what, fmt, ap);
    va_end(ap);
    if (file->data->frames > 1)
        VxMessage::getTheMsg()->warning("%s, frame %d: %s\n", file->fileName.c_str(), frame + 1,
                                        what);
    else
        VxMessage::getTheMsg()->warning("%s: %s\n", file->fileName.c_str(), what);
}

const char *VxDicomImage::headerText(unsigned short group, unsigned short element) const
{
    if (file->data->frames > 1)
        if (const char *v = dicom::dicomGetFrameById(file->data, frame, group, element))
            return v;
    return dicom::dicomGetById(file->data, group, element);
}

// Thrown texts: "image width unknown.", "image height unknown.", what is
// unsupported about the sample format (unsupportedFormat), "unsupported
// number of samples.", the size mismatch below (data size against width x
// height x sample bytes), "no image data found.", "unsupported data
// compression.".
void VxDicomImage::initialize()
{
    const dicom::dicomStruct *d = file->data;

    width = d->columns;
    if (width == 0)
        throw "image width unknown.";
    height = d->rows;
    if (height == 0)
        throw "image height unknown.";

    if (const char *why = unsupportedFormat(*d))
        throw why;
    bytesPerSample = static_cast<float>(d->bytesPerSample);
    if (d->samplesPerPixel != 1 && d->samplesPerPixel != 3 && d->samplesPerPixel != 4)
        throw "unsupported number of samples.";
    samplesPerPixel = d->samplesPerPixel;

    dataSize = d->frameSize;
    const double expected = static_cast<double>(width) * height * bytesPerSample * samplesPerPixel;
    if (dataSize < 1 || static_cast<double>(dataSize) != expected)
        throw "image size doesn't match its specification.\n";

    if (!pixels)
        pixels = d->pixelData;
    if (!pixels && !d->pixelsInFile)
        throw "no image data found.";

    if (d->compression == dicom::COMPRESSION_UNSUPPORTED)
        throw "unsupported data compression.";

    if (const char *s = text(0x0028, 0x0101))
        bitsStored = std::atoi(s);
    if (const char *s = text(0x0028, 0x0103))
        isSigned = std::atoi(s) != 0;
    if (const char *s = text(0x0020, 0x0013))
        imageNumber = std::atoi(s);
    if (const char *s = text(0x0028, 0x0002)) {
        // The element overrides the parser's count only where the frame size
        // still agrees, so that no later loop runs past the samples.
        const int spp = std::atoi(s);
        if ((spp == 1 || spp == 3 || spp == 4) &&
            static_cast<double>(width) * height * bytesPerSample * spp == dataSize)
            samplesPerPixel = spp;
    }
    if (const char *s = text(0x0028, 0x0006))
        planarConfig = std::atoi(s);

    if (d->compression == dicom::COMPRESSION_RLE && planarConfig == 0) {
        VxMessage::getTheMsg()->printf(
            "WARNING: forcing planarConfig=1 for RLE compressed images\n");
        planarConfig = 1;
    }

    if (const char *s = text(0x0028, 0x0030)) {
        // Pixel Spacing is "row spacing \\ column spacing" (PS3.3 10.7.1.3):
        // the first value is the distance between rows, a step down a
        // column (y); the second the step along a row (x).
        const int n = std::sscanf(s, "%f%*c%f", &pixelSpacing[1], &pixelSpacing[0]);
        float &dx = pixelSpacing[0], &dy = pixelSpacing[1];
        if (n == 1) // one value, against the standard's two: a square pixel
            dx = dy;
        if (n == EOF) { // an empty value: no spacing, and nothing wrong
            dx = dy = 0;
        } else if (n < 1 || !std::isfinite(dx) || !std::isfinite(dy) || dx < 0 || dy < 0) {
            complain("Pixel Spacing \"%s\" is not two distances; read as none", s);
            dx = dy = 0;
        } else if (dx == 0 && dy == 0) {
            complain("Pixel Spacing \"%s\" has no distance; read as none", s);
        } else if (dx == 0 || dy == 0) {
            // One zero takes the other distance: square pixels assumed.
            dx = dy = std::max(dx, dy);
            complain("Pixel Spacing \"%s\" has a zero distance; the pixels are taken as "
                     "squares of %g mm",
                     s, static_cast<double>(dx));
        }
    }

    if (const char *s = text(0x0018, 0x0050))
        std::sscanf(s, "%f", &sliceThickness);

    hasPosition = 0;
    for (unsigned short element : {0x0032, 0x0030}) {
        const char *s = text(0x0020, element);
        if (s && std::sscanf(s, "%f%*c%f%*c%f", &position[0], &position[1], &position[2]) == 3) {
            if (!std::isfinite(position[0]) || !std::isfinite(position[1]) ||
                !std::isfinite(position[2])) {
                complain("Image Position \"%s\" is not finite; the image is placed by its slice "
                         "location",
                         s);
                position[0] = position[1] = position[2] = 0;
                break;
            }
            hasPosition = 1;
            break;
        }
    }

    bool haveOrientation = false;
    for (unsigned short element : {0x0037, 0x0035}) {
        const char *s = text(0x0020, element);
        float v[6];
        if (s && std::sscanf(s, "%f%*c%f%*c%f%*c%f%*c%f%*c%f", &v[0], &v[1], &v[2], &v[3], &v[4],
                             &v[5]) == 6) {
            if (const char *why = orientationFault(v)) {
                complain("Image Orientation \"%s\" %s; the image is placed as if it had none", s,
                         why);
                break;
            }
            std::memcpy(rowDirection, v, sizeof rowDirection);
            std::memcpy(columnDirection, v + 3, sizeof columnDirection);
            haveOrientation = true;
            break;
        }
    }
    bool locationFromPosition = false;
    if (haveOrientation) {
        normalise(rowDirection);
        normalise(columnDirection);
        const float tolerance = orientationTolerance();
        const float *r = rowDirection;
        const float *c = columnDirection;
        normal[0] = r[1] * c[2] - c[1] * r[2];
        normal[1] = c[0] * r[2] - r[0] * c[2];
        normal[2] = r[0] * c[1] - r[1] * c[0];
        normalise(normal);
        for (const float *v : {rowDirection, columnDirection, normal})
            if (!nearAnyAxis(v, tolerance))
                oblique = 1;
        if (hasPosition) {
            sliceLocation =
                normal[0] * position[0] + normal[1] * position[1] + normal[2] * position[2];
            locationFromPosition = true;
        }
    }
    if (!locationFromPosition) {
        float v = 0;
        const char *s;
        if ((s = text(0x0020, 0x1041)) && std::sscanf(s, "%f", &v) == 1)
            sliceLocation = v;
        else if ((s = text(0x0020, 0x0050)) && std::sscanf(s, "%f", &v) == 1)
            sliceLocation = v;
        else if ((s = text(0x0020, 0x0032)) && std::sscanf(s, "%*f%*c%*f%*c%f", &v) == 1)
            sliceLocation = v;
        else if ((s = text(0x0020, 0x0030)) && std::sscanf(s, "%*f%*c%*f%*c%f", &v) == 1)
            sliceLocation = v;
        else
            sliceLocation = 0;
    }

    if (const char *s = text(0x0028, 0x0102)) {
        highBit = std::atoi(s);
        adjustHighBit(highBit);
    }

    if (const char *s = text(0x0028, 0x1052))
        rescaleIntercept = static_cast<float>(std::atof(s));
    if (const char *s = text(0x0028, 0x1053))
        rescaleSlope = static_cast<float>(std::atof(s));
    else if (const char *g = text(0x3004, 0x000E))
        rescaleSlope = static_cast<float>(std::atof(g)); // RT Dose: Dose Grid Scaling

    // Unsigned 12-bit CT without a useful rescale stores HU + 1000.
    const char *modality = text(0x0008, 0x0060);
    if (modality && strncasecmp(modality, "CT", 2) == 0 && !isSigned && bitsStored == 12 &&
        rescaleIntercept == 0 && rescaleSlope == 1)
        rescaleIntercept = -1000;

    int lo, hi;
    dataRange(&lo, &hi);
}

KcPrimType VxDicomImage::primType() const
{
    if (bytesPerSample > 2)
        // 32-bit colour components are reduced to what a colour field holds.
        return samplesPerPixel > 1 ? KcPrimType::UInt16 : KcPrimType::Int32;
    if (bytesPerSample == 2)
        return isSigned ? KcPrimType::Int16 : KcPrimType::UInt16;
    return KcPrimType::UInt8;
}

void *VxDicomImage::pixelData()
{
    if (!pixels) {
        ownPixels.reset(new unsigned char[static_cast<size_t>(dataSize) + 1]);
        loadToMemory(ownPixels.get());
        pixels = ownPixels.get();
    }
    return pixels;
}

void VxDicomImage::loadToMemory(void *buffer) const
{
    file->loadPixelData(*this, buffer);
    // A tile cut out of a frame already in memory: that frame's bits were
    // corrected when it was read.
    if (!(tile >= 0 && file->data->pixelData))
        correctStoredBits(buffer);
}

// Samples read after the header have not been through adjustHighBit. Bits
// above the stored ones are not part of the value (scanners leave overlay or
// padding bits there), so they are dropped here as well; signed values are
// sign-extended from their top stored bit, since clearing it would turn
// every negative value positive.
void VxDicomImage::correctStoredBits(void *samples) const
{
    if (!samples || bytesPerSample != 2 || bitsStored < 9 || bitsStored >= 16)
        return;
    const long n = numSamples();
    const int shift = highBit < 0 ? 0 : highBit + 1 - bitsStored;
    if (shift < 0 || shift + bitsStored > 16)
        return;
    unsigned short *s = static_cast<unsigned short *>(samples);
    const unsigned mask = (1u << bitsStored) - 1u;
    const unsigned signBit = 1u << (bitsStored - 1);
    for (long i = 0; i < n; ++i) {
        unsigned v = (static_cast<unsigned>(s[i]) >> shift) & mask;
        if (isSigned && (v & signBit))
            v |= ~mask & 0xFFFFu;
        s[i] = static_cast<unsigned short>(v);
    }
}

int VxDicomImage::dataRange(int *min, int *max)
{
    if (!pixels || !min || !max || numSamples() < 1)
        return 0;
    if (minValue > maxValue) {
        const long n = numSamples();
        switch (primType()) {
        case KcPrimType::UInt8:
            dicomValueRangeU8(static_cast<const unsigned char *>(pixels), n, minValue, maxValue);
            break;
        case KcPrimType::Int16:
            dicomValueRangeS16(static_cast<const short *>(pixels), n, minValue, maxValue);
            break;
        case KcPrimType::UInt16:
            dicomValueRangeU16(static_cast<const unsigned short *>(pixels), n, minValue, maxValue);
            break;
        default: {
            long long lo, hi;
            dicomValueRangeS32(static_cast<const int *>(pixels), n, lo, hi);
            minValue = static_cast<int>(lo);
            maxValue = static_cast<int>(hi);
            break;
        }
        }
    }
    *min = minValue;
    *max = maxValue;
    return 1;
}

int VxDicomImage::compareOrientation(const VxDicomImage &other, float eps) const
{
    const float *mine[3] = {rowDirection, columnDirection, normal};
    const float *theirs[3] = {other.rowDirection, other.columnDirection, other.normal};
    for (int v = 0; v < 3; ++v)
        for (int k = 0; k < 3; ++k)
            if (std::fabs(mine[v][k] - theirs[v][k]) > eps)
                return mine[v][k] > theirs[v][k] ? 1 : -1;
    return 0;
}

void VxDicomImage::adjustHighBit(int hb)
{
    if (pixels)
        adjustHighBit(hb, pixels);
}

void VxDicomImage::adjustHighBit(int hb, void *samples) const
{
    if (!samples || bitsStored < 9 || bytesPerSample != 2)
        return;
    const long n = numSamples();
    if (n < 1 || bitsStored > 16)
        return;
    unsigned short *s = static_cast<unsigned short *>(samples);
    const int shift = hb + 1 - bitsStored;
    if (shift >= 1 && shift < 16)
        for (long i = 0; i < n; ++i)
            s[i] = static_cast<unsigned short>(s[i] >> shift);
    // The mask clears sign bits above bitsStored in signed data too.
    const unsigned mask = (1u << bitsStored) - 1u;
    for (long i = 0; i < n; ++i)
        s[i] = static_cast<unsigned short>(s[i] & mask);
}

void VxDicomImage::adjustDataRange(float offset, float scale)
{
    if (!pixels || bitsStored < 9 || bytesPerSample != 2)
        return;
    const long n = numSamples();
    if (n < 1)
        return;
    short *s = static_cast<short *>(pixels);
    for (long i = 0; i < n; ++i) {
        // Truncation toward zero, not floor: kept as stored values expect it.
        double v = static_cast<double>(s[i]) * scale + offset + 0.5;
        if (!(v > -1e9))
            v = -1e9;
        else if (v > 1e9)
            v = 1e9;
        s[i] = static_cast<short>(static_cast<long>(v));
    }
}

void VxDicomImage::setParameters()
{
    static const unsigned short tags[][2] = {
        {0x0008, 0x0018}, {0x0020, 0x0013}, {0x0020, 0x0032}, {0x0020, 0x0030},
        {0x0020, 0x0037}, {0x0020, 0x0035}, {0x0020, 0x0050}, {0x0018, 0x0050},
        {0x0020, 0x1041}, {0x0029, 0x1000}, {0x0029, 0x1001},
    };
    const dicom::dicomStruct *d = file->data;
    for (const auto &tag : tags) {
        for (int i = 0; i < d->numElements; ++i) {
            const dicom::dicomDataElement &e = d->elements[i];
            if (e.group != tag[0] || e.element != tag[1])
                continue;
            const char *value = dicom::dicomGetById(file->data, e.group, e.element);
            if (VxParamBase *p = convertDicomByIdToVxParamBase(&e, value, 0))
                parameters.insert(p, true);
            break;
        }
    }
}
