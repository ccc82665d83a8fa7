// Undefined lengths walked on hostile bytes (PS3.5 7.5): the DICOMDIR test
// drives the good cases, these the cuts, missing delimiters and deep nesting.

#include "platform/dicom/dicom.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Encoded bytes in one byte order and VR form.
struct Bytes
{
    bool big, explicitVr;
    std::vector<unsigned char> b;

    Bytes &u16(uint16_t v)
    {
        b.insert(b.end(), {uint8_t(big ? v >> 8 : v), uint8_t(big ? v : v >> 8)});
        return *this;
    }
    Bytes &u32(uint32_t v) { return big ? u16(v >> 16).u16(v) : u16(v).u16(v >> 16); }
    Bytes &code(uint16_t g, uint16_t e, const char *vr, const std::string &value)
    {
        u16(g).u16(e);
        if (explicitVr)
            b.insert(b.end(), vr, vr + 2);
        (explicitVr ? u16(uint16_t(value.size())) : u32(uint32_t(value.size())));
        b.insert(b.end(), value.begin(), value.end());
        return *this;
    }
    Bytes &sequence()
    {
        return explicitVr ? code(0x0040, 0xA730, "SQ", "").u16(0xFFFF).u16(0xFFFF)
                          : u16(0x0040).u16(0xA730).u32(0xFFFFFFFF);
    }
    Bytes &item(uint32_t length = 0xFFFFFFFF) { return u16(0xFFFE).u16(0xE000).u32(length); }
    Bytes &itemEnd() { return u16(0xFFFE).u16(0xE00D).u32(0); }
    Bytes &sequenceEnd() { return u16(0xFFFE).u16(0xE0DD).u32(0); }
    // On an exact-size copy of the first n bytes, so that a read past the end shows under ASan.
    long adjust(size_t n = size_t(-1)) const
    {
        std::vector<unsigned char> copy(b.begin(), b.begin() + long(std::min(n, b.size())));
        return dicom::dicomAdjustLength(copy.data(), copy.data() + copy.size(), big, explicitVr,
                                        false);
    }
};

class AdjustLength : public ::testing::TestWithParam<std::pair<bool, bool>>
{
};

TEST_P(AdjustLength, EveryCutMissingDelimiterAndRunawayNestingFails)
{
    const Bytes none{GetParam().first, GetParam().second, {}};
    // Item 1 of defined length; item 2 of undefined length with a nested sequence.
    Bytes seq = none;
    seq.item(12).code(0x0008, 0x0100, "SH", "T-D1").item().code(0x0008, 0x0104, "LO", "Chest ");
    seq.sequence().item().code(0x0008, 0x0100, "SH", "CODE").itemEnd().sequenceEnd().itemEnd();
    seq.sequenceEnd();
    for (size_t n = 0; n < seq.b.size(); ++n)
        EXPECT_EQ(seq.adjust(n), -1) << "cut after " << n << " bytes";
    EXPECT_EQ(Bytes(seq).code(0x0010, 0x0010, "PN", "Doe^J ").adjust(), long(seq.b.size()));

    Bytes code = none;
    code.code(0x0008, 0x0100, "SH", "CODE");
    for (Bytes b :
         {Bytes(none).item().code(0x0008, 0x0100, "SH", "CODE").sequenceEnd(), // no item end
          Bytes(none).item().code(0x0008, 0x0100, "SH", "CODE").itemEnd(),     // no sequence end
          Bytes(code).sequenceEnd(),                                           // no item
          Bytes(none).item(1000).code(0x0008, 0x0100, "SH", "CODE").sequenceEnd()})
        EXPECT_EQ(b.adjust(), -1);

    auto nest = [&](int levels, bool closed) {
        Bytes b = none;
        for (int i = 0; i < levels; ++i)
            b.item().sequence();
        for (int i = 0; closed && i < levels; ++i)
            b.sequenceEnd().itemEnd();
        return closed ? b.sequenceEnd() : b;
    };
    EXPECT_EQ(nest(30, true).adjust(), long(nest(30, true).b.size())) << "60 levels";
    EXPECT_EQ(nest(40, true).adjust(), -1) << "80 levels";
    EXPECT_EQ(nest(10000, false).adjust(), -1) << "without exhausting the stack";
    const unsigned char d[8] = {0xFE, 0xFF, 0xDD, 0xE0, 0, 0, 0, 0};
    EXPECT_EQ(dicom::dicomAdjustLength(nullptr, d + 8, false, true, false), -1);
    EXPECT_EQ(dicom::dicomAdjustLength(d + 8, d, false, true, false), -1);
}

INSTANTIATE_TEST_SUITE_P(Encodings, AdjustLength,
                         ::testing::Values(std::pair{false, true}, std::pair{false, false},
                                           std::pair{true, true}));

} // namespace
