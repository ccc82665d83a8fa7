// Byte-level helpers over encoded data sets: element headers and the extent
// of values of undefined length. They work on buffers the layer hands out
// (sequence values of dicomDataElement) and never read outside [p, end).

#include "platform/dicom/DicomInternal.h"

namespace dicom {

uint16_t dicomRead16bit(const unsigned char *p, bool bigEndian)
{
    return bigEndian ? uint16_t((p[0] << 8) | p[1]) : uint16_t(p[0] | (p[1] << 8));
}

uint32_t dicomRead32bit(const unsigned char *p, bool bigEndian)
{
    return bigEndian
               ? (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3]
               : uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) |
                     (uint32_t(p[3]) << 24);
}

bool hasLongExplicitLength(const char vr[2])
{
    // PS3.5 7.1.2: these VRs have two reserved bytes and a 32-bit length.
    static const char *const longVrs[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ",
                                          "SV", "UC", "UN", "UR", "UT", "UV"};
    for (const char *v : longVrs)
        if (vr[0] == v[0] && vr[1] == v[1])
            return true;
    return false;
}

bool dicomReadElementHeader(const unsigned char *p, const unsigned char *end, bool bigEndian,
                            bool explicitVR, dicomElementHeader *out)
{
    if (!p || !end || !out || end < p || end - p < 8)
        return false;
    dicomElementHeader h;
    h.group = dicomRead16bit(p, bigEndian);
    h.element = dicomRead16bit(p + 2, bigEndian);
    if (h.group == 0xFFFE || !explicitVR) {
        // Items and delimiters never carry a VR, in either VR form.
        h.length = dicomRead32bit(p + 4, bigEndian);
        h.headerSize = 8;
    } else {
        h.vr[0] = char(p[4]);
        h.vr[1] = char(p[5]);
        if (hasLongExplicitLength(h.vr)) {
            if (end - p < 12)
                return false;
            h.length = dicomRead32bit(p + 8, bigEndian);
            h.headerSize = 12;
        } else {
            h.length = dicomRead16bit(p + 6, bigEndian);
            h.headerSize = 8;
        }
    }
    *out = h;
    return true;
}

namespace {

constexpr uint32_t kUndefined = 0xFFFFFFFFu;
constexpr int kMaxDepth = 64;

const unsigned char *skipValue(const dicomElementHeader &h, const unsigned char *value,
                               const unsigned char *end, bool big, bool explicitVR, bool isItem,
                               int depth);

long adjust(const unsigned char *p, const unsigned char *end, bool big, bool explicitVR,
            bool isItem, int depth)
{
    if (depth > kMaxDepth)
        return -1;
    const unsigned char *pos = p;
    while (pos < end) {
        dicomElementHeader h;
        if (!dicomReadElementHeader(pos, end, big, explicitVR, &h))
            return -1;
        const unsigned char *value = pos + h.headerSize;
        if (h.group == 0xFFFE) {
            if (isItem && h.element == 0xE00D)
                return long(value - p); // item delimiter: end of the item
            if (!isItem && h.element == 0xE0DD)
                return long(value - p); // sequence delimiter: end of the sequence
            if (isItem || h.element != 0xE000)
                return -1; // a delimiter of the wrong kind: the value is malformed
            // An item of the sequence: elements up to an item delimiter.
            pos = skipValue(h, value, end, big, explicitVR, true, depth);
        } else if (!isItem) {
            return -1; // a sequence holds items only
        } else {
            // An undefined length is a nested sequence (SQ, or UN/implicit per
            // CP-246) or encapsulated pixel data: both are items ending with a
            // sequence delimiter.
            pos = skipValue(h, value, end, big, explicitVR, false, depth);
        }
        if (!pos)
            return -1;
    }
    return -1; // ran out of data before the delimiter
}

// The end of the value that starts at `value`: its length when defined,
// else what the walk of its items (or elements, for an item) finds; null
// when the value does not fit.
const unsigned char *skipValue(const dicomElementHeader &h, const unsigned char *value,
                               const unsigned char *end, bool big, bool explicitVR, bool isItem,
                               int depth)
{
    if (h.length == kUndefined) {
        const long inner = adjust(value, end, big, explicitVR, isItem, depth + 1);
        return inner < 0 ? nullptr : value + inner;
    }
    return h.length > uint64_t(end - value) ? nullptr : value + h.length;
}

} // namespace

long dicomAdjustLength(const unsigned char *p, const unsigned char *end, bool bigEndian,
                       bool explicitVR, bool isItem)
{
    if (!p || !end || end < p)
        return -1;
    return adjust(p, end, bigEndian, explicitVR, isItem, 0);
}

} // namespace dicom
