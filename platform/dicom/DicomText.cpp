// Element lookup and the text form of element values.

#include "platform/dicom/DicomDcmtk.h"

#include "dcmtk/dcmdata/dcvr.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace dicom {
namespace {

enum class TextKind {
    None,
    String,
    U16,
    S16,
    U32,
    S32,
    U64,
    S64,
    F32,
    F64,
    Tag,
    Bytes,
    Words16,
    Words32,
    Words64
};

TextKind kindOf(int evr)
{
    switch (static_cast<DcmEVR>(evr)) {
    case EVR_AE:
    case EVR_AS:
    case EVR_CS:
    case EVR_DA:
    case EVR_DS:
    case EVR_DT:
    case EVR_IS:
    case EVR_LO:
    case EVR_LT:
    case EVR_PN:
    case EVR_SH:
    case EVR_ST:
    case EVR_TM:
    case EVR_UI:
    case EVR_UT:
    case EVR_UC:
    case EVR_UR:
        return TextKind::String;
    case EVR_US:
    case EVR_xs:
        return TextKind::U16;
    case EVR_SS:
        return TextKind::S16;
    case EVR_UL:
    case EVR_up:
        return TextKind::U32;
    case EVR_SL:
        return TextKind::S32;
    case EVR_UV:
        return TextKind::U64;
    case EVR_SV:
        return TextKind::S64;
    case EVR_FL:
        return TextKind::F32;
    case EVR_FD:
        return TextKind::F64;
    case EVR_AT:
        return TextKind::Tag;
    case EVR_OW:
    case EVR_ox:
    case EVR_lt:
    case EVR_OverlayData:
        return TextKind::Words16;
    case EVR_OF:
    case EVR_OL:
        return TextKind::Words32;
    case EVR_OD:
    case EVR_OV:
        return TextKind::Words64;
    case EVR_SQ:
    case EVR_pixelSQ:
    case EVR_PixelData:
    case EVR_px:
        return TextKind::None;
    default:
        return TextKind::Bytes; // OB, UN, unknown
    }
}

// Bytes 0..127 only, as the module decides whether a private value is text.
bool isAsciiValue(const unsigned char *p, int32_t n)
{
    for (int32_t i = 0; i < n; ++i)
        if (p[i] > 127)
            return false;
    return true;
}

uint64_t readUnsigned(const unsigned char *p, int bytes, bool big)
{
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i)
        v |= uint64_t(p[big ? bytes - 1 - i : i]) << (8 * i);
    return v;
}

template <typename T> void appendNumber(std::string &out, T value)
{
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, value);
    out.append(buf, r.ptr);
}

std::string valueText(const dicomDataElement &e, const ElementInfo &info)
{
    TextKind kind = kindOf(info.evr);
    // Private values without a VR (implicit VR, unknown to the dictionary)
    // are shown as text when they look like text, as the module shows them.
    if (kind == TextKind::Bytes && info.implicitVR &&
        (info.evr == EVR_UNKNOWN || info.evr == EVR_UN || info.evr == EVR_UNKNOWN2B) &&
        isAsciiValue(e.data, e.length))
        kind = TextKind::String;

    const unsigned char *p = e.data;
    const size_t n = size_t(e.length);
    const bool big = info.bigEndian;
    std::string out;
    auto separate = [&out] {
        if (!out.empty())
            out += '\\';
    };
    auto eachValue = [&](size_t width, auto print) {
        for (size_t at = 0; at + width <= n; at += width) {
            if (at)
                out += '\\';
            print(p + at);
        }
    };
    char hex[24];
    switch (kind) {
    case TextKind::None:
        break;
    case TextKind::String: {
        size_t end = n;
        while (end > 0 && (p[end - 1] == ' ' || p[end - 1] == '\0'))
            --end;
        out.assign(reinterpret_cast<const char *>(p), end);
        break;
    }
    case TextKind::U16:
        eachValue(2, [&](const unsigned char *v) {
            appendNumber(out, uint16_t(readUnsigned(v, 2, big)));
        });
        break;
    case TextKind::S16:
        eachValue(2, [&](const unsigned char *v) {
            appendNumber(out, int16_t(readUnsigned(v, 2, big)));
        });
        break;
    case TextKind::U32:
        eachValue(4, [&](const unsigned char *v) {
            appendNumber(out, uint32_t(readUnsigned(v, 4, big)));
        });
        break;
    case TextKind::S32:
        eachValue(4, [&](const unsigned char *v) {
            appendNumber(out, int32_t(readUnsigned(v, 4, big)));
        });
        break;
    case TextKind::U64:
        eachValue(8, [&](const unsigned char *v) { appendNumber(out, readUnsigned(v, 8, big)); });
        break;
    case TextKind::S64:
        eachValue(8, [&](const unsigned char *v) {
            appendNumber(out, int64_t(readUnsigned(v, 8, big)));
        });
        break;
    case TextKind::F32:
        eachValue(4, [&](const unsigned char *v) {
            const uint32_t bits = uint32_t(readUnsigned(v, 4, big));
            float f;
            std::memcpy(&f, &bits, 4);
            appendNumber(out, f);
        });
        break;
    case TextKind::F64:
        eachValue(8, [&](const unsigned char *v) {
            const uint64_t bits = readUnsigned(v, 8, big);
            double f;
            std::memcpy(&f, &bits, 8);
            appendNumber(out, f);
        });
        break;
    case TextKind::Tag:
        eachValue(4, [&](const unsigned char *v) {
            std::snprintf(hex, sizeof hex, "(%04x,%04x)", unsigned(readUnsigned(v, 2, big)),
                          unsigned(readUnsigned(v + 2, 2, big)));
            out += hex;
        });
        break;
    case TextKind::Bytes:
        for (size_t i = 0; i < n; ++i) {
            separate();
            std::snprintf(hex, sizeof hex, "%02x", p[i]);
            out += hex;
        }
        break;
    case TextKind::Words16:
        eachValue(2, [&](const unsigned char *v) {
            std::snprintf(hex, sizeof hex, "%04x", unsigned(readUnsigned(v, 2, big)));
            out += hex;
        });
        break;
    case TextKind::Words32:
        eachValue(4, [&](const unsigned char *v) {
            std::snprintf(hex, sizeof hex, "%08x", unsigned(readUnsigned(v, 4, big)));
            out += hex;
        });
        break;
    case TextKind::Words64:
        eachValue(8, [&](const unsigned char *v) {
            std::snprintf(hex, sizeof hex, "%016llx",
                          static_cast<unsigned long long>(readUnsigned(v, 8, big)));
            out += hex;
        });
        break;
    }
    return out;
}

long indexOf(const dicomStruct *d, uint16_t group, uint16_t element)
{
    if (!d || !d->elements || d->numElements <= 0)
        return -1;
    const uint32_t key = (uint32_t(group) << 16) | element;
    const dicomDataElement *begin = d->elements;
    const dicomDataElement *end = d->elements + d->numElements;
    const dicomDataElement *it =
        std::lower_bound(begin, end, key, [](const dicomDataElement &e, uint32_t k) {
            return ((uint32_t(e.group) << 16) | e.element) < k;
        });
    if (it == end || it->group != group || it->element != element)
        return -1;
    return long(it - begin);
}

} // namespace

const dicomDataElement *dicomFindElement(const dicomStruct *d, uint16_t group, uint16_t element)
{
    const long i = indexOf(d, group, element);
    return i < 0 ? nullptr : &d->elements[i];
}

const char *dicomGetById(const dicomStruct *d, uint16_t group, uint16_t element)
{
    const long i = indexOf(d, group, element);
    if (i < 0 || !d->impl)
        return nullptr;
    const dicomDataElement &e = d->elements[i];
    if (!e.data || e.length <= 0 || size_t(i) >= d->impl->info.size())
        return nullptr;
    const ElementInfo &info = d->impl->info[size_t(i)];
    if (kindOf(info.evr) == TextKind::None)
        return nullptr;
    const uint32_t key = (uint32_t(group) << 16) | element;
    std::lock_guard<std::mutex> lock(d->impl->textMutex);
    auto it = d->impl->texts.find(key);
    if (it == d->impl->texts.end())
        it = d->impl->texts.emplace(key, valueText(e, info)).first;
    return it->second.c_str();
}

const char *dicomGetFrameById(const dicomStruct *d, int frame, uint16_t group, uint16_t element)
{
    if (!d || !d->impl)
        return nullptr;
    const uint32_t key = (uint32_t(group) << 16) | element;
    const auto &frames = d->impl->frameGroups;
    if (frame >= 0 && size_t(frame) < frames.size()) {
        auto it = frames[size_t(frame)].find(key);
        if (it != frames[size_t(frame)].end())
            return it->second.c_str();
    }
    auto it = d->impl->sharedGroups.find(key);
    return it != d->impl->sharedGroups.end() ? it->second.c_str() : nullptr;
}

bool dicomHasFunctionalGroups(const dicomStruct *d)
{
    return d && d->impl && (!d->impl->frameGroups.empty() || !d->impl->sharedGroups.empty());
}

} // namespace dicom
