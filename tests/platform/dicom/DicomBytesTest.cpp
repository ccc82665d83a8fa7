// Byte-level helpers on hand-made encodings (PS3.5 7.1 and 7.5).

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
    Bytes &raw(const std::string &s)
    {
        b.insert(b.end(), s.begin(), s.end());
        return *this;
    }
    Bytes &text(uint16_t g, uint16_t e, const char *vr, const std::string &value)
    {
        u16(g).u16(e);
        (explicitVr ? raw(vr).u16(uint16_t(value.size())) : u32(uint32_t(value.size())));
        return raw(value);
    }
    Bytes &sequence(uint16_t g, uint16_t e) // of undefined length
    {
        u16(g).u16(e);
        if (explicitVr)
            raw("SQ").u16(0);
        return u32(0xFFFFFFFF);
    }
    Bytes &item(uint32_t length = 0xFFFFFFFF) { return u16(0xFFFE).u16(0xE000).u32(length); }
    Bytes &itemEnd() { return u16(0xFFFE).u16(0xE00D).u32(0); }
    Bytes &sequenceEnd() { return u16(0xFFFE).u16(0xE0DD).u32(0); }
    // On an exact-size copy of the first n bytes, so that a read past the end shows under ASan.
    long adjust(bool isItem, size_t n = size_t(-1)) const
    {
        std::vector<unsigned char> copy(b.begin(), b.begin() + long(std::min(n, b.size())));
        return dicom::dicomAdjustLength(copy.data(), copy.data() + copy.size(), big, explicitVr,
                                        isItem);
    }
};

TEST(ElementHeader, DecodesTheThreeFormsInBothByteOrders)
{
    const unsigned char p[] = {0x12, 0x34, 0x56, 0x78};
    EXPECT_EQ(dicom::dicomRead16bit(p, false), 0x3412);
    EXPECT_EQ(dicom::dicomRead16bit(p, true), 0x1234);
    EXPECT_EQ(dicom::dicomRead32bit(p, false), 0x78563412u);
    EXPECT_EQ(dicom::dicomRead32bit(p, true), 0x12345678u);

    struct Row
    {
        std::vector<unsigned char> bytes;
        bool big, explicitVr;
        uint16_t group, element;
        const char *vr;
        uint32_t length;
        int headerSize;
    } rows[] = {
        // Explicit little endian: 8-byte header with a 16-bit length.
        {{0x28, 0, 0x10, 0, 'U', 'S', 2, 0}, false, true, 0x0028, 0x0010, "US", 2, 8},
        // OB, explicit big endian: 12-byte header with a 32-bit length.
        {{0x7F, 0xE0, 0, 0x10, 'O', 'B', 0, 0, 0, 1, 0, 0},
         true,
         true,
         0x7FE0,
         0x10,
         "OB",
         0x10000,
         12},
        // Implicit little endian: tag and 32-bit length, no VR.
        {{0x10, 0, 0x10, 0, 6, 0, 0, 0}, false, false, 0x0010, 0x0010, "  ", 6, 8},
        // An item carries no VR even in an explicit VR data set.
        {{0xFE, 0xFF, 0, 0xE0, 0xFF, 0xFF, 0xFF, 0xFF},
         false,
         true,
         0xFFFE,
         0xE000,
         "  ",
         0xFFFFFFFF,
         8},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.vr);
        const unsigned char *p = r.bytes.data(), *end = p + r.bytes.size();
        dicom::dicomElementHeader h;
        ASSERT_TRUE(dicom::dicomReadElementHeader(p, end, r.big, r.explicitVr, &h));
        EXPECT_EQ(h.group, r.group);
        EXPECT_EQ(h.element, r.element);
        EXPECT_EQ(std::string(h.vr, 2), r.vr);
        EXPECT_EQ(h.length, r.length);
        EXPECT_EQ(h.headerSize, r.headerSize);
        for (const unsigned char *cut = p; cut < end; ++cut)
            EXPECT_FALSE(dicom::dicomReadElementHeader(p, cut, r.big, r.explicitVr, &h));
    }
}

class AdjustLength : public ::testing::TestWithParam<std::pair<bool, bool>>
{
};

// Undefined lengths are walked to their matching delimiter; anything that
// does not close properly within the data, or nests deeper than 64, is -1.
TEST_P(AdjustLength, FindsTheMatchingDelimiterOrFails)
{
    const auto [big, explicitVr] = GetParam();
    const Bytes none{big, explicitVr, {}};
    // Item 1 of defined length, item 2 of undefined length holding a nested
    // sequence with one item.
    Bytes inner = none;
    inner.text(0x0008, 0x0100, "SH", "T-D1");
    Bytes seq = none;
    seq.item(uint32_t(inner.b.size())).raw(std::string(inner.b.begin(), inner.b.end())).item();
    seq.text(0x0008, 0x0104, "LO", "Chest ").sequence(0x0008, 0x2218);
    seq.item().text(0x0008, 0x0100, "SH", "CODE").itemEnd().sequenceEnd().itemEnd().sequenceEnd();
    const size_t valueSize = seq.b.size();
    for (size_t n = 0; n < valueSize; ++n)
        EXPECT_EQ(seq.adjust(false, n), -1) << "cut after " << n << " bytes";
    seq.text(0x0010, 0x0010, "PN", "Doe^J "); // data after the sequence do not count
    EXPECT_EQ(seq.adjust(false), long(valueSize));

    Bytes item = none; // item content ends at its delimiter, the next item does not count
    item.text(0x0008, 0x0100, "SH", "CODE").itemEnd().item().itemEnd();
    EXPECT_EQ(item.adjust(true), long(item.b.size() - 16));
    EXPECT_EQ(Bytes(none).sequenceEnd().adjust(false), 8);
    EXPECT_EQ(Bytes(none).itemEnd().adjust(true), 8);

    const Bytes broken[] = {
        Bytes(none).item().text(0x0008, 0x0100, "SH", "CODE").sequenceEnd(),     // no item end
        Bytes(none).item().text(0x0008, 0x0100, "SH", "CODE").itemEnd(),         // no sequence end
        Bytes(none).text(0x0008, 0x0100, "SH", "CODE").sequenceEnd(),            // no item at all
        Bytes(none).item(1000).text(0x0008, 0x0100, "SH", "CODE").sequenceEnd(), // item too long
    };
    for (const Bytes &b : broken)
        EXPECT_EQ(b.adjust(false), -1);
    Bytes longElement = none; // an element whose length runs past the data
    longElement.u16(0x0008).u16(0x0100);
    (explicitVr ? longElement.raw("OB").u16(0) : longElement).u32(0x7FFFFFF0).itemEnd();
    EXPECT_EQ(longElement.adjust(true), -1);

    auto nest = [&](int levels, bool closed) {
        Bytes b = none;
        for (int i = 0; i < levels; ++i)
            b.item().sequence(0x0040, 0xA730);
        for (int i = 0; closed && i < levels; ++i)
            b.sequenceEnd().itemEnd();
        return closed ? b.sequenceEnd() : b;
    };
    const Bytes sixty = nest(30, true);
    EXPECT_EQ(sixty.adjust(false), long(sixty.b.size()));
    EXPECT_EQ(nest(40, true).adjust(false), -1) << "80 levels";
    EXPECT_EQ(nest(10000, false).adjust(false), -1) << "without exhausting the stack";

    const unsigned char d[8] = {0xFE, 0xFF, 0xDD, 0xE0, 0, 0, 0, 0};
    EXPECT_EQ(dicom::dicomAdjustLength(nullptr, d + 8, big, explicitVr, false), -1);
    EXPECT_EQ(dicom::dicomAdjustLength(d, nullptr, big, explicitVr, false), -1);
    EXPECT_EQ(dicom::dicomAdjustLength(d + 8, d, big, explicitVr, false), -1);
}

INSTANTIATE_TEST_SUITE_P(Encodings, AdjustLength,
                         ::testing::Values(std::pair{false, true}, std::pair{false, false},
                                           std::pair{true, true}),
                         [](const auto &info) {
                             return std::string(info.param.first ? "Big" : "Little") +
                                    (info.param.second ? "Explicit" : "Implicit");
                         });

} // namespace
