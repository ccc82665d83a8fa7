// Byte-level helpers on hand-made encodings (PS3.5 7.1 and 7.5).

#include "platform/dicom/dicom.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// Builds encoded bytes in one byte order and VR form.
class Bytes
{
public:
    Bytes(bool bigEndian, bool explicitVR) : big(bigEndian), explicitVr(explicitVR) {}

    Bytes &u16(uint16_t v)
    {
        if (big) {
            b.push_back(uint8_t(v >> 8));
            b.push_back(uint8_t(v));
        } else {
            b.push_back(uint8_t(v));
            b.push_back(uint8_t(v >> 8));
        }
        return *this;
    }
    Bytes &u32(uint32_t v)
    {
        if (big) {
            u16(uint16_t(v >> 16));
            u16(uint16_t(v));
        } else {
            u16(uint16_t(v));
            u16(uint16_t(v >> 16));
        }
        return *this;
    }
    Bytes &raw(const std::string &s)
    {
        b.insert(b.end(), s.begin(), s.end());
        return *this;
    }
    // A short-form element (explicit: 2-byte length) with a text value.
    Bytes &text(uint16_t g, uint16_t e, const char *vr, const std::string &value)
    {
        u16(g).u16(e);
        if (explicitVr)
            raw(vr).u16(uint16_t(value.size()));
        else
            u32(uint32_t(value.size()));
        return raw(value);
    }
    // A sequence header of undefined length.
    Bytes &sequence(uint16_t g, uint16_t e)
    {
        u16(g).u16(e);
        if (explicitVr)
            raw("SQ").u16(0);
        return u32(0xFFFFFFFF);
    }
    Bytes &item(uint32_t length = 0xFFFFFFFF) { return u16(0xFFFE).u16(0xE000).u32(length); }
    Bytes &itemEnd() { return u16(0xFFFE).u16(0xE00D).u32(0); }
    Bytes &sequenceEnd() { return u16(0xFFFE).u16(0xE0DD).u32(0); }

    size_t size() const { return b.size(); }
    const unsigned char *data() const { return b.data(); }
    long adjust(bool isItem, size_t offset = 0, size_t length = size_t(-1)) const
    {
        // An exact-size copy, so that a read past the end shows under ASan.
        const size_t n = std::min(length, b.size() - offset);
        std::vector<unsigned char> copy(b.begin() + long(offset), b.begin() + long(offset + n));
        return dicom::dicomAdjustLength(copy.data(), copy.data() + copy.size(), big, explicitVr,
                                        isItem);
    }

    bool big;
    bool explicitVr;
    std::vector<unsigned char> b;
};

TEST(ByteOrder, ReadsBothOrders)
{
    const unsigned char p[] = {0x12, 0x34, 0x56, 0x78};
    EXPECT_EQ(dicom::dicomRead16bit(p, false), 0x3412);
    EXPECT_EQ(dicom::dicomRead16bit(p, true), 0x1234);
    EXPECT_EQ(dicom::dicomRead32bit(p, false), 0x78563412u);
    EXPECT_EQ(dicom::dicomRead32bit(p, true), 0x12345678u);
}

TEST(ElementHeader, DecodesTheThreeForms)
{
    dicom::dicomElementHeader h;
    // (0028,0010) US, explicit little endian: 8-byte header with a 16-bit length.
    const unsigned char us[] = {0x28, 0x00, 0x10, 0x00, 'U', 'S', 0x02, 0x00, 0x00, 0x02};
    ASSERT_TRUE(dicom::dicomReadElementHeader(us, us + sizeof us, false, true, &h));
    EXPECT_EQ(h.group, 0x0028);
    EXPECT_EQ(h.element, 0x0010);
    EXPECT_EQ(std::string(h.vr, 2), "US");
    EXPECT_EQ(h.length, 2u);
    EXPECT_EQ(h.headerSize, 8);

    // (7FE0,0010) OB, explicit big endian: 12-byte header with a 32-bit length.
    const unsigned char ob[] = {0x7F, 0xE0, 0x00, 0x10, 'O', 'B', 0, 0, 0x00, 0x01, 0x00, 0x00};
    ASSERT_TRUE(dicom::dicomReadElementHeader(ob, ob + sizeof ob, true, true, &h));
    EXPECT_EQ(h.group, 0x7FE0);
    EXPECT_EQ(std::string(h.vr, 2), "OB");
    EXPECT_EQ(h.length, 0x10000u);
    EXPECT_EQ(h.headerSize, 12);
    EXPECT_FALSE(dicom::dicomReadElementHeader(ob, ob + 11, true, true, &h)) << "length cut off";

    // Implicit little endian: tag and 32-bit length, no VR.
    const unsigned char im[] = {0x10, 0x00, 0x10, 0x00, 0x06, 0x00, 0x00, 0x00};
    ASSERT_TRUE(dicom::dicomReadElementHeader(im, im + sizeof im, false, false, &h));
    EXPECT_EQ(std::string(h.vr, 2), "  ");
    EXPECT_EQ(h.length, 6u);
    EXPECT_EQ(h.headerSize, 8);

    // An item carries no VR even in an explicit VR data set.
    const unsigned char item[] = {0xFE, 0xFF, 0x00, 0xE0, 0xFF, 0xFF, 0xFF, 0xFF};
    ASSERT_TRUE(dicom::dicomReadElementHeader(item, item + sizeof item, false, true, &h));
    EXPECT_EQ(h.group, 0xFFFE);
    EXPECT_EQ(h.element, 0xE000);
    EXPECT_EQ(h.length, 0xFFFFFFFFu);
    EXPECT_EQ(h.headerSize, 8);

    EXPECT_FALSE(dicom::dicomReadElementHeader(us, us + 7, false, true, &h));
    EXPECT_FALSE(dicom::dicomReadElementHeader(us, us, false, true, &h));
}

struct Encoding
{
    bool big;
    bool explicitVr;
    const char *name;
};

class AdjustLength : public ::testing::TestWithParam<Encoding>
{
protected:
    Bytes make() const { return Bytes(GetParam().big, GetParam().explicitVr); }
};

// A sequence value: item 1 of defined length, item 2 of undefined length that
// holds a nested sequence of undefined length with one undefined-length item.
Bytes nestedSequence(Bytes b, size_t *valueSize)
{
    Bytes inner(b.big, b.explicitVr);
    inner.text(0x0008, 0x0100, "SH", "T-D1");
    b.item(uint32_t(inner.size())).raw(std::string(inner.b.begin(), inner.b.end()));
    b.item();
    b.text(0x0008, 0x0104, "LO", "Chest ");
    b.sequence(0x0008, 0x2218);
    b.item().text(0x0008, 0x0100, "SH", "CODE").itemEnd();
    b.sequenceEnd();
    b.itemEnd();
    b.sequenceEnd();
    *valueSize = b.size();
    return b;
}

TEST_P(AdjustLength, WalksNestedUndefinedLengthsToTheMatchingDelimiter)
{
    size_t valueSize = 0;
    Bytes b = nestedSequence(make(), &valueSize);
    b.text(0x0010, 0x0010, "PN", "Doe^J "); // data after the sequence are not counted
    EXPECT_EQ(b.adjust(false), long(valueSize));
}

TEST_P(AdjustLength, ItemContentEndsAtTheItemDelimiter)
{
    Bytes b = make();
    b.text(0x0008, 0x0100, "SH", "CODE");
    b.sequence(0x0040, 0xA730).item().text(0x0040, 0xA040, "CS", "TEXT").itemEnd().sequenceEnd();
    const size_t contentAndDelimiter = b.size() + 8;
    b.itemEnd();
    b.item().itemEnd(); // the next item must not count
    EXPECT_EQ(b.adjust(true), long(contentAndDelimiter));
}

TEST_P(AdjustLength, EmptyValuesAreJustTheirDelimiter)
{
    Bytes seq = make();
    seq.sequenceEnd();
    EXPECT_EQ(seq.adjust(false), 8);
    Bytes item = make();
    item.itemEnd();
    EXPECT_EQ(item.adjust(true), 8);
}

TEST_P(AdjustLength, EveryTruncationFails)
{
    size_t valueSize = 0;
    const Bytes b = nestedSequence(make(), &valueSize);
    for (size_t n = 0; n < valueSize; ++n)
        EXPECT_EQ(b.adjust(false, 0, n), -1) << "cut after " << n << " bytes";
}

TEST_P(AdjustLength, MissingDelimitersFail)
{
    // The item delimiter is missing: the sequence delimiter turns up inside the item.
    Bytes noItemEnd = make();
    noItemEnd.item().text(0x0008, 0x0100, "SH", "CODE").sequenceEnd();
    EXPECT_EQ(noItemEnd.adjust(false), -1);

    // The sequence delimiter is missing: the data end after the last item.
    Bytes noSequenceEnd = make();
    noSequenceEnd.item().text(0x0008, 0x0100, "SH", "CODE").itemEnd();
    EXPECT_EQ(noSequenceEnd.adjust(false), -1);

    // An element where an item must be.
    Bytes noItem = make();
    noItem.text(0x0008, 0x0100, "SH", "CODE").sequenceEnd();
    EXPECT_EQ(noItem.adjust(false), -1);

    // An item whose defined length runs past the data.
    Bytes longItem = make();
    longItem.item(1000).text(0x0008, 0x0100, "SH", "CODE").sequenceEnd();
    EXPECT_EQ(longItem.adjust(false), -1);

    // An element whose defined length runs past the data.
    Bytes longElement = make();
    longElement.u16(0x0008).u16(0x0100);
    if (longElement.explicitVr)
        longElement.raw("OB").u16(0).u32(0x7FFFFFF0);
    else
        longElement.u32(0x7FFFFFF0);
    longElement.itemEnd();
    EXPECT_EQ(longElement.adjust(true), -1);
}

TEST_P(AdjustLength, NestingIsLimitedTo64Levels)
{
    auto nest = [this](int levels) {
        Bytes b = make();
        for (int i = 0; i < levels; ++i)
            b.item().sequence(0x0040, 0xA730);
        for (int i = 0; i < levels; ++i)
            b.sequenceEnd().itemEnd();
        b.sequenceEnd();
        return b;
    };
    const Bytes fine = nest(30); // 60 levels of items and sequences
    EXPECT_EQ(fine.adjust(false), long(fine.size()));
    const Bytes runaway = nest(40); // 80 levels
    EXPECT_EQ(runaway.adjust(false), -1);
    // Without delimiters at all, very deep: fails without exhausting the stack.
    Bytes deep = make();
    for (int i = 0; i < 10000; ++i)
        deep.item().sequence(0x0040, 0xA730);
    EXPECT_EQ(deep.adjust(false), -1);
}

TEST(AdjustLengthArguments, NullOrReversedRangesFail)
{
    const unsigned char d[8] = {0xFE, 0xFF, 0xDD, 0xE0, 0, 0, 0, 0};
    EXPECT_EQ(dicom::dicomAdjustLength(nullptr, d + 8, false, true, false), -1);
    EXPECT_EQ(dicom::dicomAdjustLength(d, nullptr, false, true, false), -1);
    EXPECT_EQ(dicom::dicomAdjustLength(d + 8, d, false, true, false), -1);
    EXPECT_EQ(dicom::dicomAdjustLength(d, d + 8, false, true, false), 8);
}

INSTANTIATE_TEST_SUITE_P(Encodings, AdjustLength,
                         ::testing::Values(Encoding{false, true, "ExplicitLittle"},
                                           Encoding{false, false, "ImplicitLittle"},
                                           Encoding{true, true, "ExplicitBig"}),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
