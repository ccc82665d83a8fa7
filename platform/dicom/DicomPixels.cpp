// Pixel data: native frames by one positioned read, RLE/JPEG/JPEG-LS and
// deflated data sets through DCMTK's decoders frame by frame, JPEG 2000
// through OpenJPEG from the fragments in the file.

#include "platform/dicom/DicomDcmtk.h"

#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfcache.h"
#include "dcmtk/dcmdata/dcistrmb.h"
#include "dcmtk/dcmdata/dcpixel.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <cstring>

namespace dicom {
namespace {

bool fail(std::string *why, const std::string &text)
{
    if (why)
        *why = text;
    return false;
}

void swapBytes(unsigned char *p, size_t n, int width)
{
    for (size_t i = 0; i + size_t(width) <= n; i += size_t(width))
        std::reverse(p + i, p + i + width);
}

// Native pixel data straight from the source.
bool readNativeFrame(const dicomStruct *d, const ByteSource &source, int frame, unsigned char *dst,
                     std::string *why)
{
    const PixelLayout &layout = d->impl->layout;
    const uint64_t bitOffset = layout.frameBits * uint64_t(frame);
    const uint64_t frameBytes = (layout.frameBits + 7) / 8;
    // Big endian OW values are 16-bit words with the most significant byte
    // first, whatever the sample size: pixel cells are packed into the words
    // from their least significant bit on (PS3.5 8.1.1), so a 32-bit sample
    // is its low word followed by its high word. OB values are bytes.
    const bool wordSwap = d->bigEndian && layout.wordValue;
    const bool sampleSwap = d->bigEndian && !layout.wordValue && d->bytesPerSample > 1;
    const uint64_t firstByte = bitOffset / 8;
    const bool direct = bitOffset % 8 == 0 && d->bitsAllocated != 1 && !layout.ybr422 &&
                        !(wordSwap && (firstByte % 2 != 0 || frameBytes % 2 != 0));

    if (direct) {
        if (!source.read(layout.valueOffset + firstByte, dst, size_t(frameBytes)))
            return fail(why,
                        "cannot read frame " + std::to_string(frame + 1) + " of the pixel data");
        if (wordSwap)
            swapBytes(dst, size_t(frameBytes), 2);
        else if (sampleSwap)
            swapBytes(dst, size_t(frameBytes), d->bytesPerSample);
        return true;
    }

    // Read a window of whole bytes (whole words when words are swapped).
    uint64_t first = firstByte;
    uint64_t last = (bitOffset + layout.frameBits + 7) / 8;
    if (wordSwap) {
        first &= ~uint64_t(1);
        last = std::min<uint64_t>(last + (last & 1), layout.valueLength);
    }
    std::vector<unsigned char> window(size_t(last - first));
    if (!source.read(layout.valueOffset + first, window.data(), window.size()))
        return fail(why, "cannot read frame " + std::to_string(frame + 1) + " of the pixel data");
    if (wordSwap)
        swapBytes(window.data(), window.size() & ~size_t(1), 2);
    else if (sampleSwap)
        swapBytes(window.data(), window.size(), d->bytesPerSample);

    const size_t count = size_t(d->rows) * size_t(d->columns) * size_t(d->samplesPerPixel);
    if (d->bitsAllocated == 1) {
        // PS3.5 8.1.1: the first pixel is the least significant bit of the first byte.
        uint64_t bit = bitOffset - first * 8;
        for (size_t i = 0; i < count; ++i, ++bit)
            dst[i] = (window[size_t(bit / 8)] >> (bit % 8)) & 1;
        return true;
    }
    const unsigned char *src = window.data() + (bitOffset / 8 - first);
    if (layout.ybr422) {
        // Y1 Y2 Cb Cr for every pair of pixels -> Y Cb Cr Y Cb Cr.
        const size_t b = size_t(d->bytesPerSample);
        const size_t pairs = size_t(d->rows) * size_t(d->columns) / 2;
        for (size_t i = 0; i < pairs; ++i) {
            const unsigned char *in = src + i * 4 * b;
            unsigned char *out = dst + i * 6 * b;
            std::memcpy(out, in, b);
            std::memcpy(out + b, in + 2 * b, 2 * b);
            std::memcpy(out + 3 * b, in + b, b);
            std::memcpy(out + 4 * b, in + 2 * b, 2 * b);
        }
        return true;
    }
    std::memcpy(dst, src, size_t(d->frameSize));
    return true;
}

// The first fragment of every frame (PS3.5 A.4): from the basic offset
// table, from one fragment per frame, or from the codestream starts.
bool computeFrameStarts(const dicomStruct *d, const ByteSource &source, std::vector<int> &starts,
                        std::string *why)
{
    const PixelLayout &layout = d->impl->layout;
    const size_t n = layout.fragments.size();
    const size_t frames = size_t(d->frames);
    starts.clear();
    if (frames == 1) {
        starts.push_back(0);
        return true;
    }
    if (layout.offsetTable.size() == frames && n > 0) {
        // Offsets count from the first byte of the first fragment's item header.
        const uint64_t base = layout.fragments[0].offset - 8;
        size_t f = 0;
        for (size_t k = 0; k < frames; ++k) {
            const uint64_t at = base + layout.offsetTable[k];
            while (f < n && layout.fragments[f].offset - 8 < at)
                ++f;
            if (f == n || layout.fragments[f].offset - 8 != at ||
                (k > 0 && int(f) <= starts.back()))
                break;
            starts.push_back(int(f));
        }
        if (starts.size() == frames && starts[0] == 0)
            return true;
        starts.clear();
    }
    if (n == frames) {
        for (size_t k = 0; k < frames; ++k)
            starts.push_back(int(k));
        return true;
    }
    if (d->compression == COMPRESSION_JPEG2000 || d->compression == COMPRESSION_JPEG ||
        d->compression == COMPRESSION_JPEGLS) {
        for (size_t f = 0; f < n; ++f) {
            unsigned char head[12] = {};
            const size_t len = std::min<size_t>(sizeof head, layout.fragments[f].length);
            if (!source.read(layout.fragments[f].offset, head, len))
                return fail(why, "cannot read fragment " + std::to_string(f + 1));
            const bool start =
                d->compression == COMPRESSION_JPEG2000
                    ? isJ2kCodestreamStart(head, len) || isJp2Start(head, len)
                    : len >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF;
            if (start)
                starts.push_back(int(f));
        }
        if (starts.size() == frames && starts[0] == 0)
            return true;
    }
    starts.clear();
    return fail(why, "cannot tell which of " + std::to_string(n) + " fragments hold which of " +
                         std::to_string(frames) + " frames");
}

bool frameStarts(const dicomStruct *d, const ByteSource &source, std::vector<int> *out,
                 std::string *why)
{
    // Caller holds decodeMutex.
    dicomStructImpl &impl = *d->impl;
    if (!impl.frameStartsKnown) {
        if (!computeFrameStarts(d, source, impl.frameStarts, why))
            return false;
        impl.frameStartsKnown = true;
    }
    if (out)
        *out = impl.frameStarts;
    return true;
}

bool readJ2kFrame(const dicomStruct *d, const ByteSource &source, int frame, unsigned char *dst,
                  std::string *why)
{
    const PixelLayout &layout = d->impl->layout;
    std::vector<int> starts;
    {
        std::lock_guard<std::mutex> lock(d->impl->decodeMutex);
        if (!frameStarts(d, source, &starts, why))
            return false;
    }
    const size_t first = size_t(starts[size_t(frame)]);
    const size_t last = size_t(frame) + 1 < starts.size() ? size_t(starts[size_t(frame) + 1])
                                                          : layout.fragments.size();
    size_t total = 0;
    for (size_t f = first; f < last; ++f)
        total += layout.fragments[f].length;
    std::vector<unsigned char> codestream(total);
    size_t at = 0;
    for (size_t f = first; f < last; ++f) {
        if (!source.read(layout.fragments[f].offset, codestream.data() + at,
                         layout.fragments[f].length))
            return fail(why, "cannot read fragment " + std::to_string(f + 1));
        at += layout.fragments[f].length;
    }
    return decodeJ2kFrame(codestream.data(), codestream.size(), layout.format, dst, why);
}

// Checks the RLE header of a frame (PS3.5 G.5) before DCMTK decodes it:
// DCMTK 3.6.7 trusts the segment offsets and reads wherever they point.
bool checkRleHeader(const dicomStruct *d, const ByteSource &source, int frame, std::string *why)
{
    const PixelLayout &layout = d->impl->layout;
    std::vector<int> starts;
    if (!frameStarts(d, source, &starts, why))
        return false;
    const size_t first = size_t(starts[size_t(frame)]);
    const size_t last = size_t(frame) + 1 < starts.size() ? size_t(starts[size_t(frame) + 1])
                                                          : layout.fragments.size();
    uint64_t frameBytes = 0;
    for (size_t f = first; f < last; ++f)
        frameBytes += layout.fragments[f].length;
    unsigned char header[64];
    if (layout.fragments[first].length < sizeof header ||
        !source.read(layout.fragments[first].offset, header, sizeof header))
        return fail(why, "RLE frame " + std::to_string(frame + 1) + " has no complete header");
    const uint32_t segments = dicomRead32bit(header, false);
    const uint32_t expected = uint32_t(d->samplesPerPixel * d->bytesPerSample);
    if (segments != expected)
        return fail(why, "RLE frame " + std::to_string(frame + 1) + " has " +
                             std::to_string(segments) + " segments, " + std::to_string(expected) +
                             " expected");
    uint32_t previous = 0;
    for (uint32_t i = 0; i < segments; ++i) {
        const uint32_t offset = dicomRead32bit(header + 4 + 4 * i, false);
        if ((i == 0 && offset != 64) || offset <= previous || offset >= frameBytes)
            return fail(why, "RLE frame " + std::to_string(frame + 1) + ": segment " +
                                 std::to_string(i + 1) + " at byte " + std::to_string(offset) +
                                 " lies outside its " + std::to_string(frameBytes) + " bytes");
        previous = offset;
    }
    return true;
}

// RLE, JPEG, JPEG-LS and deflated data sets: DCMTK decodes from its own
// parse of the source, kept while frames are read in order.
bool readDcmtkFrame(const dicomStruct *d, const ByteSource &source, int frame, unsigned char *dst,
                    size_t dstSize, std::string *why)
{
    dicomStructImpl &impl = *d->impl;
    std::lock_guard<std::mutex> lock(impl.decodeMutex);
    if (d->compression == COMPRESSION_RLE && !checkRleHeader(d, source, frame, why))
        return false;
    const std::string key = source.isFile() ? source.path() : std::string();
    if (!impl.decoder || !impl.decoder->file || impl.decoder->key != key) {
        auto state = std::make_shared<DecoderState>();
        if (impl.layout.deflated) {
            // DCMTK reads the data set from an inflated image of the file,
            // kept while the frames are decoded.
            if (!inflateDeflatedFile(source, state->image, why))
                return false;
            const std::unique_ptr<ByteSource> image =
                ByteSource::memory(state->image.data(), state->image.size());
            state->file = loadWholeDataSet(*image, why, true);
        } else {
            state->file = loadWholeDataSet(source, why);
        }
        if (!state->file)
            return false;
        state->key = key;
        impl.decoder = state;
    }
    DecoderState &state = *impl.decoder;
    DcmDataset *ds = state.file->getDataset();
    DcmElement *element = nullptr;
    if (!ds || ds->findAndGetElement(DCM_PixelData, element).bad() || !element)
        return fail(why, "(7FE0,0010) pixel data not found");
    // DCMTK's RLE decoder refuses colour without a Planar Configuration;
    // the segments are planes, so the missing value is 1.
    if (d->compression == COMPRESSION_RLE && d->samplesPerPixel > 1 &&
        !ds->tagExists(DCM_PlanarConfiguration))
        ds->putAndInsertUint16(DCM_PlanarConfiguration, 1);
    auto *pixels = dynamic_cast<DcmPixelData *>(element);
    if (!pixels)
        return fail(why, "(7FE0,0010) is not pixel data");

    Uint32 startFragment = 0;
    if (frame == state.nextFrame) {
        startFragment = state.nextFragment;
    } else if (d->impl->layout.encapsulated && d->frames > 1) {
        std::vector<int> starts;
        if (frameStarts(d, source, &starts, nullptr))
            startFragment = Uint32(starts[size_t(frame)] + 1); // item 0 is the offset table
    }

    const size_t frameSize = size_t(d->frameSize);
    const size_t evenSize = frameSize + (frameSize & 1);
    std::vector<unsigned char> scratch;
    unsigned char *target = dst;
    if (dstSize < evenSize) {
        scratch.resize(evenSize);
        target = scratch.data();
    }
    OFString colourModel;
    DcmFileCache cache;
    const OFCondition c = pixels->getUncompressedFrame(ds, Uint32(frame), startFragment, target,
                                                       Uint32(evenSize), colourModel, &cache);
    // The JPEG decoders load the fragments they read; let them go again.
    DcmPixelSequence *sequence = nullptr;
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter *parameter = nullptr;
    pixels->getOriginalRepresentationKey(xfer, parameter);
    if (DcmXfer(xfer).isEncapsulated() &&
        pixels->getEncapsulatedRepresentation(xfer, parameter, sequence).good() && sequence) {
        for (unsigned long i = 0; i < sequence->card(); ++i) {
            DcmPixelItem *item = nullptr;
            if (sequence->getItem(item, i).good() && item)
                item->compact();
        }
    }
    if (c.bad()) {
        state.nextFrame = -1;
        return fail(why, conditionText(c));
    }
    state.nextFrame = frame + 1;
    state.nextFragment = startFragment;
    if (d->impl->layout.rleByPixel) {
        // DCMTK followed Planar Configuration 0: the samples go back into planes.
        const size_t n = size_t(d->rows) * d->columns, spp = size_t(d->samplesPerPixel);
        const size_t b = size_t(d->bytesPerSample);
        std::vector<unsigned char> byPixel(target, target + frameSize);
        for (size_t i = 0; i < n; ++i)
            for (size_t s = 0; s < spp; ++s)
                std::memcpy(target + (s * n + i) * b, byPixel.data() + (i * spp + s) * b, b);
    }
    if (target != dst)
        std::memcpy(dst, target, frameSize);

    if (d->samplesPerPixel > 1 && !colourModel.empty() && colourModel != d->photometric.c_str())
        return fail(why, std::string("the decoder delivered ") + colourModel.c_str() +
                             ", expected " + d->photometric);
    if (frame + 1 >= d->frames)
        impl.decoder.reset(); // the last frame: the data set is no longer needed
    return true;
}

} // namespace

std::unique_ptr<DcmFileFormat> loadWholeDataSet(const ByteSource &source, std::string *why,
                                                bool inflated)
{
    std::unique_ptr<DcmFileFormat> file(new DcmFileFormat);
    OFCondition c;
    // Through the layer's own stream, files too: it bounds the stack DCMTK's
    // recursion over nested sequences may take (elements after the pixel
    // data, which the header parse never saw, are read here).
    std::unique_ptr<DcmInputStream> in = openSourceStream(source, 0, inflated);
    file->transferInit();
    c = file->read(*in, EXS_Unknown, EGL_noChange, DCM_MaxReadLength);
    file->transferEnd();
    if (c.bad()) {
        fail(why, sourceStreamTooDeep(*in)
                      ? std::string("sequences nested too deep to be read safely")
                      : conditionText(c));
        return nullptr;
    }
    return file;
}

void releaseDecoder(const dicomStruct *d)
{
    if (!d || !d->impl)
        return;
    std::lock_guard<std::mutex> lock(d->impl->decodeMutex);
    d->impl->decoder.reset();
}

bool decodeFrame(const dicomStruct *d, const ByteSource &source, int frame, unsigned char *dst,
                 size_t dstSize, std::string *why)
{
    const PixelLayout &layout = d->impl->layout;
    if (!layout.present)
        return fail(why, "the file holds no pixel data");
    if (frame < 0 || frame >= d->frames)
        return fail(why, "frame " + std::to_string(frame) + " does not exist (" +
                             std::to_string(d->frames) + " frames)");
    if (dstSize < size_t(d->frameSize))
        return fail(why, "buffer of " + std::to_string(dstSize) + " bytes for a frame of " +
                             std::to_string(d->frameSize));
    switch (d->compression) {
    case COMPRESSION_NONE:
        if (layout.deflated)
            return readDcmtkFrame(d, source, frame, dst, dstSize, why);
        return readNativeFrame(d, source, frame, dst, why);
    case COMPRESSION_JPEG2000:
        return readJ2kFrame(d, source, frame, dst, why);
    case COMPRESSION_RLE:
    case COMPRESSION_JPEG:
    case COMPRESSION_JPEGLS:
    case COMPRESSION_DEFLATE:
        return readDcmtkFrame(d, source, frame, dst, dstSize, why);
    default:
        return fail(why, "transfer syntax " + d->transferSyntaxUID + " (" + d->transferSyntaxName +
                             ") cannot be decoded");
    }
}

bool dicomReadImageData(const dicomStruct *d, const char *path, int frame, void *buffer,
                        size_t bufferSize, std::string *why)
{
    if (!d || !d->impl || !buffer)
        return fail(why, "no parsed file or no buffer");
    dicomInitialize();
    const std::string name = path && *path ? path : d->fileName;
    std::unique_ptr<ByteSource> source = ByteSource::openFile(name, why);
    if (!source)
        return false;
    try {
        return decodeFrame(d, *source, frame, static_cast<unsigned char *>(buffer), bufferSize,
                           why);
    } catch (const std::exception &e) {
        return fail(why, e.what());
    } catch (...) {
        return fail(why, "unexpected failure while decoding");
    }
}

} // namespace dicom
