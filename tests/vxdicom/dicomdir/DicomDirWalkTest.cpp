// The walk over a Directory Record Sequence: what it takes from well-formed
// sequences in every encoding, and that malformed or hostile bytes end it
// with the names found so far, inside the value and in bounded time.

#include "platform/dicom/dicom.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/dicomdir/DicomDirTestSupport.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using namespace dicomdirtest;

namespace {

using Ids = std::vector<std::string>;

struct Encoding
{
    const char *name;
    bool big;
    bool explicitVr;
};

const Encoding kEncodings[] = {
    {"explicit little endian", false, true},
    {"implicit little endian", false, false},
    {"explicit big endian", true, true},
};

// A sequence of one patient record and one image record per id.
Bytes sequenceOf(const Encoding &enc, const Ids &ids, bool undefinedItems)
{
    Bytes seq(enc.big, enc.explicitVr);
    seq.item(record(enc.big, enc.explicitVr, ""), undefinedItems);
    for (const std::string &id : ids)
        seq.item(record(enc.big, enc.explicitVr, id), undefinedItems);
    return seq;
}

class DicomDirWalkEncodings : public ::testing::TestWithParam<Encoding>
{
};

} // namespace

TEST_P(DicomDirWalkEncodings, TakesEveryFileIdInRecordOrderWithoutPadding)
{
    const Encoding enc = GetParam();
    // Odd-length IDs are padded with a blank, as CS values are.
    const Ids stored = {"IMAGES\\CT\\IM0001 ", "IMAGES\\CT\\IM0002 ", "IM3 "};
    const Ids expected = {"IMAGES\\CT\\IM0001", "IMAGES\\CT\\IM0002", "IM3"};
    for (bool undefinedItems : {false, true}) {
        const WalkResult r =
            walk(sequenceOf(enc, stored, undefinedItems).data(), enc.big, enc.explicitVr);
        EXPECT_TRUE(r.complete) << (undefinedItems ? "items of undefined length" : "");
        EXPECT_EQ(r.ids, expected) << (undefinedItems ? "items of undefined length" : "");
    }
}

TEST_P(DicomDirWalkEncodings, NestedSequencesAreSkippedWhateverTheirLength)
{
    const Encoding enc = GetParam();
    // An icon image sequence inside an image record: its own (0004,1500) is
    // not a record's file ID.
    Bytes nestedItem(enc.big, enc.explicitVr);
    nestedItem.fileId("NOTME ");
    Bytes nestedItems(enc.big, enc.explicitVr);
    nestedItems.item(nestedItem, true);

    Bytes undefinedNested = record(enc.big, enc.explicitVr, "FIRST ");
    undefinedNested.undefinedHeader(0x0088, 0x0200, "SQ").append(nestedItems).sequenceDelimiter();
    Bytes definedNested = record(enc.big, enc.explicitVr, "SECOND");
    definedNested.element(0x0088, 0x0200, "SQ",
                          std::string(nestedItems.data().begin(), nestedItems.data().end()));

    Bytes seq(enc.big, enc.explicitVr);
    seq.item(undefinedNested, true).item(definedNested, false);
    const WalkResult r = walk(seq.data(), enc.big, enc.explicitVr);
    EXPECT_TRUE(r.complete);
    EXPECT_EQ(r.ids, (Ids{"FIRST", "SECOND"}));
}

TEST_P(DicomDirWalkEncodings, GroupLengthAndSequenceDelimiterAreHonoured)
{
    const Encoding enc = GetParam();
    Bytes groupLength(enc.big, false);
    groupLength.u32(24);
    Bytes withLength(enc.big, enc.explicitVr);
    withLength.element(0x0004, 0x0000, "UL",
                       std::string(groupLength.data().begin(), groupLength.data().end()));
    withLength.append(record(enc.big, enc.explicitVr, "A1"));

    Bytes seq(enc.big, enc.explicitVr);
    seq.item(withLength).sequenceDelimiter();
    // After the sequence delimiter nothing belongs to the sequence.
    seq.item(record(enc.big, enc.explicitVr, "AFTER "));
    const WalkResult r = walk(seq.data(), enc.big, enc.explicitVr);
    EXPECT_TRUE(r.complete);
    EXPECT_EQ(r.ids, Ids{"A1"});
}

INSTANTIATE_TEST_SUITE_P(AllEncodings, DicomDirWalkEncodings, ::testing::ValuesIn(kEncodings),
                         [](const ::testing::TestParamInfo<Encoding> &info) {
                             std::string n = info.param.name;
                             for (char &c : n)
                                 if (c == ' ')
                                     c = '_';
                             return n;
                         });

TEST(DicomDirWalk, PaddingAndBlanksAroundTheIdAreStripped)
{
    struct Row
    {
        std::string stored;
        const char *expected;
        const char *why;
    };
    const Row rows[] = {
        {"IMG0001 ", "IMG0001", "blank padding of an odd length"},
        {"  IMAGES\\IMG0001", "IMAGES\\IMG0001", "leading blanks"},
        {std::string("IMAGES\\IMG01\0", 13), "IMAGES\\IMG01", "NUL padding of some writers"},
        {std::string("IM\0JUNK", 7), "IM", "nothing after a NUL is text"},
        {"        ", "", "blanks only"},
    };
    for (const Row &row : rows) {
        Bytes seq(false, true);
        seq.item(record(false, true, row.stored));
        const WalkResult r = walk(seq.data(), false, true);
        ASSERT_EQ(r.ids.size(), 1u) << row.why;
        EXPECT_EQ(r.ids[0], row.expected) << row.why;
    }
}

TEST(DicomDirWalk, UnknownVrOfUndefinedLengthHoldsImplicitItems)
{
    // CP-246: in explicit VR, a UN element of undefined length holds its
    // items in implicit VR little endian.
    Bytes implicitItem(false, false);
    implicitItem.element(0x0008, 0x1150, "UI", "1.2.3.4 ");
    Bytes inner(false, false);
    inner.item(implicitItem, true);
    Bytes rec = record(false, true, "");
    rec.undefinedHeader(0x0009, 0x1010, "UN").append(inner).sequenceDelimiter();
    rec.fileId("AFTERUN ");
    Bytes seq(false, true);
    seq.item(rec, true);
    const WalkResult r = walk(seq.data(), false, true);
    EXPECT_TRUE(r.complete);
    EXPECT_EQ(r.ids, Ids{"AFTERUN"});
}

TEST(DicomDirWalk, MalformedSequencesEndTheWalkWithTheNamesFoundSoFar)
{
    struct Case
    {
        const char *why;
        Bytes bytes;
        Ids expected;
    };
    std::vector<Case> cases;
    const bool b = false, x = true;

    {
        Bytes s(b, x);
        s.element(0x0004, 0x1400, "UL", std::string(4, '\0'));
        cases.push_back({"does not begin with an item", s, {}});
    }
    {
        Bytes s(b, x);
        s.item(record(b, x, "KEPT")).itemHeader(0x7FFFFFF0).append(record(b, x, "LOST"));
        cases.push_back({"item length past the end", s, {"KEPT"}});
    }
    {
        Bytes rec = record(b, x, "");
        rec.u16(0x0004).u16(0x1500).raw("CS").u16(0xFFF0).raw("SHORT");
        Bytes s(b, x);
        s.item(record(b, x, "KEPT")).item(rec);
        cases.push_back({"element length past the item", s, {"KEPT"}});
    }
    {
        Bytes rec = record(b, x, "");
        rec.u16(0x0004).u16(0x1500).raw("CS").u16(0x4000).raw("END");
        Bytes s(b, x);
        s.item(record(b, x, "KEPT")).itemHeader(0xFFFFFFFFu).append(rec);
        cases.push_back({"last file ID longer than the value", s, {"KEPT"}});
    }
    {
        Bytes s(b, x);
        s.item(record(b, x, "KEPT")).itemHeader(0xFFFFFFFFu).append(record(b, x, "LOST"));
        cases.push_back({"undefined-length item without a delimiter", s, {"KEPT", "LOST"}});
    }
    {
        Bytes rec = record(b, x, "INSIDE");
        rec.itemDelimiter();
        Bytes s(b, x);
        s.item(record(b, x, "KEPT")).item(rec).item(record(b, x, "LOST"));
        cases.push_back({"item delimiter inside a defined-length item", s, {"KEPT", "INSIDE"}});
    }
    {
        Bytes s(b, x);
        s.item(record(b, x, "KEPT")).u16(0x0008).u16(0x0005).raw("CS").u16(2).raw("AB");
        cases.push_back({"an element where an item should be", s, {"KEPT"}});
    }
    {
        Bytes s(b, x);
        s.item(record(b, x, "KEPT")).u16(0xFFFE).u16(0xE00D).u32(0).item(record(b, x, "LOST"));
        cases.push_back({"item delimiter at sequence level", s, {"KEPT"}});
    }
    {
        Bytes s(b, x);
        s.item(record(b, x, "KEPT")).raw("\xFE\xFF\x00");
        cases.push_back({"three stray bytes at the end", s, {"KEPT"}});
    }
    {
        // 80 nested sequences of undefined length, deeper than any walk goes.
        Bytes rec = record(b, x, "");
        for (int i = 0; i < 80; ++i)
            rec.undefinedHeader(0x0040, 0xA730, "SQ").itemHeader(0xFFFFFFFFu);
        for (int i = 0; i < 80; ++i)
            rec.itemDelimiter().sequenceDelimiter();
        rec.fileId("DEEP");
        Bytes s(b, x);
        s.item(record(b, x, "KEPT")).item(rec, true);
        cases.push_back({"nesting deeper than 64 levels", s, {"KEPT"}});
    }
    {
        Bytes rec = record(b, x, "");
        rec.undefinedHeader(0x0088, 0x0200, "SQ").itemHeader(0xFFFFFFFFu);
        rec.fileId("SWALLOWED");
        Bytes s(b, x);
        s.item(record(b, x, "KEPT")).item(rec, true);
        cases.push_back({"nested sequence without its delimiters", s, {"KEPT"}});
    }

    for (const Case &c : cases) {
        const WalkResult r = walk(c.bytes.data(), b, x);
        EXPECT_FALSE(r.complete) << c.why;
        EXPECT_EQ(r.ids, c.expected) << c.why;
    }
}

TEST(DicomDirWalk, EmptyAndTinyValuesGiveNothing)
{
    EXPECT_FALSE(walk({}, false, true).complete);
    EXPECT_FALSE(walk({0xFE, 0xFF, 0x00, 0xE0}, false, true).complete);
    Bytes onlyEmptyItems(false, true);
    for (int i = 0; i < 1000; ++i)
        onlyEmptyItems.item(Bytes(false, true));
    const WalkResult r = walk(onlyEmptyItems.data(), false, true);
    EXPECT_TRUE(r.complete);
    EXPECT_TRUE(r.ids.empty());
}

namespace {

// The encoded record sequence of a real DICOMDIR, as the DICOM layer hands it out.
struct RealSequence
{
    std::vector<unsigned char> bytes;
    bool big = false;
    bool explicitVr = true;
};

bool readRecords(const std::string &path, RealSequence &out)
{
    std::string why;
    dicom::dicomStruct *d = dicom::dicomReadFile(path.c_str(), 1, &why);
    if (!d) {
        ADD_FAILURE() << path << ": " << why;
        return false;
    }
    const dicom::dicomDataElement *e = dicom::dicomFindElement(d, 0x0004, 0x1220);
    const bool ok = e && e->data && e->length > 0;
    if (ok) {
        out.bytes.assign(e->data, e->data + e->length);
        out.big = d->bigEndian;
        out.explicitVr = d->explicitVR;
    }
    EXPECT_TRUE(d->isDicomDir) << path;
    dicom::dicomFree(d);
    return ok;
}

} // namespace

TEST(DicomDirWalk, PydicomsDicomDirsInThreeEncodingsGiveTheFileIdsPydicomReads)
{
    const std::string folder = pydicomDicomDirFolder();
    if (folder.empty())
        GTEST_SKIP() << "pydicom's test DICOMDIRs are not installed (python3-pydicom)";
    for (const char *name : {"DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-bigEnd",
                             "DICOMDIR-reordered", "DICOMDIR-nooffset"}) {
        const std::string path = folder + "/" + name;
        RealSequence seq;
        ASSERT_TRUE(readRecords(path, seq)) << name;
        const Ids expected = pydicomFileIds(path);
        ASSERT_EQ(expected.size(), 31u) << name;
        const WalkResult r = walk(seq.bytes, seq.big, seq.explicitVr);
        EXPECT_TRUE(r.complete) << name;
        EXPECT_EQ(r.ids, expected) << name;
    }
}

TEST(DicomDirWalk, EveryTruncationOfARealSequenceKeepsAPrefixOfItsIds)
{
    const std::string folder = pydicomDicomDirFolder();
    if (folder.empty())
        GTEST_SKIP() << "pydicom's test DICOMDIRs are not installed (python3-pydicom)";
    for (const char *name : {"DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-bigEnd"}) {
        RealSequence seq;
        ASSERT_TRUE(readRecords(folder + "/" + name, seq));
        const Ids full = walk(seq.bytes, seq.big, seq.explicitVr).ids;
        ASSERT_EQ(full.size(), 31u);
        for (size_t n = 0; n < seq.bytes.size(); ++n) {
            const std::vector<unsigned char> cut(seq.bytes.begin(), seq.bytes.begin() + n);
            const WalkResult r = walk(cut, seq.big, seq.explicitVr);
            ASSERT_LE(r.ids.size(), full.size()) << name << " cut at " << n;
            for (size_t k = 0; k < r.ids.size(); ++k)
                ASSERT_EQ(r.ids[k], full[k]) << name << " cut at " << n;
        }
    }
}

TEST(DicomDirWalk, CorruptedRealSequencesStayInsideTheValue)
{
    const std::string folder = pydicomDicomDirFolder();
    if (folder.empty())
        GTEST_SKIP() << "pydicom's test DICOMDIRs are not installed (python3-pydicom)";
    for (const char *name : {"DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-bigEnd"}) {
        RealSequence seq;
        ASSERT_TRUE(readRecords(folder + "/" + name, seq));
        const size_t size = seq.bytes.size();
        // Every byte in turn set to 0xFF: each length field once turns huge
        // or undefined, each tag once into a delimiter, the last record's
        // among them, whose values end where the buffer ends.
        for (size_t at = 0; at < size; ++at) {
            std::vector<unsigned char> bytes = seq.bytes;
            bytes[at] = 0xFF;
            const WalkResult r = walk(bytes, seq.big, seq.explicitVr);
            ASSERT_LE(r.ids.size(), 31u) << name << " byte " << at;
        }
        // And random bytes at a few random places.
        std::mt19937 random(20240607);
        std::uniform_int_distribution<size_t> place(0, size - 1);
        std::uniform_int_distribution<int> byte(0, 255);
        std::uniform_int_distribution<int> flips(1, 8);
        for (int mutant = 0; mutant < 2000; ++mutant) {
            std::vector<unsigned char> bytes = seq.bytes;
            for (int k = flips(random); k > 0; --k)
                bytes[place(random)] = static_cast<unsigned char>(byte(random));
            const WalkResult r = walk(bytes, seq.big, seq.explicitVr);
            ASSERT_LE(r.ids.size(), size / 8) << name << " mutant " << mutant;
        }
    }
}
