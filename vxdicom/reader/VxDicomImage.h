#pragma once

#include "platform/core/KcPrimType.h"
#include "platform/data/VxParamBundle.h"
#include "vxdicom/reader/DicomPixelKernels.h"

class VxDicomFile;

/// One 2D image (one frame) of a DICOM file with everything the stack and
/// field builders need: size, sample layout, spacing, position, directions,
/// slice location, rescale and value range. Lengths are in millimetres.
/// Construction reads the header and throws a const char* text on failure.
class VxDicomImage
{
public:
    /// pixels: this frame's samples in memory, or null when the file is read
    /// lazily (then the file's own pixel pointer is tried, and failing that the
    /// file must still be able to read them).
    VxDicomImage(const VxDicomFile *file, void *pixels, int frame = 0);
    /// Tile `tile` of a mosaic frame (Siemens): the frame's image record with
    /// the tile's size and position (the corner of its first voxel, mm). Its
    /// samples are cut out of the frame when they are loaded.
    VxDicomImage(const VxDicomImage &mosaic, int tile, int tilesPerRow, int tileWidth,
                 int tileHeight, const float tilePosition[3]);
    virtual ~VxDicomImage() = default;

    VxDicomImage(const VxDicomImage &) = delete;
    VxDicomImage &operator=(const VxDicomImage &) = delete;

    /// Reads the header; throws the texts documented in the .cpp.
    void initialize();

    /// UInt8 for one byte per sample, Int16/UInt16 for two by isSigned.
    KcPrimType primType() const;

    /// The samples, loaded through the file into the image's own buffer
    /// first when they are not in memory. Throws the file's texts on failure.
    void *pixelData();
    /// True when samples are in memory now.
    bool hasPixels() const { return pixels != nullptr; }
    /// Decodes this image's samples into buffer (dataSize bytes) through the file.
    void loadToMemory(void *buffer) const;

    /// The value range of the samples in memory, computed once. Returns 0 when
    /// there are no pixels, a pointer is null or the image has no samples.
    int dataRange(int *min, int *max);

    /// -1, 0 or 1 comparing row direction, column direction and normal, in that
    /// order, component by component with tolerance eps.
    int compareOrientation(const VxDicomImage &other, float eps) const;

    /// Moves the stored bits of samples read after the header down to bit 0,
    /// drops the bits above them and sign-extends signed values.
    void correctStoredBits(void *samples) const;
    /// Moves the stored bits down to bit 0 and masks them to bitsStored bits.
    void adjustHighBit(int highBit);
    /// Same correction on a caller's buffer of this image's layout.
    void adjustHighBit(int highBit, void *samples) const;
    /// s = trunc(s * scale + offset + 0.5) on signed 16-bit samples, in place.
    void adjustDataRange(float offset, float scale);

    /// The value of an element for this image: for a frame of an enhanced
    /// multi-frame file its functional groups first, else the top level.
    const char *headerText(unsigned short group, unsigned short element) const;

    /// Fills `parameters` with the per-image attributes of the file.
    void setParameters();

    /// Number of samples of the image (width x height x samplesPerPixel).
    int numSamples() const { return width * height * samplesPerPixel; }
    /// Whether any component of the row direction is known (not 0).
    bool hasRowDirection() const
    {
        return rowDirection[0] != 0 || rowDirection[1] != 0 || rowDirection[2] != 0;
    }

    const VxDicomFile *file;
    /// The frame of the file this image is (0-based).
    int frame = 0;
    /// The tile of a mosaic frame (0-based, row by row), -1 for a whole frame.
    int tile = -1;
    int tilesPerRow = 0;
    void *pixels = nullptr;
    VxParamBundle parameters;
    int width = 0;
    int height = 0;
    int bitsStored = 0;
    int dataSize = 0;
    int samplesPerPixel = 1;
    int planarConfig = 0;
    int imageNumber = 0;
    float bytesPerSample = 2;
    /// The step along a row (x) and down a column (y), mm: the second and the
    /// first value of Pixel Spacing (0028,0030).
    float pixelSpacing[2] = {0, 0};
    float sliceLocation = 0;
    float sliceThickness = 10;
    int oblique = 0;
    int hasPosition = 0;
    float position[3] = {0, 0, 0};
    float rowDirection[3] = {0, 0, 0};
    float columnDirection[3] = {0, 0, 0};
    float normal[3] = {0, 0, 0};
    float rescaleSlope = 1;
    float rescaleIntercept = 0;
    int minValue = 1;
    int maxValue = 0;
    bool isSigned = false;
    /// (0028,0102) High Bit as read (-1 when absent). Only samples in memory
    /// when the header is read are corrected with it.
    int highBit = -1;

private:
    /// A warning naming the file (and frame) and what is wrong.
    void complain(const char *fmt, ...) const __attribute__((format(printf, 2, 3)));
    const char *text(unsigned short group, unsigned short element) const
    {
        return headerText(group, element);
    }
    std::unique_ptr<unsigned char[]> ownPixels;
};
