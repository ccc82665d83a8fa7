// Parsing a file or buffer into a dicomStruct: DCMTK reads the data set up
// to Pixel Data; we copy every top-level element's bytes as the file holds
// them, locate the pixel value in the file, and describe the frames.

#include "platform/dicom/DicomDcmtk.h"

#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfcache.h"
#include "dcmtk/dcmdata/dcistrmb.h"
#include "dcmtk/dcmdata/dcistrmf.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcmetinf.h"
#include "dcmtk/dcmdata/dcostrmb.h"
#include "dcmtk/dcmdata/dcsequen.h"
#include "dcmtk/dcmdata/dcxfer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace dicom {

// ---------------------------------------------------------------------------
// ByteSource

std::unique_ptr<ByteSource> ByteSource::openFile(const std::string &path, std::string *why)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (why)
            *why = std::strerror(errno);
        return nullptr;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        if (why)
            *why = S_ISDIR(st.st_mode) ? "is a directory" : "not a regular file";
        ::close(fd);
        return nullptr;
    }
    std::unique_ptr<ByteSource> s(new ByteSource);
    s->fd = fd;
    s->fileName = path;
    s->length = uint64_t(st.st_size);
    return s;
}

std::unique_ptr<ByteSource> ByteSource::memory(const unsigned char *bytes, size_t size)
{
    std::unique_ptr<ByteSource> s(new ByteSource);
    s->buffer = bytes;
    s->length = bytes ? size : 0;
    return s;
}

ByteSource::~ByteSource()
{
    if (fd >= 0)
        ::close(fd);
}

bool ByteSource::read(uint64_t offset, void *dst, size_t n) const
{
    if (offset > length || n > length - offset)
        return false;
    if (n == 0)
        return true; // dst may be null (an empty vector's data)
    if (fd < 0) {
        std::memcpy(dst, buffer + offset, n);
        return true;
    }
    auto *out = static_cast<unsigned char *>(dst);
    while (n > 0) {
        const ssize_t got = ::pread(fd, out, n, off_t(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        out += got;
        offset += uint64_t(got);
        n -= size_t(got);
    }
    return true;
}

std::string conditionText(const OFCondition &condition)
{
    const char *text = condition.text();
    return text && *text ? text : "DCMTK error";
}

namespace {

constexpr uint32_t kUndefinedLength = 0xFFFFFFFFu;

bool fail(std::string *why, const std::string &text)
{
    if (why)
        *why = text;
    return false;
}

std::string tagText(uint16_t g, uint16_t e)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "(%04X,%04X)", g, e);
    return buf;
}

struct StructDeleter
{
    void operator()(dicomStruct *d) const { dicomFree(d); }
};
using StructPtr = std::unique_ptr<dicomStruct, StructDeleter>;

struct SyntaxRow
{
    const char *uid;
    const char *name;
    Compression compression;
};

// What the layer decodes, with the standard's names (PS3.6 Table A-1).
const SyntaxRow kSyntaxes[] = {
    {"1.2.840.10008.1.2", "Implicit VR Little Endian", COMPRESSION_NONE},
    {"1.2.840.10008.1.2.1", "Explicit VR Little Endian", COMPRESSION_NONE},
    {"1.2.840.10008.1.2.1.99", "Deflated Explicit VR Little Endian", COMPRESSION_DEFLATE},
    {"1.2.840.10008.1.2.2", "Explicit VR Big Endian", COMPRESSION_NONE},
    {"1.2.840.10008.1.2.5", "RLE Lossless", COMPRESSION_RLE},
    {"1.2.840.10008.1.2.4.50", "JPEG Baseline (Process 1)", COMPRESSION_JPEG},
    {"1.2.840.10008.1.2.4.51", "JPEG Extended (Process 2 & 4)", COMPRESSION_JPEG},
    {"1.2.840.10008.1.2.4.53", "JPEG Spectral Selection, Non-Hierarchical (Process 6 & 8)",
     COMPRESSION_JPEG},
    {"1.2.840.10008.1.2.4.55", "JPEG Full Progression, Non-Hierarchical (Process 10 & 12)",
     COMPRESSION_JPEG},
    {"1.2.840.10008.1.2.4.57", "JPEG Lossless, Non-Hierarchical (Process 14)", COMPRESSION_JPEG},
    {"1.2.840.10008.1.2.4.70",
     "JPEG Lossless, Non-Hierarchical, First-Order Prediction (Process 14 [Selection Value 1])",
     COMPRESSION_JPEG},
    {"1.2.840.10008.1.2.4.80", "JPEG-LS Lossless Image Compression", COMPRESSION_JPEGLS},
    {"1.2.840.10008.1.2.4.81", "JPEG-LS Lossy (Near-Lossless) Image Compression",
     COMPRESSION_JPEGLS},
    {"1.2.840.10008.1.2.4.90", "JPEG 2000 Image Compression (Lossless Only)", COMPRESSION_JPEG2000},
    {"1.2.840.10008.1.2.4.91", "JPEG 2000 Image Compression", COMPRESSION_JPEG2000},
};

const SyntaxRow *findSyntax(const std::string &uid)
{
    for (const SyntaxRow &row : kSyntaxes)
        if (uid == row.uid)
            return &row;
    return nullptr;
}

// A file without the "DICM" preamble is taken for a bare data set only when
// it starts like one: a tag of the meta or the identifying group (every
// image has (0008,0016) SOP Class UID) followed by an explicit VR or a
// plausible implicit length.
bool looksLikeDataSet(const unsigned char *p, size_t n, uint64_t size)
{
    if (n < 8)
        return false;
    for (bool big : {false, true}) {
        const uint16_t group = dicomRead16bit(p, big);
        if (group != 0x0002 && group != 0x0008)
            continue;
        if (p[4] >= 'A' && p[4] <= 'Z' && p[5] >= 'A' && p[5] <= 'Z')
            return true;
        const uint32_t length = dicomRead32bit(p + 4, big);
        if (length == kUndefinedLength || length <= size - 8)
            return true;
    }
    return false;
}

/// Allocates value storage owned by the structure.
unsigned char *newValue(dicomStructImpl &impl, size_t n)
{
    impl.values.emplace_back(new unsigned char[n]);
    return impl.values.back().get();
}

// The items of a sequence, encoded as DCMTK writes them in the data set's
// transfer syntax: item tags and lengths, nested elements, delimiters where
// the file used undefined lengths.
bool encodeSequence(DcmSequenceOfItems *sq, E_TransferSyntax xfer, bool bigEndian,
                    std::vector<unsigned char> &out, std::string *why)
{
    // nextInContainer walks the list in one pass; getItem(i) would seek from
    // its start every time.
    unsigned long i = 0;
    for (DcmObject *o = sq->nextInContainer(nullptr); o; o = sq->nextInContainer(o), ++i) {
        auto *item = dynamic_cast<DcmItem *>(o);
        if (!item)
            continue;
        const E_EncodingType type = item->getLengthField() == DCM_UndefinedLength
                                        ? EET_UndefinedLength
                                        : EET_ExplicitLength;
        const Uint32 n = item->calcElementLength(xfer, type);
        const size_t at = out.size();
        out.resize(at + n);
        DcmOutputBufferStream stream(out.data() + at, n);
        item->transferInit();
        const OFCondition c = item->write(stream, xfer, type, nullptr);
        item->transferEnd();
        void *written = nullptr;
        offile_off_t length = 0;
        stream.flushBuffer(written, length);
        if (c.bad() || uint64_t(length) != n)
            return fail(why, "item " + std::to_string(i + 1) + ": " +
                                 (c.bad() ? conditionText(c) : std::string("cannot be encoded")));
    }
    if (sq->getLengthField() == DCM_UndefinedLength) {
        unsigned char delimiter[8] = {0xFE, 0xFF, 0xDD, 0xE0, 0, 0, 0, 0};
        if (bigEndian) {
            delimiter[0] = 0xFF;
            delimiter[1] = 0xFE;
            delimiter[2] = 0xE0;
            delimiter[3] = 0xDD;
        }
        out.insert(out.end(), delimiter, delimiter + 8);
    }
    return true;
}

// Reads a ByteSource for DCMTK from `start` on: memory directly, a file
// through a window of whole blocks (16 KiB first, which holds most headers,
// then 64 KiB, then 1 MiB), so that the parse costs a few large reads and a
// short header does not copy much of the pixel data after it.
class SourceProducer : public DcmProducer
{
public:
    SourceProducer(const ByteSource &source, uint64_t start)
        : source(source), start(start), pos(std::min(start, source.size())),
          stackFloor(stackFloorFromHere())
    {
    }

    OFBool good() const override { return state.good(); }
    OFCondition status() const override { return state; }
    OFBool eos() override { return state.bad() || pos >= source.size(); }
    offile_off_t avail() override { return state.bad() ? 0 : offile_off_t(source.size() - pos); }

    /// True when a read was refused because DCMTK's recursion over nested
    /// sequences had used up the stack allowed for the parse.
    bool tooDeep() const { return stackExhausted; }

    /// Directory Record Sequence tags read as (0004,1221), see read().
    int recordSequences() const { return standIns; }

    // DCMTK 3.6.7 reads the items of a Directory Record Sequence (0004,1220)
    // as directory records, and checks each record's type (0004,1430) with
    // correction as soon as the record is read (lookForRecordType);
    // DcmByteString::verify then throws std::out_of_range when the last value
    // of that code string is longer than 16 characters, and the exception
    // leaves the half-built data set behind, leaked. The layer needs none of
    // DCMTK's directory logic, so the sequence's tag reaches DCMTK as
    // (0004,1221), a tag it has no use for, and its items are read as plain
    // items; the collector gives the sequence its tag back. DCMTK reads
    // every tag as two 2-byte reads (group, then element), and no other two
    // successive 2-byte reads can hold the group 0004 and then 1220.
    offile_off_t read(void *buf, offile_off_t buflen) override
    {
        const uint64_t at = pos;
        const offile_off_t n = copy(buf, buflen);
        auto *out = static_cast<unsigned char *>(buf);
        if (n != 2) {
            lastPairAt = UINT64_MAX;
            return n;
        }
        if (lastPairAt != UINT64_MAX && lastPairAt + 2 == at) {
            if (lastPair[0] == 0x04 && lastPair[1] == 0x00 && out[0] == 0x20 && out[1] == 0x12) {
                out[0] = 0x21;
                ++standIns;
            } else if (lastPair[0] == 0x00 && lastPair[1] == 0x04 && out[0] == 0x12 &&
                       out[1] == 0x20) {
                out[1] = 0x21;
                ++standIns;
            }
        }
        lastPairAt = at;
        lastPair[0] = out[0];
        lastPair[1] = out[1];
        return n;
    }

private:
    offile_off_t copy(void *buf, offile_off_t buflen)
    {
        if (state.bad() || buflen <= 0)
            return 0;
        // DCMTK reads nested sequences and items by recursion, a few
        // hundred bytes of stack per level: a file nested tens of thousands
        // deep (16 bytes a level) would overflow the stack. DCMTK reads every
        // element header through here, so a read made deeper than the
        // parse's share of the stack fails, and DCMTK unwinds with an error.
        if (uintptr_t(__builtin_frame_address(0)) < stackFloor) {
            stackExhausted = true;
            state = makeOFCondition(OFM_dcmdata, 2, OF_error, "sequences nested too deep");
            return 0;
        }
        const size_t count = size_t(std::min<uint64_t>(uint64_t(buflen), source.size() - pos));
        auto *out = static_cast<unsigned char *>(buf);
        if (!source.isFile()) {
            std::memcpy(out, source.bytes() + pos, count);
            pos += count;
            return offile_off_t(count);
        }
        size_t done = 0;
        if (count >= 64 * 1024 && (pos < windowStart || pos >= windowStart + window.size())) {
            // A long value read as a whole (a deferred value being copied):
            // straight into the caller's buffer.
            if (!source.read(pos, out, count)) {
                state = makeOFCondition(OFM_dcmdata, 1, OF_error, "file cannot be read");
                return 0;
            }
            pos += count;
            return offile_off_t(count);
        }
        while (done < count) {
            if (pos < windowStart || pos >= windowStart + window.size()) {
                const size_t want = window.size() < 16 * 1024   ? 16 * 1024
                                    : window.size() < 64 * 1024 ? 64 * 1024
                                                                : 1024 * 1024;
                const size_t n = size_t(std::min<uint64_t>(source.size() - pos, want));
                window.resize(n);
                windowStart = pos;
                if (!source.read(pos, window.data(), n)) {
                    window.clear();
                    state = makeOFCondition(OFM_dcmdata, 1, OF_error, "file cannot be read");
                    break;
                }
            }
            const size_t k =
                size_t(std::min<uint64_t>(count - done, windowStart + window.size() - pos));
            std::memcpy(out + done, window.data() + (pos - windowStart), k);
            done += k;
            pos += k;
        }
        return offile_off_t(done);
    }

    offile_off_t skip(offile_off_t skiplen) override
    {
        if (state.bad() || skiplen <= 0)
            return 0;
        const uint64_t n = std::min<uint64_t>(uint64_t(skiplen), source.size() - pos);
        pos += n;
        return offile_off_t(n);
    }

    void putback(offile_off_t num) override
    {
        if (num > 0)
            pos -= std::min<uint64_t>(uint64_t(num), pos - start);
    }

    // The lowest stack address the parse may reach: half of what is left of
    // this thread's stack below the caller, at most 4 MiB.
    static uintptr_t stackFloorFromHere()
    {
        const uintptr_t here = uintptr_t(__builtin_frame_address(0));
        uintptr_t budget = uintptr_t(4) << 20;
        const uintptr_t low = threadStackLow();
        if (low != 0 && here > low)
            budget = std::min(budget, (here - low) / 2);
        return here > budget ? here - budget : 0;
    }

    // The lowest address of this thread's stack, 0 when unknown. Asked once
    // per thread: on the main thread glibc reads /proc/self/maps for it, which
    // would cost more than parsing a small file.
    static uintptr_t threadStackLow()
    {
        thread_local const uintptr_t low = [] {
            uintptr_t found = 0;
            pthread_attr_t attr;
            if (pthread_getattr_np(pthread_self(), &attr) == 0) {
                void *bottom = nullptr;
                size_t size = 0;
                if (pthread_attr_getstack(&attr, &bottom, &size) == 0)
                    found = uintptr_t(bottom);
                pthread_attr_destroy(&attr);
            }
            return found;
        }();
        return low;
    }

    const ByteSource &source;
    const uint64_t start;
    uint64_t pos;
    std::vector<unsigned char> window;
    uint64_t windowStart = 0;
    OFCondition state = EC_Normal;
    const uintptr_t stackFloor;
    bool stackExhausted = false;
    uint64_t lastPairAt = UINT64_MAX; ///< position of the last 2-byte read
    unsigned char lastPair[2] = {0, 0};
    int standIns = 0;
};

// DCMTK's input stream over a ByteSource. Like DCMTK's file stream, and
// unlike its buffer stream, it lets DCMTK leave values longer than the read
// limit where they are: DCMTK then skips them, and a length field that
// claims more than the source holds fails the parse at once instead of
// making DCMTK allocate the claimed size first (a 20-byte file could ask for
// 4 GB). The values are read from the source when they are used.
class SourceStream : public DcmInputStream
{
public:
    SourceStream(const ByteSource &source, uint64_t start, bool inflated)
        : DcmInputStream(&producer), source(source), start(start), inflated(inflated),
          producer(source, start)
    {
    }
    /// A stream that owns its (memory) source.
    SourceStream(std::unique_ptr<ByteSource> owned, uint64_t start, bool inflated)
        : SourceStream(*owned, start, inflated)
    {
        ownedSource = std::move(owned);
    }

    DcmInputStreamFactory *newFactory() const override;

    bool tooDeep() const { return producer.tooDeep(); }
    /// How many Directory Record Sequence tags were handed to DCMTK as (0004,1221).
    int recordSequences() const { return producer.recordSequences(); }
    /// Values DCMTK leaves in a file are reopened by name, so that the data
    /// set may outlive this stream's ByteSource (a decoder kept between frames).
    void setDurable() { durable = true; }

    OFCondition installCompressionFilter(E_StreamCompression filterType) override
    {
        // The image of a deflated file holds its data set inflated already.
        if (inflated)
            return EC_Normal;
        return DcmInputStream::installCompressionFilter(filterType);
    }

private:
    const ByteSource &source;
    const uint64_t start;
    const bool inflated;
    SourceProducer producer;
    std::unique_ptr<ByteSource> ownedSource;
    bool durable = false;
};

// Values left in a file are read through the same ByteSource, which lives
// as long as the parse that made them (the parse copies every value it keeps).
class FileSourceFactory : public DcmInputStreamFactory
{
public:
    FileSourceFactory(const ByteSource &source, uint64_t offset) : source(source), offset(offset) {}
    DcmInputStream *create() const override { return new SourceStream(source, offset, false); }
    DcmInputStreamFactory *clone() const override { return new FileSourceFactory(*this); }
    DcmInputStreamFactoryType ident() const override { return DFT_DcmInputFileStreamFactory; }

private:
    const ByteSource &source;
    const uint64_t offset;
};

// Values left in memory are read from the bytes, which must outlive every
// data set that refers to them (the caller's buffer during a parse, the
// decoder's inflated image while it decodes).
class MemorySourceFactory : public DcmInputStreamFactory
{
public:
    MemorySourceFactory(const unsigned char *bytes, uint64_t size, uint64_t offset, bool inflated)
        : bytes(bytes), size(size), offset(offset), inflated(inflated)
    {
    }
    DcmInputStream *create() const override
    {
        return new SourceStream(ByteSource::memory(bytes, size_t(size)), offset, inflated);
    }
    DcmInputStreamFactory *clone() const override { return new MemorySourceFactory(*this); }
    DcmInputStreamFactoryType ident() const override { return DFT_DcmInputFileStreamFactory; }

private:
    const unsigned char *bytes;
    const uint64_t size;
    const uint64_t offset;
    const bool inflated;
};

DcmInputStreamFactory *SourceStream::newFactory() const
{
    // Behind an inflating filter, stream positions are not source offsets.
    if (currentProducer() != &producer)
        return nullptr;
    const uint64_t at = start + uint64_t(tell());
    if (source.isFile() && durable)
        return new DcmInputFileStreamFactory(OFFilename(source.path().c_str()), offile_off_t(at));
    if (source.isFile())
        return new FileSourceFactory(source, at);
    return new MemorySourceFactory(source.bytes(), source.size(), at, inflated);
}

// The values of the functional group macros of one frame (PS3.3 C.7.6.16):
// each macro is a sequence of one item whose elements hold the values, and a
// few nest one level deeper (MR Diffusion, Plane Orientation (Volume)). The
// first occurrence of a tag wins; long values (none of the geometry) are left
// out.
void gatherLeaves(DcmItem *item, std::unordered_map<uint32_t, std::string> &values, int depth)
{
    for (DcmObject *o = item->nextInContainer(nullptr); o; o = item->nextInContainer(o)) {
        auto *e = dynamic_cast<DcmElement *>(o);
        if (!e)
            continue;
        if (auto *sq = dynamic_cast<DcmSequenceOfItems *>(e)) {
            if (depth < 4)
                if (DcmItem *first = sq->getItem(0))
                    gatherLeaves(first, values, depth + 1);
            continue;
        }
        const DcmTag &tag = e->getTag();
        const uint32_t key = (uint32_t(tag.getGTag()) << 16) | tag.getETag();
        if (e->getLengthField() == 0 || e->getLengthField() > 4096 || values.count(key))
            continue;
        OFString text;
        if (e->getOFStringArray(text).good()) {
            while (!text.empty() && (text.back() == ' ' || text.back() == '\0'))
                text.erase(text.size() - 1);
            values.emplace(key, std::string(text.c_str()));
        }
    }
}

class Collector
{
public:
    Collector(dicomStructImpl &impl, const ByteSource &source) : impl(impl), source(source) {}

    dicomStructImpl &impl;
    const ByteSource &source;
    DcmFileCache cache;                 // keeps the file open for values DCMTK left in it
    DcmElement *pixelElement = nullptr; // only when DCMTK read the pixel data (deflate)
    bool recordStandIns = false;        // a Directory Record Sequence came as (0004,1221)

    bool collect(DcmItem *item, E_TransferSyntax xfer, bool isMeta, std::string *why)
    {
        const DcmXfer x(xfer);
        const bool big = !isMeta && x.getByteOrder() == EBO_BigEndian;
        const bool implicit = !isMeta && !x.isExplicitVR();
        const E_ByteOrder order = big ? EBO_BigEndian : EBO_LittleEndian;
        // Sequences of a deflated data set are written as the inflated
        // stream holds them.
        const E_TransferSyntax writeXfer =
            isMeta || x.getStreamCompression() != ESC_none ? EXS_LittleEndianExplicit : xfer;

        for (DcmObject *o = item->nextInContainer(nullptr); o; o = item->nextInContainer(o)) {
            auto *e = dynamic_cast<DcmElement *>(o);
            if (!e)
                continue;
            const DcmTag &tag = e->getTag();
            dicomDataElement out;
            out.group = tag.getGTag();
            out.element = tag.getETag();
            // Its own tag back (see SourceProducer::read); implicit VR with a
            // defined length leaves it a blob of encoded items, as kept anyway.
            const bool recordSequence =
                recordStandIns && out.group == 0x0004 && out.element == 0x1221;
            if (recordSequence)
                out.element = 0x1220;
            ElementInfo info;
            info.evr = recordSequence && (implicit || dynamic_cast<DcmSequenceOfItems *>(e))
                           ? EVR_SQ
                           : e->getVR();
            info.bigEndian = big;
            info.implicitVR = implicit;
            if (!implicit) {
                const char *name = DcmVR(e->getVR()).getValidVRName();
                if (name && std::strlen(name) == 2) {
                    out.vr[0] = name[0];
                    out.vr[1] = name[1];
                }
            }

            if (!isMeta && tag == DCM_PixelData) {
                pixelElement = e;
                out.length = int32_t(e->getLengthField());
                impl.elements.push_back(out);
                impl.info.push_back(info);
                continue;
            }

            if (auto *sq = dynamic_cast<DcmSequenceOfItems *>(e)) {
                if (!isMeta && out.group == 0x5200 && out.element == 0x9229) {
                    if (DcmItem *shared = sq->getItem(0))
                        gatherLeaves(shared, impl.sharedGroups, 0);
                } else if (!isMeta && out.group == 0x5200 && out.element == 0x9230) {
                    for (DcmObject *f = sq->nextInContainer(nullptr); f; f = sq->nextInContainer(f))
                        if (auto *frame = dynamic_cast<DcmItem *>(f)) {
                            impl.frameGroups.emplace_back();
                            gatherLeaves(frame, impl.frameGroups.back(), 0);
                        }
                }
                std::vector<unsigned char> bytes;
                std::string reason;
                if (!encodeSequence(sq, writeXfer, big, bytes, &reason))
                    return fail(why, tagText(out.group, out.element) + " " + reason);
                if (bytes.size() > size_t(INT32_MAX))
                    return fail(why, tagText(out.group, out.element) + " sequence is too long");
                out.length = int32_t(bytes.size());
                if (!bytes.empty()) {
                    unsigned char *value = newValue(impl, bytes.size());
                    std::memcpy(value, bytes.data(), bytes.size());
                    out.data = value;
                }
                info.evr = EVR_SQ;
                if (!implicit) {
                    out.vr[0] = 'S';
                    out.vr[1] = 'Q';
                }
            } else {
                const Uint32 length = e->getLengthField();
                if (length == DCM_UndefinedLength || length > source.size() || length > INT32_MAX)
                    return fail(why, tagText(out.group, out.element) + " has a length of " +
                                         std::to_string(length) + " bytes, the file only " +
                                         std::to_string(source.size()));
                out.length = int32_t(length);
                if (length > 0) {
                    unsigned char *value = newValue(impl, length);
                    const OFCondition c = e->getPartialValue(value, 0, length, &cache, order);
                    if (c.bad())
                        return fail(why, tagText(out.group, out.element) + " " + conditionText(c));
                    out.data = value;
                }
            }
            impl.elements.push_back(out);
            impl.info.push_back(info);
        }
        return true;
    }
};

// After DCMTK stopped at Pixel Data, `offset` is the first byte of its value;
// the element header lies just before it.
bool findPixelHeader(const ByteSource &source, uint64_t offset, bool big, PixelLayout &layout,
                     uint32_t *length)
{
    const uint64_t size = source.size();
    if (offset >= size + 1 || offset < 8)
        return false;
    auto isPixelTag = [big](const unsigned char *p) {
        return dicomRead16bit(p, big) == 0x7FE0 && dicomRead16bit(p + 2, big) == 0x0010;
    };
    unsigned char h[12];
    if (offset >= 12 && source.read(offset - 12, h, 12) && isPixelTag(h) && h[6] == 0 &&
        h[7] == 0 &&
        ((h[4] == 'O' && (h[5] == 'B' || h[5] == 'W')) || (h[4] == 'U' && h[5] == 'N'))) {
        layout.wordValue = h[5] == 'W';
        *length = dicomRead32bit(h + 8, big);
        return true;
    }
    if (source.read(offset - 8, h, 8) && isPixelTag(h)) {
        layout.wordValue = true; // implicit VR: OW, PS3.5 A.1
        *length = dicomRead32bit(h + 4, big);
        return true;
    }
    return false;
}

// Walks the items of encapsulated pixel data (always little endian, PS3.5
// A.4): the basic offset table, then one fragment per item, up to the
// sequence delimiter.
bool walkFragments(const ByteSource &source, PixelLayout &layout, std::string *why)
{
    const uint64_t size = source.size();
    uint64_t pos = layout.valueOffset;
    bool first = true;
    for (;;) {
        if (pos == size)
            break; // no sequence delimiter before the end: tolerated
        unsigned char h[8];
        if (!source.read(pos, h, 8))
            return fail(
                why, "(7FE0,0010) pixel data are truncated: the file ends inside an item header");
        const uint16_t g = dicomRead16bit(h, false), e = dicomRead16bit(h + 2, false);
        const uint32_t length = dicomRead32bit(h + 4, false);
        if (g == 0xFFFE && e == 0xE0DD) {
            pos += 8;
            break;
        }
        if (g != 0xFFFE || e != 0xE000 || length == kUndefinedLength)
            return fail(why, "(7FE0,0010) pixel data: no item at byte " + std::to_string(pos));
        if (length > size - pos - 8)
            return fail(why, "(7FE0,0010) pixel data are truncated: an item of " +
                                 std::to_string(length) + " bytes at byte " + std::to_string(pos) +
                                 " runs past the end of the file (" + std::to_string(size) +
                                 " bytes)");
        if (first) {
            layout.offsetTable.resize(length / 4);
            std::vector<unsigned char> table(length);
            if (length && !source.read(pos + 8, table.data(), length))
                return fail(why, "(7FE0,0010) offset table cannot be read");
            for (size_t i = 0; i < layout.offsetTable.size(); ++i)
                layout.offsetTable[i] = dicomRead32bit(table.data() + 4 * i, false);
            first = false;
        } else {
            layout.fragments.push_back(Fragment{pos + 8, length});
        }
        pos += 8 + uint64_t(length);
    }
    layout.valueLength = pos - layout.valueOffset;
    return true;
}

long intValue(const dicomStruct *d, uint16_t g, uint16_t e, long fallback)
{
    const char *text = dicomGetById(d, g, e);
    if (!text)
        return fallback;
    char *end = nullptr;
    const long v = std::strtol(text, &end, 10);
    return end == text ? fallback : v;
}

std::string trimmedText(const dicomStruct *d, uint16_t g, uint16_t e)
{
    const char *text = dicomGetById(d, g, e);
    if (!text)
        return {};
    std::string s = text;
    const size_t begin = s.find_first_not_of(' ');
    return begin == std::string::npos ? std::string() : s.substr(begin);
}

// Fills the image description from the elements and checks that the pixel
// data can hold what it describes.
bool describePixels(dicomStruct *d, std::string *why)
{
    PixelLayout &layout = d->impl->layout;
    d->samplesPerPixel = int(intValue(d, 0x0028, 0x0002, 1));
    d->rows = int(intValue(d, 0x0028, 0x0010, 0));
    d->columns = int(intValue(d, 0x0028, 0x0011, 0));
    d->bitsAllocated = int(intValue(d, 0x0028, 0x0100, 0));
    layout.storedPhotometric = trimmedText(d, 0x0028, 0x0004);
    d->photometric = layout.storedPhotometric;
    if (!layout.present) {
        d->frames = 0;
        return true;
    }
    const long frames = intValue(d, 0x0028, 0x0008, 1);
    d->frames = frames > 0 && frames <= INT_MAX ? int(frames) : 1;

    if (d->rows <= 0)
        return fail(why, "(0028,0010) rows is " + std::to_string(d->rows));
    if (d->columns <= 0)
        return fail(why, "(0028,0011) columns is " + std::to_string(d->columns));
    if (d->samplesPerPixel < 1 || d->samplesPerPixel > 4)
        return fail(why, "(0028,0002) samples per pixel is " + std::to_string(d->samplesPerPixel));
    const int bits = d->bitsAllocated;
    if (bits != 1 && bits != 8 && bits != 16 && bits != 32)
        return fail(why, "(0028,0100) bits allocated is " + std::to_string(bits) +
                             " (1, 8, 16 or 32 can be read)");
    if (bits == 1 && d->samplesPerPixel != 1)
        return fail(why, "1-bit pixel data with (0028,0002) samples per pixel " +
                             std::to_string(d->samplesPerPixel));
    d->bytesPerSample = bits == 1 ? 1 : bits / 8;

    FrameFormat &f = layout.format;
    f.rows = d->rows;
    f.columns = d->columns;
    f.samplesPerPixel = d->samplesPerPixel;
    f.bytesPerSample = d->bytesPerSample;
    f.bitsAllocated = bits;
    f.bitsStored = int(intValue(d, 0x0028, 0x0101, bits));
    f.pixelRepresentation = int(intValue(d, 0x0028, 0x0103, 0));

    const uint64_t frameSize = uint64_t(d->rows) * uint64_t(d->columns) *
                               uint64_t(d->bytesPerSample) * uint64_t(d->samplesPerPixel);
    if (frameSize > uint64_t(INT_MAX))
        return fail(why, "a frame of " + std::to_string(d->rows) + "x" +
                             std::to_string(d->columns) + " pixels is too large");
    d->frameSize = int(frameSize);

    const bool colour = d->samplesPerPixel > 1;
    const std::string &pi = layout.storedPhotometric;
    switch (d->compression) {
    case COMPRESSION_NONE:
    case COMPRESSION_DEFLATE: {
        d->planarConfiguration = colour && intValue(d, 0x0028, 0x0006, 0) == 1 ? 1 : 0;
        layout.ybr422 = colour && pi == "YBR_FULL_422";
        if (layout.ybr422) {
            // Two luminance samples share one pair of chroma samples; frames
            // are widened to YBR_FULL, colour by pixel.
            if (d->samplesPerPixel != 3 || d->columns % 2 != 0)
                return fail(why,
                            "YBR_FULL_422 needs 3 samples per pixel and an even number of columns");
            d->photometric = "YBR_FULL";
            d->planarConfiguration = 0;
            layout.frameBits = uint64_t(d->rows) * d->columns * 2 * bits;
        } else {
            layout.frameBits = uint64_t(d->rows) * d->columns * d->samplesPerPixel * bits;
        }
        const uint64_t need = (layout.frameBits * uint64_t(d->frames) + 7) / 8;
        if (need > layout.valueLength)
            return fail(why, "(7FE0,0010) pixel data hold " + std::to_string(layout.valueLength) +
                                 " bytes, " + std::to_string(d->frames) + " frame(s) of " +
                                 std::to_string(d->rows) + "x" + std::to_string(d->columns) +
                                 " need " + std::to_string(need));
        break;
    }
    case COMPRESSION_RLE: {
        // RLE stores every sample plane in its own segments (PS3.5 G.2);
        // frames are handed over by plane whatever Planar Configuration says.
        d->planarConfiguration = colour ? 1 : 0;
        layout.rleByPixel = colour && intValue(d, 0x0028, 0x0006, 1) == 0;
        // Two bytes of a segment decode to at most 128 (a replicate run,
        // PS3.5 G.3.1): frames claiming more than 64 times the stored bytes
        // are refused before a buffer of their size is allocated.
        uint64_t stored = 0;
        for (const Fragment &f : layout.fragments)
            stored += f.length;
        const uint64_t need = uint64_t(d->frameSize) * uint64_t(d->frames);
        if (need / 64 > stored)
            return fail(why, "RLE data of " + std::to_string(stored) + " bytes cannot hold " +
                                 std::to_string(d->frames) + " frame(s) of " +
                                 std::to_string(d->frameSize) + " bytes");
        break;
    }
    case COMPRESSION_JPEG:
        if (colour && (pi == "YBR_FULL" || pi == "YBR_FULL_422"))
            d->photometric = "RGB";
        break;
    case COMPRESSION_JPEG2000:
        if (colour && (pi == "YBR_RCT" || pi == "YBR_ICT"))
            d->photometric = "RGB";
        break;
    default:
        break;
    }
    if (layout.encapsulated && d->compression != COMPRESSION_UNSUPPORTED) {
        if (layout.fragments.empty())
            return fail(why, "(7FE0,0010) encapsulated pixel data hold no fragment");
        if (layout.fragments.size() < size_t(d->frames))
            return fail(why, "(7FE0,0010) holds " + std::to_string(layout.fragments.size()) +
                                 " fragments for " + std::to_string(d->frames) + " frames");
    }
    return true;
}

// DCMTK reads an implicit VR data set behind a meta header that names an
// explicit VR syntax element by element, yet still reports the explicit
// syntax; the bytes of the first data set element tell the truth.
bool dataSetIsImplicit(const ByteSource &source, DcmMetaInfo *meta, bool part10)
{
    Uint32 groupLength = 0;
    if (!meta || meta->findAndGetUint32(DCM_FileMetaInformationGroupLength, groupLength).bad())
        return false;
    const uint64_t start = (part10 ? 132 : 0) + 12 + uint64_t(groupLength);
    unsigned char h[6];
    if (!source.read(start, h, sizeof h) || dicomRead16bit(h, false) == 0x0002)
        return false;
    return !(h[4] >= 'A' && h[4] <= 'Z' && h[5] >= 'A' && h[5] <= 'Z');
}

Compression compressionOf(const std::string &uid, bool encapsulated)
{
    if (const SyntaxRow *row = findSyntax(uid)) {
        const bool expectsEncapsulated =
            row->compression != COMPRESSION_NONE && row->compression != COMPRESSION_DEFLATE;
        // Pixel data whose encoding contradicts the transfer syntax cannot be decoded.
        return expectsEncapsulated == encapsulated ? row->compression : COMPRESSION_UNSUPPORTED;
    }
    // A syntax we do not know: native pixel data are still readable.
    return encapsulated ? COMPRESSION_UNSUPPORTED : COMPRESSION_NONE;
}

constexpr const char *kDeflatedSyntax = "1.2.840.10008.1.2.1.99";

// The end of the meta group (explicit VR little endian, PS3.10 7.1) that
// starts at `start` (132 in a Part 10 file), which is the first byte of the
// data set, and the transfer syntax it names. False when no well-formed
// group 0002 element is there.
bool readMetaGroup(const ByteSource &source, uint64_t start, uint64_t *dataSetStart,
                   std::string *syntax)
{
    uint64_t pos = start;
    *dataSetStart = start;
    for (int n = 0; n < 1000; ++n) {
        unsigned char h[12];
        const size_t got =
            size_t(std::min<uint64_t>(sizeof h, source.size() - std::min(pos, source.size())));
        dicomElementHeader e;
        if (got < 8 || !source.read(pos, h, got) ||
            !dicomReadElementHeader(h, h + got, false, true, &e) || e.group != 0x0002) {
            *dataSetStart = pos;
            return n > 0;
        }
        const uint64_t value = pos + uint64_t(e.headerSize);
        if (e.length == kUndefinedLength ||
            e.length > source.size() - std::min(value, source.size()))
            return false;
        if (e.element == 0x0010 && e.length <= 64) {
            char uid[65] = {};
            if (!source.read(value, uid, e.length))
                return false;
            *syntax = std::string(uid, std::strlen(uid));
            while (!syntax->empty() && syntax->back() == ' ')
                syntax->pop_back();
        }
        pos = value + e.length;
    }
    return false;
}

dicomStruct *parse(const ByteSource &source, const std::string &name, bool delayed,
                   std::string *why)
{
    dicomInitialize();
    const uint64_t size = source.size();
    if (size == 0) {
        fail(why, "not a DICOM file (empty)");
        return nullptr;
    }
    unsigned char head[132];
    const size_t headSize = size_t(std::min<uint64_t>(size, sizeof head));
    if (!source.read(0, head, headSize)) {
        fail(why, "cannot read the first bytes");
        return nullptr;
    }
    const bool part10 = headSize == 132 && std::memcmp(head + 128, "DICM", 4) == 0;
    if (!part10 && !looksLikeDataSet(head, headSize, size)) {
        fail(why, "not a DICOM file");
        return nullptr;
    }

    // A deflated data set is inflated first, into memory, and parsed from
    // there like any other: DCMTK's own inflating stream cannot leave long
    // values where they are, and would allocate whatever a length claims.
    std::vector<unsigned char> inflated;
    std::unique_ptr<ByteSource> inflatedSource;
    if (part10 && isDeflatedFile(source)) {
        if (!inflateDeflatedFile(source, inflated, why))
            return nullptr;
        inflatedSource = ByteSource::memory(inflated.data(), inflated.size());
    }
    const ByteSource &input = inflatedSource ? *inflatedSource : source;

    // DCMTK parses through a window on the source (usually one read for the
    // whole header), which spares the many small buffered reads of a file
    // stream; long values stay in the source until the collector copies them.
    std::unique_ptr<DcmFileFormat> file(new DcmFileFormat);
    SourceStream in(input, 0, inflatedSource != nullptr);
    file->transferInit();
    OFCondition cond =
        file->readUntilTag(in, EXS_Unknown, EGL_noChange, DCM_MaxReadLength, DCM_PixelData);
    file->transferEnd();
    // A failed parse leaves a partial data set whose values must not be read.
    if (cond.bad()) {
        fail(why, in.tooDeep() ? std::string("sequences nested too deep to be read safely")
                  : cond == EC_StreamNotifyClient ? std::string("premature end of file")
                                                  : conditionText(cond));
        return nullptr;
    }
    const uint64_t stopOffset = uint64_t(in.tell());

    DcmDataset *ds = file->getDataset();
    if (!ds) {
        fail(why, "not a DICOM file");
        return nullptr;
    }
    E_TransferSyntax xfer = ds->getOriginalXfer();
    if (DcmXfer(xfer).isExplicitVR() && DcmXfer(xfer).getStreamCompression() == ESC_none &&
        DcmXfer(xfer).getByteOrder() == EBO_LittleEndian &&
        dataSetIsImplicit(source, file->getMetaInfo(), part10))
        xfer = EXS_LittleEndianImplicit;
    const DcmXfer x(xfer);

    StructPtr d(new dicomStruct);
    d->impl = new dicomStructImpl;
    d->fileName = name;
    d->bigEndian = x.getByteOrder() == EBO_BigEndian;
    d->explicitVR = x.isExplicitVR();
    dicomStructImpl &impl = *d->impl;
    PixelLayout &layout = impl.layout;

    layout.deflated = x.getStreamCompression() != ESC_none;
    if (layout.deflated) {
        // Offsets mean nothing in a deflated stream: DCMTK reads everything,
        // pixels included, and the pixels are decoded from its data set.
        file = loadWholeDataSet(input, why, true);
        if (!file)
            return nullptr;
        ds = file->getDataset();
    }

    Collector collector(impl, input);
    collector.recordStandIns = in.recordSequences() > 0;
    if (DcmMetaInfo *meta = file->getMetaInfo())
        if (!collector.collect(meta, EXS_LittleEndianExplicit, true, why))
            return nullptr;
    if (!collector.collect(ds, xfer, false, why))
        return nullptr;

    uint32_t pixelLength = 0;
    if (layout.deflated) {
        if (collector.pixelElement) {
            layout.present = true;
            layout.valueLength = collector.pixelElement->getLengthField();
            layout.wordValue = collector.pixelElement->getVR() != EVR_OB;
        }
    } else if (findPixelHeader(source, stopOffset, d->bigEndian, layout, &pixelLength)) {
        layout.present = true;
        layout.valueOffset = stopOffset;
        dicomDataElement px;
        px.group = 0x7FE0;
        px.element = 0x0010;
        ElementInfo info;
        info.evr = layout.wordValue ? EVR_OW : EVR_OB;
        info.bigEndian = d->bigEndian;
        info.implicitVR = !d->explicitVR;
        if (d->explicitVR) {
            px.vr[0] = 'O';
            px.vr[1] = layout.wordValue ? 'W' : 'B';
        }
        if (pixelLength == kUndefinedLength) {
            layout.encapsulated = true;
            if (!walkFragments(source, layout, why))
                return nullptr;
        } else {
            layout.valueLength = pixelLength;
            if (stopOffset + pixelLength > size) {
                fail(why, "(7FE0,0010) pixel data are truncated: " + std::to_string(pixelLength) +
                              " bytes at byte " + std::to_string(stopOffset) + ", the file has " +
                              std::to_string(size));
                return nullptr;
            }
        }
        px.length =
            layout.valueLength > uint64_t(INT32_MAX) ? INT32_MAX : int32_t(layout.valueLength);
        impl.elements.push_back(px);
        impl.info.push_back(info);
    }
    file.reset();

    if (impl.elements.empty()) {
        fail(why, "not a DICOM file");
        return nullptr;
    }
    // Meta group first, then ascending tags; a stable sort keeps the first of
    // a tag that occurs twice first.
    std::vector<size_t> order(impl.elements.size());
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    auto keyOf = [&](size_t i) {
        return (uint32_t(impl.elements[i].group) << 16) | impl.elements[i].element;
    };
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return keyOf(a) < keyOf(b); });
    std::vector<dicomDataElement> elements;
    std::vector<ElementInfo> info;
    elements.reserve(order.size());
    info.reserve(order.size());
    for (size_t i : order) {
        elements.push_back(impl.elements[i]);
        info.push_back(impl.info[i]);
    }
    impl.elements.swap(elements);
    impl.info.swap(info);
    d->elements = impl.elements.data();
    d->numElements = int(impl.elements.size());

    // Transfer syntax: as the meta header names it, else as DCMTK detected it.
    const char *uid = dicomGetById(d.get(), 0x0002, 0x0010);
    d->transferSyntaxUID = uid && *uid ? uid : x.getXferID();
    if (const SyntaxRow *row = findSyntax(d->transferSyntaxUID))
        d->transferSyntaxName = row->name;
    else
        d->transferSyntaxName = DcmXfer(d->transferSyntaxUID.c_str()).getXferName();
    if (layout.deflated)
        d->compression = layout.encapsulated ? COMPRESSION_UNSUPPORTED : COMPRESSION_DEFLATE;
    else if (layout.present)
        d->compression = compressionOf(d->transferSyntaxUID, layout.encapsulated);
    else if (const SyntaxRow *row = findSyntax(d->transferSyntaxUID))
        d->compression = row->compression;
    const char *sopClass = dicomGetById(d.get(), 0x0002, 0x0002);
    d->isDicomDir = sopClass && std::strcmp(sopClass, "1.2.840.10008.1.3.10") == 0;

    if (!describePixels(d.get(), why))
        return nullptr;
    d->pixelsInFile = layout.present;

    if (!delayed && layout.present && d->compression != COMPRESSION_UNSUPPORTED) {
        // One spare byte: decoders write frames rounded up to even sizes.
        const size_t total = size_t(d->frameSize) * size_t(d->frames);
        if (total >= dicomMemoryLimit()) {
            fail(why, std::to_string(d->frames) + " frame(s) of " + std::to_string(d->frameSize) +
                          " bytes exceed the memory limit of " +
                          std::to_string(dicomMemoryLimit()) + " bytes");
            return nullptr;
        }
        impl.pixels.reset(static_cast<unsigned char *>(std::malloc(total + 1)));
        if (!impl.pixels) {
            fail(why, "out of memory for " + std::to_string(total) + " bytes of pixel data");
            return nullptr;
        }
        for (int k = 0; k < d->frames; ++k) {
            const size_t at = size_t(k) * size_t(d->frameSize);
            std::string reason;
            if (!decodeFrame(d.get(), source, k, impl.pixels.get() + at, total + 1 - at, &reason)) {
                fail(why,
                     d->frames > 1 ? "frame " + std::to_string(k + 1) + ": " + reason : reason);
                return nullptr;
            }
        }
        releaseDecoder(d.get());
        d->pixelData = impl.pixels.get();
        d->pixelsInFile = false;
    }
    return d.release();
}

} // namespace

std::unique_ptr<DcmInputStream> openSourceStream(const ByteSource &source, uint64_t start,
                                                 bool inflated)
{
    auto *stream = new SourceStream(source, start, inflated);
    stream->setDurable();
    return std::unique_ptr<DcmInputStream>(stream);
}

bool sourceStreamTooDeep(const DcmInputStream &stream)
{
    const auto *s = dynamic_cast<const SourceStream *>(&stream);
    return s && s->tooDeep();
}

bool isDeflatedFile(const ByteSource &source)
{
    unsigned char magic[4];
    uint64_t start = 0;
    std::string syntax;
    return source.size() > 132 && source.read(128, magic, 4) &&
           std::memcmp(magic, "DICM", 4) == 0 && readMetaGroup(source, 132, &start, &syntax) &&
           syntax == kDeflatedSyntax;
}

bool inflateDeflatedFile(const ByteSource &source, std::vector<unsigned char> &image,
                         std::string *why)
{
    uint64_t start = 0;
    std::string syntax;
    if (!readMetaGroup(source, 132, &start, &syntax) || syntax != kDeflatedSyntax)
        return fail(why, "not a file with a deflated data set");
    image.resize(size_t(start));
    if (!source.read(0, image.data(), image.size()))
        return fail(why, "cannot read the meta header");
    // DCMTK's inflating stream (raw deflate, PS3.5 A.5) over the rest.
    SourceStream in(source, start, false);
    if (in.installCompressionFilter(ESC_zlib).bad())
        return fail(why, "cannot inflate the data set");
    const uint64_t limit = dicomMemoryLimit();
    std::vector<unsigned char> block(1024 * 1024);
    while (!in.eos() && in.good()) {
        const offile_off_t n = in.read(block.data(), offile_off_t(block.size()));
        if (n <= 0)
            break;
        if (image.size() + size_t(n) > limit)
            return fail(why, "the inflated data set exceeds the memory limit of " +
                                 std::to_string(limit) + " bytes");
        image.insert(image.end(), block.data(), block.data() + n);
    }
    if (in.status().bad())
        return fail(why, "the deflated data set cannot be inflated (" + conditionText(in.status()) +
                             ")");
    return true;
}

namespace {
std::atomic<uint64_t> theMemoryLimit{0};
}

uint64_t dicomMemoryLimit()
{
    const uint64_t set = theMemoryLimit.load(std::memory_order_relaxed);
    if (set)
        return set;
    static const uint64_t physical = [] {
        const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
        return pages > 0 && pageSize > 0 ? uint64_t(pages) * uint64_t(pageSize) : uint64_t(1) << 34;
    }();
    return physical;
}

void dicomSetMemoryLimit(uint64_t bytes)
{
    theMemoryLimit.store(bytes, std::memory_order_relaxed);
}

dicomStruct *dicomReadFile(const char *path, int delayed, std::string *why)
{
    if (!path || !*path) {
        fail(why, "no file name");
        return nullptr;
    }
    std::unique_ptr<ByteSource> source = ByteSource::openFile(path, why);
    if (!source)
        return nullptr;
    try {
        return parse(*source, path, delayed != 0, why);
    } catch (const std::exception &e) {
        fail(why, e.what());
    } catch (...) {
        fail(why, "unexpected failure");
    }
    return nullptr;
}

dicomStruct *dicomReadBuffer(const unsigned char *bytes, size_t size, const char *name,
                             std::string *why)
{
    std::unique_ptr<ByteSource> source = ByteSource::memory(bytes, size);
    try {
        return parse(*source, name ? name : "", false, why);
    } catch (const std::exception &e) {
        fail(why, e.what());
    } catch (...) {
        fail(why, "unexpected failure");
    }
    return nullptr;
}

void dicomFree(dicomStruct *d)
{
    if (!d)
        return;
    delete d->impl;
    delete d;
}

std::string dicomSupportedTransferSyntaxes()
{
    std::string text;
    for (const SyntaxRow &row : kSyntaxes) {
        text += row.uid;
        text += ' ';
        text += row.name;
        text += '\n';
    }
    return text;
}

} // namespace dicom
