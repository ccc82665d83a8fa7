// The faults the fuzz targets found, each kept with its input made here.
// Under the sanitizers of CI a return of the fault is a failure of its own
// (undefined behaviour, a leak at exit); the assertions check what the code
// must do instead.

#include "tests/hostile/BrokenFiles.h"
#include "tests/hostile/HostileLoad.h"
#include "tests/support/TestSupport.h"

#include "platform/dicom/dicom.h"
#include "vxdicom/reader/DicomDir.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/stacks/DicomLoadOption.h"

#include <gtest/gtest.h>

#include <memory>

using namespace hostile;

namespace {

Bytes cs(const std::string &s)
{
    Bytes b(s.begin(), s.end());
    if (b.size() % 2)
        b.push_back(' ');
    return b;
}

Bytes ul(uint32_t v)
{
    Bytes b(4);
    put32(b, 0, v);
    return b;
}

Bytes us(uint16_t v)
{
    Bytes b(2);
    put16(b, 0, v);
    return b;
}

// A DICOMDIR with one IMAGE record of the given type, or with an empty
// Directory Record Sequence when `recordType` is null.
Bytes dicomDir(const char *recordType)
{
    Bytes records;
    if (recordType) {
        Bytes record;
        for (const Bytes &e : {encodeElement(0x0004, 0x1400, "UL", ul(0)),
                               encodeElement(0x0004, 0x1410, "US", us(0xFFFF)),
                               encodeElement(0x0004, 0x1420, "UL", ul(0)),
                               encodeElement(0x0004, 0x1430, "CS", cs(recordType)),
                               encodeElement(0x0004, 0x1500, "CS", cs("IMAGES\\IM000001"))})
            record.insert(record.end(), e.begin(), e.end());
        records = encodeItem(record);
    }
    Bytes dataSet;
    for (const Bytes &e :
         {encodeElement(0x0004, 0x1130, "CS", {}), encodeElement(0x0004, 0x1200, "UL", ul(0)),
          encodeElement(0x0004, 0x1202, "UL", ul(0)), encodeElement(0x0004, 0x1212, "US", us(0)),
          encodeElement(0x0004, 0x1220, "SQ", records)})
        dataSet.insert(dataSet.end(), e.begin(), e.end());
    return part10File("1.2.840.10008.1.3.10", "1.2.840.10008.1.2.1", dataSet);
}

// fuzz_load_option: a stored policy number outside the five bits was cast
// into the policy enumeration, which had no such value (undefined behaviour
// on every later read of it).
TEST(FuzzRegression, StoredPolicyNumbersOutsideTheBitsReadBackUnchanged)
{
    DicomLoadOption option;
    ASSERT_TRUE(option.fromString("1|2|1444444|4|x"));
    EXPECT_EQ(static_cast<int>(option.value), 1444444);
    EXPECT_EQ(DicomLoadOption::description(option.value), "unused");
    EXPECT_EQ(option.toString(), "<1|2|1444444|4|x>");
    DicomLoadOption negative;
    ASSERT_TRUE(negative.fromString("-1|-1|-7|23|load index"));
    EXPECT_EQ(static_cast<int>(negative.value), -7);
    EXPECT_EQ(negative.getOption(3), DicomLoadOption::Linear);
}

// fuzz_dicomdir: a directory record type longer than 16 characters made
// DCMTK throw std::out_of_range while parsing (its corrected copy of the
// code string) and leak the half-read data set. DCMTK reads the records as
// plain items now, so no record type is checked; the files are read, their
// sequences keep their tag, and their file IDs are found.
TEST(FuzzRegression, DirectoryRecordTypeLongerThanACodeStringIsReadWithoutDcmtkChecks)
{
    vxtest::TempDir dir;
    const std::string bad = dir.file("DICOMDIR");
    vxtest::writeFileBytes(bad, dicomDir("PATIENTPATIENTPATIENT"));

    // Also when the type is one value among others, in a record sequence
    // nested in the record.
    Bytes nested = dicomDir("IMAGE");
    const Bytes inner = encodeElement(
        0x0004, 0x1220, "SQ",
        encodeItem(encodeElement(0x0004, 0x1430, "CS", cs("IMAGE\\SERIESSERIESSERIES"))));
    const Element records = findElement(nested, 0x0004, 0x1220);
    const size_t recordEnd = records.value + records.length; // the end of the one record
    nested.insert(nested.begin() + long(recordEnd), inner.begin(), inner.end());
    put32(nested, records.value + 4, read32(nested, records.value + 4) + uint32_t(inner.size()));
    put32(nested, records.lengthField, records.length + uint32_t(inner.size()));
    const std::string deep = dir.file("NESTED");
    vxtest::writeFileBytes(deep, nested);

    for (const std::string &path : {bad, deep}) {
        SCOPED_TRACE(path);
        VxDicomFile file(path.c_str(), 0, 1);
        ASSERT_TRUE(file.isDicomDir());
        const dicom::dicomDataElement *sequence =
            dicom::dicomFindElement(file.data, 0x0004, 0x1220);
        ASSERT_NE(sequence, nullptr);
        EXPECT_EQ(dicom::dicomFindElement(file.data, 0x0004, 0x1221), nullptr);
        KcDArray<KcString> names;
        names.append(path);
        EXPECT_EQ(extractDicomDir(&file, names), 2);
        EXPECT_EQ(names.last(), dir.file("IMAGES/IM000001"));
    }
}

// fuzz_dicom_parse: an empty Directory Record Sequence handed memcpy a null
// buffer (undefined behaviour even for zero bytes).
TEST(FuzzRegression, EmptyDirectoryRecordSequenceReadsAsAnEmptyDicomDir)
{
    vxtest::TempDir dir;
    const std::string path = dir.file("DICOMDIR");
    vxtest::writeFileBytes(path, dicomDir(nullptr));
    VxDicomFile file(path.c_str(), 0, 1);
    EXPECT_TRUE(file.isDicomDir());
    KcDArray<KcString> names;
    names.append(path);
    EXPECT_EQ(extractDicomDir(&file, names), 1);
}

// fuzz_dicom_parse: a meta group length that claims the whole file made
// DCMTK read the data set, Pixel Data included, as part of the meta header;
// the pixel element then carried its value and the file gave no image. The
// meta header is read by its group number now.
TEST(FuzzRegression, MetaGroupLengthClaimingTheWholeFileLeavesTheDataSetWhereItIs)
{
    VX_REQUIRE_SHARED_DATA();
    Bytes file = vxtest::readFileBytes(
        vxtest::sharedPath("dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag/"
                           "0001_1.3.12.2.1107.5.2.43.67060.2022040715140258030663181.dcm"));
    const Element groupLength = findElement(file, 0x0002, 0x0000);
    put32(file, groupLength.value, uint32_t(file.size() - groupLength.value - 4));
    vxtest::TempDir dir;
    const std::string path = dir.file("meta.dcm");
    vxtest::writeFileBytes(path, file);
    VxDicomFile parsed(path.c_str(), 0, 0);
    ASSERT_EQ(parsed.images.size(), 1);
    EXPECT_EQ(parsed.data->rows, 256);
    const dicom::dicomDataElement *pixels = dicom::dicomFindElement(parsed.data, 0x7FE0, 0x0010);
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(pixels->data, nullptr);
    EXPECT_EQ(pixels->length, 256 * 256 * 2);
}

} // namespace
