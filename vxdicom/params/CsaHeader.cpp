#include "vxdicom/params/CsaHeader.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr size_t kTagSize = 84;
constexpr size_t kItemHeaderSize = 16;
constexpr int kMaxTags = 128;

// Offsets inside a tag.
constexpr size_t kTagName = 0;
constexpr size_t kTagNameSize = 64;
constexpr size_t kTagVm = 64;
constexpr size_t kTagVr = 68;
constexpr size_t kTagVrSize = 4;
constexpr size_t kTagSyngoDt = 72;
constexpr size_t kTagNItems = 76;
constexpr size_t kTagXx = 80;

// Offsets inside an item header.
constexpr size_t kItemLength = 4;
constexpr size_t kItemMarker = 8;

// The value of a (0029,1010)/(0029,1020) element, read byte by byte. Every
// read is checked against the value's length, so a hostile header can never
// make the walk leave it.
class CsaBytes
{
public:
    CsaBytes(const unsigned char *data, int length)
        : bytes(data), size(data && length > 0 ? static_cast<size_t>(length) : 0)
    {
    }

    /// Whether n bytes starting at pos lie inside the value.
    bool fits(size_t pos, size_t n) const { return pos <= size && n <= size - pos; }
    unsigned char at(size_t pos) const { return bytes[pos]; }

    /// Text of at most n bytes at pos, ending at the first NUL.
    std::string text(size_t pos, size_t n) const
    {
        const unsigned char *p = bytes + pos;
        const void *nul = std::memchr(p, 0, n);
        const size_t len =
            nul ? static_cast<size_t>(static_cast<const unsigned char *>(nul) - p) : n;
        return std::string(reinterpret_cast<const char *>(p), len);
    }

private:
    const unsigned char *bytes;
    size_t size;
};

// Item data are padded to a multiple of 4 bytes.
size_t paddedLength(size_t len)
{
    return len + (4 - len % 4) % 4;
}

bool tagCountOutOfRange(int n)
{
    if (n > kMaxTags) {
        VxMessage::getTheMsg()->printf("Error: n not between 0 and 128");
        return true;
    }
    return false;
}

} // namespace

VxParamBundle *decode_csa2(const unsigned char *data, int length, const char *name)
{
    const CsaBytes value(data, length);

    // 1. The result, and the number of tags from the low byte of the word at 8.
    auto result = std::make_unique<VxParamBundle>(name);
    if (!value.fits(8, 1))
        return result.release();
    const int n = value.at(8);
    if (tagCountOutOfRange(n))
        return nullptr;

    // 2. The tags, from offset 16, 84 bytes each, each followed by its items.
    size_t pos = 16;
    for (int t = 0; t < n; ++t) {
        if (!value.fits(pos, kTagSize))
            break;
        const int vm = value.at(pos + kTagVm);
        const std::string vr = value.text(pos + kTagVr, kTagVrSize);
        const int syngodt = value.at(pos + kTagSyngoDt);
        const int nItems = value.at(pos + kTagNItems);
        const int xx = value.at(pos + kTagXx);
        auto tagBundle =
            std::make_unique<VxParamBundle>(value.text(pos + kTagName, kTagNameSize).c_str());
        VxParamBundle *tag = tagBundle.get();
        // Every tag gets its own bundle, in header order, even where a damaged
        // header repeats a name.
        result->insert(tagBundle.release(), false);
        tag->insert(new VxParameter("vm", vm));
        tag->insert(new VxParameter("vr", vr.c_str()));
        tag->insert(new VxParameter("syngodt", syngodt));
        tag->insert(new VxParameter("nitems", nItems));
        tag->insert(new VxParameter("xx", xx));
        pos += kTagSize;

        // 3. The items. Indexes count skipped items too, so names may have gaps.
        auto values = std::make_unique<VxParamBundle>("values");
        bool truncated = false;
        for (int i = 0; i < nItems; ++i) {
            if (!value.fits(pos, kItemHeaderSize)) {
                truncated = true;
                break;
            }
            const size_t len = value.at(pos + kItemLength);
            const unsigned char marker = value.at(pos + kItemMarker);
            pos += kItemHeaderSize;
            // An item with another marker, or an empty one, skips its header
            // only: the walk goes on at the byte after the header, inside what
            // would have been its data.
            if ((marker == 'M' || marker == 0xCD) && len != 0) {
                if (!value.fits(pos, len)) {
                    truncated = true;
                    break;
                }
                char index[16];
                std::snprintf(index, sizeof index, "%04d", i);
                values->insert(new VxParameter(index, value.text(pos, len).c_str()));
                pos += paddedLength(len);
            }
        }

        // 4. "values" only when an item was read.
        if (values->size() > 0)
            tag->insert(values.release());
        // Nothing after a truncated item can lie inside the value.
        if (truncated)
            break;
    }

    // 5. The walk follows the header's counts; it ends early only where the
    // value ends.
    return result.release();
}

VxParamBundle *decode_csa1(const unsigned char *data, int length, const char *name)
{
    const CsaBytes value(data, length);

    // 1. The number of tags from byte 0.
    const int n = value.fits(0, 1) ? value.at(0) : 0;
    if (tagCountOutOfRange(n))
        return nullptr;

    // 2. The tags from offset 8, 84 bytes each; name and vr are not needed
    // since nothing is kept, nitems drives the walk.
    size_t pos = 8;
    for (int t = 0; t < n; ++t) {
        if (!value.fits(pos, kTagSize))
            break;
        const int nItems = value.at(pos + kTagNItems);
        pos += kTagSize;
        for (int i = 0; i < nItems; ++i) {
            if (!value.fits(pos, kItemHeaderSize)) {
                pos += kItemHeaderSize;
                break;
            }
            const size_t len = value.at(pos + kItemLength);
            if (!value.fits(pos, kItemHeaderSize + len)) {
                // The item runs past the value: this tag's items end here.
                pos += kItemHeaderSize;
                break;
            }
            // The item's text would be read here; no CSA1 value is kept.
            pos += kItemHeaderSize + paddedLength(len);
        }
    }

    // 3. The older layout yields an empty bundle.
    return new VxParamBundle(name);
}

namespace {

uint32_t le32(const unsigned char *p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

} // namespace

std::vector<std::string> csa2Values(const unsigned char *data, int length, const char *name)
{
    const CsaBytes value(data, length);
    if (!value.fits(0, 16) || std::memcmp(data, "SV10", 4) != 0)
        return {};
    const uint32_t n = le32(data + 8);
    size_t pos = 16;
    for (uint32_t t = 0; t < n && t < 10000; ++t) {
        if (!value.fits(pos, kTagSize))
            return {};
        const std::string tag = value.text(pos + kTagName, kTagNameSize);
        const uint32_t vm = le32(data + pos + kTagVm);
        const uint32_t nItems = le32(data + pos + kTagNItems);
        pos += kTagSize;
        std::vector<std::string> items;
        for (uint32_t i = 0; i < nItems && i < 100000; ++i) {
            if (!value.fits(pos, kItemHeaderSize))
                return {};
            const uint32_t len = le32(data + pos + kItemLength);
            pos += kItemHeaderSize;
            if (!value.fits(pos, len))
                return {};
            if (i < vm) {
                std::string text = value.text(pos, len);
                while (!text.empty() && (text.back() == ' ' || text.back() == '\0'))
                    text.pop_back();
                items.push_back(text);
            }
            pos += paddedLength(len);
        }
        if (tag == name)
            return items;
    }
    return {};
}
