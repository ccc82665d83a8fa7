// JPEG 2000 frames through OpenJPEG (DCMTK has no JPEG 2000 decoder).

#include "platform/dicom/DicomInternal.h"

#include <openjpeg.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>

namespace dicom {
namespace {

struct MemoryStream
{
    const unsigned char *data;
    size_t size;
    size_t pos;
};

OPJ_SIZE_T readBytes(void *buffer, OPJ_SIZE_T n, void *user)
{
    auto *s = static_cast<MemoryStream *>(user);
    if (s->pos >= s->size)
        return OPJ_SIZE_T(-1);
    const size_t count = std::min<size_t>(n, s->size - s->pos);
    std::memcpy(buffer, s->data + s->pos, count);
    s->pos += count;
    return count;
}

OPJ_OFF_T skipBytes(OPJ_OFF_T n, void *user)
{
    auto *s = static_cast<MemoryStream *>(user);
    if (n < 0) {
        const size_t back = std::min<size_t>(size_t(-n), s->pos);
        s->pos -= back;
        return -OPJ_OFF_T(back);
    }
    const size_t count = std::min<size_t>(size_t(n), s->size - s->pos);
    s->pos += count;
    return OPJ_OFF_T(count);
}

OPJ_BOOL seekTo(OPJ_OFF_T n, void *user)
{
    auto *s = static_cast<MemoryStream *>(user);
    if (n < 0 || size_t(n) > s->size)
        return OPJ_FALSE;
    s->pos = size_t(n);
    return OPJ_TRUE;
}

void ignoreMessage(const char *, void *) {}

void keepError(const char *msg, void *user)
{
    auto *text = static_cast<std::string *>(user);
    if (text->empty() && msg) {
        *text = msg;
        while (!text->empty() && (text->back() == '\n' || text->back() == '\r'))
            text->pop_back();
    }
}

struct CodecDeleter
{
    void operator()(opj_codec_t *c) const { opj_destroy_codec(c); }
};
struct StreamDeleter
{
    void operator()(opj_stream_t *s) const { opj_stream_destroy(s); }
};
struct ImageDeleter
{
    void operator()(opj_image_t *i) const { opj_image_destroy(i); }
};

bool fail(std::string *why, const std::string &text)
{
    if (why)
        *why = text;
    return false;
}

} // namespace

bool isJ2kCodestreamStart(const unsigned char *p, size_t n)
{
    return n >= 4 && p[0] == 0xFF && p[1] == 0x4F && p[2] == 0xFF && p[3] == 0x51;
}

bool isJp2Start(const unsigned char *p, size_t n)
{
    static const unsigned char signature[12] = {0x00, 0x00, 0x00, 0x0C, 0x6A, 0x50,
                                                0x20, 0x20, 0x0D, 0x0A, 0x87, 0x0A};
    return n >= 12 && std::memcmp(p, signature, 12) == 0;
}

namespace {

// Puts the samples' low 16 bits into dst as words, taken from src (or
// already in dst when src is null), sign-extended from `stored` bits when
// that is fewer than 16. In blocks, so that the loops vectorise: keeping the
// low bits and sign-extending them is a shift up and an arithmetic shift
// down.
void toWords(const OPJ_INT32 *src, unsigned char *dst, size_t pixels, int stored)
{
    const int shift = stored > 0 && stored < 16 ? 16 - stored : 0;
    if (!src && shift == 0)
        return;
    uint16_t block[4096];
    for (size_t at = 0; at < pixels; at += std::size(block)) {
        const size_t n = std::min(std::size(block), pixels - at);
        if (src)
            for (size_t i = 0; i < n; ++i)
                block[i] = uint16_t(src[at + i]);
        else
            std::memcpy(block, dst + at * 2, n * 2);
        for (size_t i = 0; i < n; ++i)
            block[i] = uint16_t(int16_t(uint16_t(block[i] << shift)) >> shift);
        std::memcpy(dst + at * 2, block, n * 2);
    }
}

// Decodes the frame into dst; with byTile, a frame of one 16-bit sample per
// pixel in a single tile goes straight into dst, and any other such frame
// sets `wholeImage` and returns false, to be decoded again without byTile.
bool decodeFrame(const unsigned char *data, size_t size, const FrameFormat &format,
                 unsigned char *dst, std::string *why, bool byTile, bool &wholeImage)
{
    const bool jp2 = isJp2Start(data, size);
    if (!jp2 && !isJ2kCodestreamStart(data, size))
        return fail(why, "JPEG 2000 frame has neither a codestream nor a JP2 signature");

    std::unique_ptr<opj_codec_t, CodecDeleter> codec(
        opj_create_decompress(jp2 ? OPJ_CODEC_JP2 : OPJ_CODEC_J2K));
    if (!codec)
        return fail(why, "cannot create the JPEG 2000 decoder");
    std::string error;
    opj_set_info_handler(codec.get(), ignoreMessage, nullptr);
    opj_set_warning_handler(codec.get(), ignoreMessage, nullptr);
    opj_set_error_handler(codec.get(), keepError, &error);
    opj_dparameters_t parameters;
    opj_set_default_decoder_parameters(&parameters);
    if (!opj_setup_decoder(codec.get(), &parameters))
        return fail(why, "cannot set up the JPEG 2000 decoder");

    MemoryStream source{data, size, 0};
    std::unique_ptr<opj_stream_t, StreamDeleter> stream(opj_stream_create(64 * 1024, OPJ_TRUE));
    if (!stream)
        return fail(why, "cannot create a JPEG 2000 stream");
    opj_stream_set_read_function(stream.get(), readBytes);
    opj_stream_set_skip_function(stream.get(), skipBytes);
    opj_stream_set_seek_function(stream.get(), seekTo);
    opj_stream_set_user_data(stream.get(), &source, nullptr);
    opj_stream_set_user_data_length(stream.get(), size);

    opj_image_t *raw = nullptr;
    if (!opj_read_header(stream.get(), codec.get(), &raw)) {
        if (raw)
            opj_image_destroy(raw);
        return fail(why,
                    "JPEG 2000 header: " + (error.empty() ? std::string("unreadable") : error));
    }
    std::unique_ptr<opj_image_t, ImageDeleter> image(raw);

    if (int(image->numcomps) != format.samplesPerPixel)
        return fail(why, "JPEG 2000 frame has " + std::to_string(image->numcomps) +
                             " components, (0028,0002) says " +
                             std::to_string(format.samplesPerPixel));
    for (int c = 0; c < format.samplesPerPixel; ++c) {
        const opj_image_comp_t &comp = image->comps[c];
        if (comp.dx != 1 || comp.dy != 1 || int(comp.w) != format.columns ||
            int(comp.h) != format.rows)
            return fail(why, "JPEG 2000 component " + std::to_string(c) + " is " +
                                 std::to_string(comp.w) + "x" + std::to_string(comp.h) +
                                 ", the image is " + std::to_string(format.columns) + "x" +
                                 std::to_string(format.rows));
        if (int(comp.prec) > format.bytesPerSample * 8)
            return fail(why, "JPEG 2000 component precision " + std::to_string(comp.prec) +
                                 " exceeds (0028,0100) bits allocated");
    }
    // Decoding only after the header matched the image: a codestream that
    // claims a huge image never gets its buffers.
    const size_t pixels = size_t(format.rows) * size_t(format.columns);
    const int stored = format.bitsStored > 0 && format.bitsStored < 32 ? format.bitsStored : 0;
    const bool extend = format.pixelRepresentation == 1 && stored > 0;
    if (byTile && format.samplesPerPixel == 1 && format.bytesPerSample == 2 &&
        image->comps[0].prec > 8) {
        // One 16-bit sample per pixel in one tile, the usual frame: the tile
        // is decoded straight into dst as 16-bit words, without the image's
        // 32-bit buffer and the pass that narrows it.
        OPJ_UINT32 tile = 0, tileBytes = 0, components = 0;
        OPJ_INT32 x0 = 0, y0 = 0, x1 = 0, y1 = 0;
        OPJ_BOOL more = OPJ_FALSE;
        if (!opj_read_tile_header(codec.get(), stream.get(), &tile, &tileBytes, &x0, &y0, &x1, &y1,
                                  &components, &more))
            return fail(why,
                        "JPEG 2000 decoding: " + (error.empty() ? std::string("failed") : error));
        if (more && x0 == 0 && y0 == 0 && x1 == format.columns && y1 == format.rows &&
            components == 1 && tileBytes == pixels * 2) {
            if (!opj_decode_tile_data(codec.get(), tile, dst, tileBytes, stream.get()) ||
                !opj_end_decompress(codec.get(), stream.get()))
                return fail(why, "JPEG 2000 decoding: " +
                                     (error.empty() ? std::string("failed") : error));
            // The words hold the samples' low 16 bits.
            toWords(nullptr, dst, pixels, extend ? stored : 0);
            return true;
        }
        wholeImage = true; // several tiles: decoded again as a whole image
        return false;
    }
    if (!opj_decode(codec.get(), stream.get(), image.get()) ||
        !opj_end_decompress(codec.get(), stream.get()))
        return fail(why, "JPEG 2000 decoding: " + (error.empty() ? std::string("failed") : error));
    for (int c = 0; c < format.samplesPerPixel; ++c)
        if (!image->comps[c].data || image->comps[c].w != unsigned(format.columns) ||
            image->comps[c].h != unsigned(format.rows))
            return fail(why, "JPEG 2000 component " + std::to_string(c) + " was not decoded");

    // Samples keep their bits; signed data are sign-extended from Bits Stored
    // whatever the codestream claims (some writers store signed pixels in an
    // unsigned codestream).
    const int spp = format.samplesPerPixel;
    const int bytes = format.bytesPerSample;
    if (spp == 1 && bytes == 2) {
        toWords(image->comps[0].data, dst, pixels, extend ? stored : 0);
        return true;
    }
    for (int c = 0; c < spp; ++c) {
        const OPJ_INT32 *src = image->comps[c].data;
        for (size_t i = 0; i < pixels; ++i) {
            uint32_t v = uint32_t(src[i]);
            if (extend) {
                const uint32_t mask = (1u << stored) - 1u;
                v &= mask;
                if (v & (1u << (stored - 1)))
                    v |= ~mask;
            }
            unsigned char *out = dst + (i * spp + c) * bytes;
            if (bytes == 1) {
                out[0] = uint8_t(v);
            } else if (bytes == 2) {
                const uint16_t s = uint16_t(v);
                std::memcpy(out, &s, 2);
            } else {
                std::memcpy(out, &v, 4);
            }
        }
    }
    return true;
}

} // namespace

bool decodeJ2kFrame(const unsigned char *data, size_t size, const FrameFormat &format,
                    unsigned char *dst, std::string *why)
{
    bool wholeImage = false;
    if (decodeFrame(data, size, format, dst, why, true, wholeImage))
        return true;
    return wholeImage && decodeFrame(data, size, format, dst, why, false, wholeImage);
}

} // namespace dicom
