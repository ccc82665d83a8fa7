#pragma once

// Byte surgery on real explicit VR little endian files with the test's own element walk (so the
// edits do not depend on the reader they break), and loads through the reader's pipeline.

#include "platform/core/KcDArray.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxLattice3.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/reader/VxDicom.h"

#include <zlib.h>

#include <cstring>
#include <stdexcept>

namespace hostile {

using Bytes = std::vector<unsigned char>;

/// Five sagittal Siemens slices, 64 x 42 (one stack), loaded beside every broken file.
inline const char *const kSeriesDir = "dcm_qa_sag/In/2_gre_field_mapping";
/// The file the broken copies are made from: a Siemens slice with CSA headers, 256 x 256 x 16 bits.
inline const char *const kSource = "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag/"
                                   "0001_1.3.12.2.1107.5.2.43.67060.2022040715140258030663181.dcm";

// Little-endian values of n bytes (this host is little endian, as the files).
inline uint32_t read(const Bytes &b, size_t at, size_t n)
{
    uint32_t v = 0;
    return std::memcpy(&v, &b.at(at + n - 1) - (n - 1), n), v;
}
inline void put(Bytes &b, size_t at, uint32_t v, size_t n)
{
    std::memcpy(&b.at(at + n - 1) - (n - 1), &v, n);
}
inline void append(Bytes &b, const Bytes &more)
{
    b.insert(b.end(), more.begin(), more.end());
}
inline Bytes operator+(Bytes a, const Bytes &b)
{
    return append(a, b), a;
}
inline Bytes le(uint32_t v, size_t n)
{
    Bytes b(n);
    return put(b, 0, v, n), b;
}
inline Bytes text(const std::string &s) // padded with a blank to an even length
{
    return s.size() % 2 ? text(s + " ") : Bytes(s.begin(), s.end());
}
inline bool longForm(const char *vr) // two reserved bytes and a 32-bit length
{
    return std::string("OBODOFOLOVOWSQSVUCUNURUTUV").find(std::string(vr, 2)) % 2 == 0;
}

struct Element
{
    uint16_t group = 0, element = 0;
    size_t offset = 0, lengthField = 0, lengthSize = 0, value = 0;
    uint32_t length = 0;
    char vr[3] = {};
};

/// The element with that tag, or with `orNext` the first after where it would be; else throws.
inline Element findElement(const Bytes &file, uint16_t group, uint16_t element, bool orNext = false)
{
    for (size_t pos = 132; pos + 8 <= file.size();) {
        Element e;
        e.offset = pos, e.group = uint16_t(read(file, pos, 2));
        e.element = uint16_t(read(file, pos + 2, 2));
        std::memcpy(e.vr, &file[pos + 4], 2);
        e.lengthSize = longForm(e.vr) ? 4 : 2;
        e.lengthField = pos + (e.lengthSize == 4 ? 8 : 6);
        e.length = read(file, e.lengthField, e.lengthSize), e.value = e.lengthField + e.lengthSize;
        if ((uint32_t(e.group) << 16 | e.element) >= (uint32_t(group) << 16 | element)) {
            if (orNext || (e.group == group && e.element == element))
                return e;
            break;
        }
        pos = e.value + e.length;
    }
    throw std::runtime_error("element not in the file");
}

inline Bytes withLength(Bytes file, uint16_t group, uint16_t element, uint32_t length)
{
    const Element e = findElement(file, group, element);
    put(file, e.lengthField, length, e.lengthSize);
    return file;
}

inline Bytes withUS(Bytes file, uint16_t group, uint16_t element, uint16_t value)
{
    put(file, findElement(file, group, element).value, value, 2);
    return file;
}

/// One element (length 0xFFFFFFFF when undefined; no delimiter added).
inline Bytes encodeElement(uint16_t group, uint16_t element, const char *vr, const Bytes &value,
                           bool undefinedLength = false)
{
    Bytes b = le(uint32_t(element) << 16 | group, 4);
    b.insert(b.end(), vr, vr + 2);
    append(b, le(undefinedLength ? 0xFFFFFFFFu : uint32_t(value.size()), longForm(vr) ? 4 : 2));
    if (longForm(vr))
        b.insert(b.begin() + 6, 2, 0);
    return append(b, value), b;
}
inline Bytes encodeItem(const Bytes &content, bool undefinedLength = false, uint16_t tag = 0xE000)
{
    Bytes b = le(uint32_t(tag) << 16 | 0xFFFE, 4);
    append(b, le(undefinedLength ? 0xFFFFFFFFu : uint32_t(content.size()), 4));
    return append(b, content), b;
}
inline Bytes sequenceDelimiter()
{
    return encodeItem({}, false, 0xE0DD);
}

inline Bytes insertedBefore(Bytes file, uint16_t group, uint16_t element, const Bytes &encoded)
{
    const size_t at = findElement(file, group, element, true).offset;
    file.insert(file.begin() + long(at), encoded.begin(), encoded.end());
    return file;
}

/// A private creator and `depth` nested private sequences.
inline Bytes nestedSequences(int depth, bool undefinedLengths)
{
    Bytes b = encodeElement(0x0071, 0x0010, "LO", text("VXTEST HOSTILE")),
          body = encodeElement(0x0071, 0x1002, "LO", text("innermost"));
    if (!undefinedLengths) {
        for (int i = 0; i < depth; ++i)
            body = encodeElement(0x0071, 0x1001, "SQ", encodeItem(body));
        return append(b, body), b;
    }
    const Bytes open = encodeElement(0x0071, 0x1001, "SQ", encodeItem({}, true), true),
                close = encodeItem({}, false, 0xE00D) + sequenceDelimiter();
    for (int i = 0; i < 2 * depth + 1; ++i)
        append(b, i < depth ? open : i == depth ? body : close);
    return b;
}

/// A sequence and an item of undefined length without either delimiter.
inline Bytes sequenceWithoutDelimiters()
{
    return encodeElement(0x0071, 0x0010, "LO", text("VXTEST HOSTILE")) +
           encodeElement(0x0071, 0x1001, "SQ",
                         encodeItem(encodeElement(0x0071, 0x1002, "LO", text("open item")), true),
                         true);
}

inline Bytes part10File(const std::string &sopClass, const std::string &syntax,
                        const Bytes &dataSet)
{
    Bytes meta = encodeElement(0x0002, 0x0001, "OB", {0, 1}), file(128, 0);
    for (const auto &[element, uid] :
         {std::pair(0x0002, sopClass), std::pair(0x0003, std::string("1.2.3")),
          std::pair(0x0010, syntax)}) {
        Bytes b(uid.begin(), uid.end());
        b.resize(b.size() + b.size() % 2, 0);
        append(meta, encodeElement(0x0002, uint16_t(element), "UI", b));
    }
    for (const Bytes &part :
         {Bytes{'D', 'I', 'C', 'M'},
          encodeElement(0x0002, 0x0000, "UL", le(uint32_t(meta.size()), 4)), meta, dataSet})
        append(file, part);
    return file;
}

inline Bytes deflate(const Bytes &data)
{
    z_stream z{};
    deflateInit2(&z, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
    Bytes out(deflateBound(&z, uLong(data.size())));
    z.next_in = const_cast<Bytef *>(data.data()), z.avail_in = uInt(data.size());
    z.next_out = out.data(), z.avail_out = uInt(out.size());
    if (::deflate(&z, Z_FINISH) != Z_STREAM_END)
        throw std::runtime_error("deflate");
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

struct LoadOutcome
{
    std::string console;
    std::vector<std::string> fields; ///< "5 x 42 x 64, 2 bytes, samples HASH"
};

/// vxReadDicom silently, header only (delayed) or with every pixel at once.
inline LoadOutcome loadFiles(const std::vector<std::string> &names, bool delayed)
{
    vxtest::ScopedEnv env("DICOM_DELAYED_READ", delayed ? "1" : "0");
    VxObjectPool::instance()->clear();
    std::vector<const char *> argv;
    for (const std::string &n : names)
        argv.push_back(n.c_str());
    LoadOutcome out;
    KcDArray<VxField3 *> fields;
    {
        VxMessageCapture capture;
        vxReadDicom(int(argv.size()), argv.data(), fields, 0, true);
        out.console = capture.text();
    }
    for (const VxField3 *field : fields) {
        const VxLattice3 *lat = field->lattice();
        uint64_t hash = 1469598103934665603ull; // FNV-1a
        const auto *p = static_cast<const unsigned char *>(lat->data());
        for (size_t i = 0; i < size_t(lat->numBytes()); ++i)
            hash = (hash ^ p[i]) * 1099511628211ull;
        out.fields.push_back(std::to_string(lat->dim(0)) + " x " + std::to_string(lat->dim(1)) +
                             " x " + std::to_string(lat->dim(2)) + ", " +
                             std::to_string(lat->voxelBytes()) + " bytes, samples " +
                             std::to_string(hash));
    }
    VxObjectPool::instance()->clear();
    return out;
}

inline std::string failureLine(const std::string &console, const std::string &name)
{
    const size_t at = ("\n" + console).find("\nreading " + name + " failed: ");
    return at == std::string::npos ? "" : console.substr(at, console.find('\n', at) - at);
}

/// Whether the console has the line "+ NAME" (the file was read).
inline bool readLine(const std::string &console, const std::string &name)
{
    return ("\n" + console).find("\n+ " + name + "\n") != std::string::npos;
}

struct WatchedTempDir
{
    vxtest::TempDir dir;
    vxtest::ScopedEnv env{"TMPDIR", dir.path().c_str()};
    bool empty() const { return std::filesystem::is_empty(dir.path()); }
};

} // namespace hostile
