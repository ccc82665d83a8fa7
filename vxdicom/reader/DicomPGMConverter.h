#pragma once

#include "platform/core/KcDArray.h"

#include <QByteArray>
#include <QString>

class VxDicomImage;

/// An image turned into the bytes of a picture file in memory.
class DicomImageConverter
{
public:
    virtual ~DicomImageConverter() = default;
    /// The picture's bytes (header and samples).
    virtual const unsigned char *data() const = 0;
    virtual int numBytes() const = 0;
};

/// One image as a binary 8-bit PGM ("P5"), for the browser's preview. Two-byte
/// samples are rescaled with the file's slope and intercept and mapped through
/// its display window (the stored range when the file gives none); one-byte
/// samples are copied unchanged. The image's samples must be in memory.
class DicomPGMConverter : public DicomImageConverter
{
public:
    /// Size and header length from the image (0 x 0 for a null image).
    explicit DicomPGMConverter(VxDicomImage *image);

    /// Fills the buffer and returns it; null when the image or its samples
    /// are missing.
    const unsigned char *convert();
    const unsigned char *data() const override { return buffer.data(); }
    int numBytes() const override { return buffer.size(); }

private:
    /// Two-byte samples through rescale and window to 0..255.
    void convertTo8Bit();
    /// Writes the header with that maximum grey value; returns its length.
    int writeHeader(int maxGrey);

    VxDicomImage *image;
    int width = 0;
    int height = 0;
    int numPixels = 0;
    const char *headerFormat = "P5\n%04d %04d\n%03d\n";
    QByteArray header;
    int headerLength = 0;
    KcDArray<unsigned char> buffer;
};
