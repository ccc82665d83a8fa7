#include "vxdicom/params/CsaHeader.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr int kTagSize = 84;
constexpr int kItemHeaderSize = 16;
constexpr int kMaxTags = 128;

// NUL-terminated text of at most n bytes.
std::string fixedText(const unsigned char *p, int n)
{
    const void *nul = std::memchr(p, 0, static_cast<size_t>(n));
    const size_t len = nul ? static_cast<size_t>(static_cast<const unsigned char *>(nul) - p)
                           : static_cast<size_t>(n);
    return std::string(reinterpret_cast<const char *>(p), len);
}

int padded(int len)
{
    return len + (4 - len % 4) % 4;
}

bool tooManyTags(int n)
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
    if (!data || length < 0)
        length = 0;
    auto result = std::make_unique<VxParamBundle>(name);
    const int n = length > 8 ? data[8] : 0;
    if (tooManyTags(n))
        return nullptr;

    int pos = 16;
    for (int t = 0; t < n; ++t) {
        if (pos + kTagSize > length)
            break;
        const unsigned char *tag = data + pos;
        auto tagBundle = std::make_unique<VxParamBundle>(fixedText(tag, 64).c_str());
        const int nItems = tag[76];
        tagBundle->insert(new VxParameter("vm", static_cast<int>(tag[64])));
        tagBundle->insert(new VxParameter("vr", fixedText(tag + 68, 4).c_str()));
        tagBundle->insert(new VxParameter("syngodt", static_cast<int>(tag[72])));
        tagBundle->insert(new VxParameter("nitems", nItems));
        tagBundle->insert(new VxParameter("xx", static_cast<int>(tag[80])));
        pos += kTagSize;

        auto values = std::make_unique<VxParamBundle>("values");
        for (int i = 0; i < nItems; ++i) {
            if (pos + kItemHeaderSize > length) {
                pos = length;
                break;
            }
            const int len = data[pos + 4];
            const unsigned char marker = data[pos + 8];
            pos += kItemHeaderSize;
            // Any other marker, or an empty item, skips only the header: the
            // walk goes on at the byte after it.
            if ((marker == 'M' || marker == 0xCD) && len != 0) {
                const int available = length - pos < len ? length - pos : len;
                char index[8];
                std::snprintf(index, sizeof index, "%04d", i % 10000);
                values->insert(new VxParameter(index, fixedText(data + pos, available).c_str()));
                pos += padded(len);
                if (pos > length)
                    pos = length;
            }
        }
        if (values->nParameters() > 0)
            tagBundle->insert(values.release());
        result->insert(tagBundle.release());
    }
    return result.release();
}

VxParamBundle *decode_csa1(const unsigned char *data, int length, const char *name)
{
    if (!data || length < 0)
        length = 0;
    const int n = length > 0 ? data[0] : 0;
    if (tooManyTags(n))
        return nullptr;

    int pos = 8;
    for (int t = 0; t < n && pos + kTagSize <= length; ++t) {
        const int nItems = data[pos + 76];
        pos += kTagSize;
        for (int i = 0; i < nItems; ++i) {
            if (pos + kItemHeaderSize > length) {
                pos = length;
                break;
            }
            const int len = data[pos + 4];
            if (pos + kItemHeaderSize + len > length) {
                // The item runs past the value: stop this tag's items.
                pos += kItemHeaderSize;
                break;
            }
            // The item's text is read and dropped: no CSA1 value is kept.
            pos += kItemHeaderSize + padded(len);
        }
    }
    return new VxParamBundle(name);
}
