// Both Siemens CSA decoders and the mosaic's tag lookup on any value, as
// (0029,1010) and (0029,1020) may hold it. The value is copied into a buffer
// of exactly its length.

#include "fuzz/FuzzSupport.h"

#include "platform/data/VxParamBundle.h"
#include "vxdicom/params/CsaHeader.h"

#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    vxfuzz::quietConsole();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 1 << 24)
        return 0;
    std::unique_ptr<unsigned char[]> value(new unsigned char[size ? size : 1]);
    if (size)
        std::memcpy(value.get(), data, size);
    const int length = int(size);

    std::unique_ptr<VxParamBundle> csa2(decode_csa2(value.get(), length, "CSAImageHeaderInfo"));
    if (csa2) {
        VXFUZZ_CHECK(csa2->name() == "CSAImageHeaderInfo");
        // Every tag takes 84 bytes after the 16 of the header.
        VXFUZZ_CHECK(csa2->size() <= (length > 16 ? (length - 16) / 84 : 0));
        (void)csa2->dump();
    }
    std::unique_ptr<VxParamBundle> csa1(decode_csa1(value.get(), length, "CSASeriesHeaderInfo"));
    if (csa1) {
        VXFUZZ_CHECK(csa1->size() == 0);
        VXFUZZ_CHECK(csa1->name() == "CSASeriesHeaderInfo");
    }
    // The lookup the mosaic reader uses: every value it returns lies inside the input.
    for (const char *tag : {"NumberOfImagesInMosaic", "SliceNormalVector"})
        for (const std::string &v : csa2Values(value.get(), length, tag))
            VXFUZZ_CHECK(v.size() <= size);
    return 0;
}
