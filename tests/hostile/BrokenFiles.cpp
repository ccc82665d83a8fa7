#include "tests/hostile/BrokenFiles.h"

#include <zlib.h>

#include <cstring>
#include <stdexcept>

namespace hostile {

uint16_t read16(const Bytes &b, size_t at)
{
    return uint16_t(b.at(at) | b.at(at + 1) << 8);
}

uint32_t read32(const Bytes &b, size_t at)
{
    return uint32_t(read16(b, at)) | uint32_t(read16(b, at + 2)) << 16;
}

void put16(Bytes &b, size_t at, uint16_t v)
{
    b.at(at) = uint8_t(v);
    b.at(at + 1) = uint8_t(v >> 8);
}

void put32(Bytes &b, size_t at, uint32_t v)
{
    put16(b, at, uint16_t(v));
    put16(b, at + 2, uint16_t(v >> 16));
}

namespace {

// PS3.5 Table 7.1-1: these VRs have two reserved bytes and a 32-bit length.
bool longForm(const char vr[2])
{
    static const char *const kinds[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ",
                                        "SV", "UC", "UN", "UR", "UT", "UV"};
    for (const char *k : kinds)
        if (vr[0] == k[0] && vr[1] == k[1])
            return true;
    return false;
}

void append16(Bytes &b, uint16_t v)
{
    b.push_back(uint8_t(v));
    b.push_back(uint8_t(v >> 8));
}

void append32(Bytes &b, uint32_t v)
{
    append16(b, uint16_t(v));
    append16(b, uint16_t(v >> 16));
}

Bytes text(const std::string &s)
{
    Bytes b(s.begin(), s.end());
    if (b.size() % 2)
        b.push_back(' ');
    return b;
}

} // namespace

std::vector<Element> topLevelElements(const Bytes &file)
{
    if (file.size() < 132 || std::memcmp(file.data() + 128, "DICM", 4) != 0)
        throw std::runtime_error("not a Part 10 file");
    std::vector<Element> out;
    size_t pos = 132;
    while (pos + 8 <= file.size()) {
        Element e;
        e.offset = pos;
        e.group = read16(file, pos);
        e.element = read16(file, pos + 2);
        e.vr[0] = char(file[pos + 4]);
        e.vr[1] = char(file[pos + 5]);
        if (e.vr[0] < 'A' || e.vr[0] > 'Z' || e.vr[1] < 'A' || e.vr[1] > 'Z')
            throw std::runtime_error("not explicit VR little endian");
        if (longForm(e.vr)) {
            e.lengthField = pos + 8;
            e.lengthSize = 4;
            e.length = read32(file, pos + 8);
            e.value = pos + 12;
        } else {
            e.lengthField = pos + 6;
            e.lengthSize = 2;
            e.length = read16(file, pos + 6);
            e.value = pos + 8;
        }
        out.push_back(e);
        if (e.group == 0x7FE0 && e.element == 0x0010)
            break;
        if (e.length == 0xFFFFFFFFu)
            throw std::runtime_error("undefined length at the top level");
        pos = e.value + e.length;
    }
    return out;
}

Element findElement(const Bytes &file, uint16_t group, uint16_t element)
{
    for (const Element &e : topLevelElements(file))
        if (e.group == group && e.element == element)
            return e;
    throw std::runtime_error("element not in the file");
}

Bytes withLength(Bytes file, uint16_t group, uint16_t element, uint32_t length)
{
    const Element e = findElement(file, group, element);
    if (e.lengthSize == 2)
        put16(file, e.lengthField, uint16_t(length));
    else
        put32(file, e.lengthField, length);
    return file;
}

Bytes withText(Bytes file, uint16_t group, uint16_t element, const std::string &value)
{
    const Element e = findElement(file, group, element);
    if (e.lengthSize != 2)
        throw std::runtime_error("not a short text element");
    const Bytes encoded = encodeElement(group, element, e.vr, text(value));
    file.erase(file.begin() + long(e.offset), file.begin() + long(e.value + e.length));
    file.insert(file.begin() + long(e.offset), encoded.begin(), encoded.end());
    return file;
}

Bytes withUS(Bytes file, uint16_t group, uint16_t element, uint16_t value)
{
    const Element e = findElement(file, group, element);
    if (e.vr[0] != 'U' || e.vr[1] != 'S' || e.length != 2)
        throw std::runtime_error("not a US element");
    put16(file, e.value, value);
    return file;
}

Bytes insertedBefore(Bytes file, uint16_t group, uint16_t element, const Bytes &encoded)
{
    const uint32_t key = uint32_t(group) << 16 | element;
    for (const Element &e : topLevelElements(file))
        if ((uint32_t(e.group) << 16 | e.element) >= key) {
            file.insert(file.begin() + long(e.offset), encoded.begin(), encoded.end());
            return file;
        }
    throw std::runtime_error("no element to insert before");
}

Bytes encodeElement(uint16_t group, uint16_t element, const char *vr, const Bytes &value,
                    bool undefinedLength)
{
    Bytes b;
    append16(b, group);
    append16(b, element);
    b.push_back(uint8_t(vr[0]));
    b.push_back(uint8_t(vr[1]));
    if (longForm(vr)) {
        append16(b, 0);
        append32(b, undefinedLength ? 0xFFFFFFFFu : uint32_t(value.size()));
    } else {
        append16(b, uint16_t(value.size()));
    }
    b.insert(b.end(), value.begin(), value.end());
    return b;
}

Bytes encodeItem(const Bytes &content, bool undefinedLength)
{
    Bytes b;
    append16(b, 0xFFFE);
    append16(b, 0xE000);
    append32(b, undefinedLength ? 0xFFFFFFFFu : uint32_t(content.size()));
    b.insert(b.end(), content.begin(), content.end());
    return b;
}

Bytes itemDelimiter()
{
    Bytes b;
    append16(b, 0xFFFE);
    append16(b, 0xE00D);
    append32(b, 0);
    return b;
}

Bytes sequenceDelimiter()
{
    Bytes b;
    append16(b, 0xFFFE);
    append16(b, 0xE0DD);
    append32(b, 0);
    return b;
}

Bytes nestedSequences(int depth, bool undefinedLengths)
{
    const Bytes creator = encodeElement(0x0071, 0x0010, "LO", text("VXTEST HOSTILE"));
    const Bytes innermost = encodeElement(0x0071, 0x1002, "LO", text("innermost"));
    if (undefinedLengths) {
        // Opening headers, the innermost text, then the closing delimiters.
        Bytes b = creator;
        const Bytes open =
            encodeElement(0x0071, 0x1001, "SQ", encodeItem({}, true), /*undefinedLength=*/true);
        for (int i = 0; i < depth; ++i)
            b.insert(b.end(), open.begin(), open.end());
        b.insert(b.end(), innermost.begin(), innermost.end());
        Bytes close = itemDelimiter();
        const Bytes end = sequenceDelimiter();
        close.insert(close.end(), end.begin(), end.end());
        for (int i = 0; i < depth; ++i)
            b.insert(b.end(), close.begin(), close.end());
        return b;
    }
    Bytes body = innermost;
    for (int i = 0; i < depth; ++i)
        body = encodeElement(0x0071, 0x1001, "SQ", encodeItem(body));
    Bytes b = creator;
    b.insert(b.end(), body.begin(), body.end());
    return b;
}

Bytes sequenceWithoutDelimiters()
{
    Bytes b = encodeElement(0x0071, 0x0010, "LO", text("VXTEST HOSTILE"));
    const Bytes item = encodeItem(encodeElement(0x0071, 0x1002, "LO", text("open item")), true);
    const Bytes sq = encodeElement(0x0071, 0x1001, "SQ", item, true);
    b.insert(b.end(), sq.begin(), sq.end());
    return b;
}

Bytes part10File(const std::string &sopClass, const std::string &transferSyntax,
                 const Bytes &dataSet)
{
    Bytes meta;
    const Bytes version = {0x00, 0x01};
    Bytes uidClass(sopClass.begin(), sopClass.end()),
        uidSyntax(transferSyntax.begin(), transferSyntax.end());
    const Bytes instance = {'1', '.', '2', '.', '3', '\0'};
    if (uidClass.size() % 2)
        uidClass.push_back('\0');
    if (uidSyntax.size() % 2)
        uidSyntax.push_back('\0');
    const Bytes elements[] = {
        encodeElement(0x0002, 0x0001, "OB", version),
        encodeElement(0x0002, 0x0002, "UI", uidClass),
        encodeElement(0x0002, 0x0003, "UI", instance),
        encodeElement(0x0002, 0x0010, "UI", uidSyntax),
    };
    for (const Bytes &e : elements)
        meta.insert(meta.end(), e.begin(), e.end());
    Bytes length;
    append32(length, uint32_t(meta.size()));
    Bytes file(132, 0);
    std::memcpy(file.data() + 128, "DICM", 4);
    const Bytes groupLength = encodeElement(0x0002, 0x0000, "UL", length);
    file.insert(file.end(), groupLength.begin(), groupLength.end());
    file.insert(file.end(), meta.begin(), meta.end());
    file.insert(file.end(), dataSet.begin(), dataSet.end());
    return file;
}

Bytes dataSetOf(const Bytes &file)
{
    for (const Element &e : topLevelElements(file))
        if (e.group != 0x0002)
            return Bytes(file.begin() + long(e.offset), file.end());
    throw std::runtime_error("no data set");
}

Bytes deflate(const Bytes &data)
{
    z_stream z{};
    if (deflateInit2(&z, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("deflateInit2");
    Bytes out(deflateBound(&z, uLong(data.size())));
    z.next_in = const_cast<Bytef *>(data.data());
    z.avail_in = uInt(data.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    const int rc = ::deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    if (rc != Z_STREAM_END)
        throw std::runtime_error("deflate");
    return out;
}

} // namespace hostile
