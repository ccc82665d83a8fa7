#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcFilename.h"
#include "platform/core/KcHandable.h"
#include "platform/dicom/dicom.h"

#include <cstdint>
#include <memory>

class VxDicomImage;
class VxParamBundle;

/// One opened DICOM file: the parsed header, one image per frame, and the
/// means to read pixels later when the header was read lazily. Failures are
/// thrown as const char* texts that name the file.
class VxDicomFile : public KcHandable
{
public:
    /// Reads the file (delayed != 0: header only) and builds its images.
    VxDicomFile(const char *name, int index, int delayed);
    ~VxDicomFile() override;

    VxDicomFile(const VxDicomFile &) = delete;
    VxDicomFile &operator=(const VxDicomFile &) = delete;

    /// Parses the file; ".gz" and ".Z" names are unpacked to a temporary file
    /// first. Returns 1 when the file gave its images (a DICOMDIR gives none).
    int readData(const char *name, int delayed);
    /// One image per frame; returns 0 when an image could not be made.
    int extractImageData();
    /// Every data element of the file as a parameter, in a new bundle.
    std::unique_ptr<VxParamBundle> dicomDataElements() const;
    /// Decodes the image's frame (or cuts its mosaic tile) into buffer
    /// (dataSize bytes).
    void loadPixelData(const VxDicomImage &image, void *buffer) const;
    /// For a Siemens mosaic frame: appends one image per tile and returns
    /// true; false (nothing appended) for any other frame.
    bool appendMosaicTiles(const VxDicomImage &frame);

    /// Whether the file is a DICOMDIR.
    bool isDicomDir() const { return data && data->isDicomDir; }
    /// Whether this layer can decode the file's transfer syntax.
    bool canDecode() const { return data && data->compression != dicom::COMPRESSION_UNSUPPORTED; }
    /// The last path component of the name, for display.
    KcString displayName() const { return fileName.lastComponent(); }

    KcDArray<VxDicomImage *> images;
    dicom::dicomStruct *data = nullptr;
    KcFilename fileName;
    KcFilename loadName;
    int ok = 0;
    int index = 0;
    /// Tells files apart for the tile cache (addresses are reused).
    uint64_t serial = 0;

private:
    void cutTile(const VxDicomImage &image, const unsigned char *frameBytes, void *buffer) const;
};
