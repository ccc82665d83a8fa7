#pragma once

// Internals of the dicom:: layer shared between its source files. Included
// only by platform/dicom/*.cpp; no DCMTK type appears here either, so that
// the codec files stay independent of each other.

#include "platform/dicom/dicom.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace dicom {

/// Lower-case words of a DCMTK keyword ("SOPInstanceUID" -> "sop instance uid").
std::string keywordToDictionaryName(const char *keyword);

/// The module's VR code of a DCMTK DcmEVR value (pseudo-VRs resolved as
/// dicomDictionaryType documents).
valRep valRepOfDcmEVR(int evr);

/// True for the explicit VRs with two reserved bytes and a 32-bit length.
bool hasLongExplicitLength(const char vr[2]);

/// Where the bytes of a parsed data set come from: a file (read with pread)
/// or a caller's buffer.
class ByteSource
{
public:
    static std::unique_ptr<ByteSource> openFile(const std::string &path, std::string *why);
    static std::unique_ptr<ByteSource> memory(const unsigned char *bytes, size_t size);
    ~ByteSource();
    ByteSource(const ByteSource &) = delete;
    ByteSource &operator=(const ByteSource &) = delete;

    uint64_t size() const { return length; }
    bool isFile() const { return fd >= 0; }
    const std::string &path() const { return fileName; }
    const unsigned char *bytes() const { return buffer; }
    /// Reads exactly n bytes at offset; false when they are not all there.
    bool read(uint64_t offset, void *dst, size_t n) const;

private:
    ByteSource() = default;
    int fd = -1;
    std::string fileName;
    const unsigned char *buffer = nullptr;
    uint64_t length = 0;
};

/// One item of encapsulated pixel data: where its value starts and how long it is.
struct Fragment
{
    uint64_t offset = 0;
    uint32_t length = 0;
};

/// The sample layout a decoder must produce.
struct FrameFormat
{
    int rows = 0;
    int columns = 0;
    int samplesPerPixel = 1;
    int bytesPerSample = 1;
    int bitsAllocated = 0;
    int bitsStored = 0;
    int pixelRepresentation = 0;
};

/// How the pixel data are stored in the file.
struct PixelLayout
{
    bool present = false;
    bool encapsulated = false;
    bool deflated = false;    ///< the whole data set is deflated: pixels only through DCMTK
    uint64_t valueOffset = 0; ///< first byte of the Pixel Data value
    uint64_t valueLength = 0; ///< bytes of the value (encapsulated: up to the delimiter's end)
    bool wordValue = false;   ///< VR OW (matters for 8- and 1-bit data in big endian)
    std::vector<uint32_t> offsetTable; ///< basic offset table
    std::vector<Fragment> fragments;   ///< items after the offset table
    std::string storedPhotometric;
    bool ybr422 = false;    ///< native YBR_FULL_422, widened to YBR_FULL when read
    uint64_t frameBits = 0; ///< native: bits one frame occupies in the file
    /// RLE colour whose Planar Configuration says 0: DCMTK decodes it by
    /// pixel, and the layer hands its frames over by plane like all RLE colour.
    bool rleByPixel = false;
    FrameFormat format;
};

/// What the layer keeps about one element besides dicomDataElement.
struct ElementInfo
{
    int evr = 0;            ///< DCMTK's VR of the element (DcmEVR)
    bool bigEndian = false; ///< byte order of the value bytes
    bool implicitVR = false;
};

/// State of the DCMTK decoder for compressed frames, kept between frames so
/// that frames read in ascending order cost one parse of the file.
struct DecoderState;

} // namespace dicom

struct dicom::dicomStructImpl
{
    std::vector<dicomDataElement> elements;
    std::vector<ElementInfo> info;
    std::vector<std::unique_ptr<unsigned char[]>> values;
    std::unique_ptr<unsigned char[], void (*)(void *)> pixels{nullptr, free};
    PixelLayout layout;

    /// Functional groups of an enhanced multi-frame file: the leaf values of
    /// the Shared (5200,9229) and of each item of the Per-frame (5200,9230)
    /// Functional Groups Sequence, as text, by tag.
    std::unordered_map<uint32_t, std::string> sharedGroups;
    std::vector<std::unordered_map<uint32_t, std::string>> frameGroups;

    mutable std::mutex textMutex;
    mutable std::unordered_map<uint32_t, std::string> texts;

    mutable std::mutex decodeMutex;
    mutable std::shared_ptr<DecoderState> decoder;
    mutable std::vector<int> frameStarts; ///< first fragment of every frame, once known
    mutable bool frameStartsKnown = false;
};

namespace dicom {

bool isJ2kCodestreamStart(const unsigned char *p, size_t n);
bool isJp2Start(const unsigned char *p, size_t n);

/// Decodes one JPEG 2000 frame (codestream or JP2) into dst, interleaved,
/// in host byte order.
bool decodeJ2kFrame(const unsigned char *data, size_t size, const FrameFormat &format,
                    unsigned char *dst, std::string *why);

/// Decodes frame `frame` of d from source into dst (at least d->frameSize
/// bytes; dstSize is its true size). Used by dicomReadImageData and by
/// non-delayed reads.
bool decodeFrame(const dicomStruct *d, const ByteSource &source, int frame, unsigned char *dst,
                 size_t dstSize, std::string *why);

/// Releases the decoder state (DCMTK data sets kept between frames).
void releaseDecoder(const dicomStruct *d);

} // namespace dicom
