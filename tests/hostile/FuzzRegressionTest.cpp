// The faults the fuzz targets found, each with its input made here (under the sanitizers a
// return of the fault fails on its own; the assertions check what the code must do instead).

#include "tests/hostile/Hostile.h"

#include "platform/dicom/dicom.h"
#include "vxdicom/reader/DicomDir.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/stacks/DicomLoadOption.h"

#include <gtest/gtest.h>

using namespace hostile;

namespace {

// A DICOMDIR with one IMAGE record of that type, or no records when `recordType` is null.
Bytes dicomDir(const char *recordType)
{
    const Bytes record =
        recordType ? encodeItem(encodeElement(0x0004, 0x1400, "UL", le(0, 4)) +
                                encodeElement(0x0004, 0x1410, "US", le(0xFFFF, 2)) +
                                encodeElement(0x0004, 0x1420, "UL", le(0, 4)) +
                                encodeElement(0x0004, 0x1430, "CS", text(recordType)) +
                                encodeElement(0x0004, 0x1500, "CS", text("IMAGES\\IM000001")))
                   : Bytes();
    return part10File("1.2.840.10008.1.3.10", "1.2.840.10008.1.2.1",
                      encodeElement(0x0004, 0x1130, "CS", {}) +
                          encodeElement(0x0004, 0x1200, "UL", le(0, 4)) +
                          encodeElement(0x0004, 0x1202, "UL", le(0, 4)) +
                          encodeElement(0x0004, 0x1212, "US", le(0, 2)) +
                          encodeElement(0x0004, 0x1220, "SQ", record));
}

// A stored policy number outside the five bits was cast into an enumeration without it.
TEST(FuzzRegression, StoredPolicyNumbersOutsideTheBitsReadBackUnchanged)
{
    DicomLoadOption option;
    ASSERT_TRUE(option.fromString("1|2|1444444|4|x"));
    EXPECT_EQ(static_cast<int>(option.value), 1444444);
    EXPECT_EQ(DicomLoadOption::description(option.value), "unused");
    EXPECT_EQ(option.toString(), "<1|2|1444444|4|x>");
    ASSERT_TRUE(option.fromString("-1|-1|-7|23|load index"));
    EXPECT_EQ(static_cast<int>(option.value), -7);
    EXPECT_EQ(option.getOption(3), DicomLoadOption::Linear);
}

// A record type longer than a code string (also nested) made DCMTK throw and leak the data
// set; an empty record sequence handed memcpy a null buffer.
TEST(FuzzRegression, DicomDirsWithOverlongRecordTypesOrNoRecordsAreRead)
{
    vxtest::TempDir dir;
    Bytes nested = dicomDir("IMAGE");
    const Bytes inner = encodeElement(
        0x0004, 0x1220, "SQ",
        encodeItem(encodeElement(0x0004, 0x1430, "CS", text("IMAGE\\SERIESSERIESSERIES"))));
    const Element records = findElement(nested, 0x0004, 0x1220);
    nested.insert(nested.begin() + long(records.value + records.length), inner.begin(),
                  inner.end());
    put(nested, records.value + 4, read(nested, records.value + 4, 4) + uint32_t(inner.size()), 4);
    put(nested, records.lengthField, records.length + uint32_t(inner.size()), 4);
    for (const auto &[name, bytes, n] :
         {std::tuple("DICOMDIR", dicomDir("PATIENTPATIENTPATIENT"), 2),
          std::tuple("NESTED", nested, 2), std::tuple("EMPTY", dicomDir(nullptr), 1)}) {
        SCOPED_TRACE(name);
        const std::string path = dir.file(name);
        vxtest::writeFileBytes(path, bytes);
        VxDicomFile file(path.c_str(), 0, 1);
        ASSERT_TRUE(file.isDicomDir());
        EXPECT_NE(dicom::dicomFindElement(file.data, 0x0004, 0x1220), nullptr);
        EXPECT_EQ(dicom::dicomFindElement(file.data, 0x0004, 0x1221), nullptr);
        KcDArray<KcString> names;
        names.append(path);
        EXPECT_EQ(extractDicomDir(&file, names), n);
        EXPECT_EQ(names.last(), n == 2 ? dir.file("IMAGES/IM000001") : path);
    }
}

// A meta group length claiming the whole file made DCMTK read the data set into the meta header.
TEST(FuzzRegression, MetaGroupLengthClaimingTheWholeFileLeavesTheDataSetWhereItIs)
{
    VX_REQUIRE_SHARED_DATA();
    Bytes file = vxtest::readFileBytes(vxtest::sharedPath(kSource));
    const Element groupLength = findElement(file, 0x0002, 0x0000);
    put(file, groupLength.value, uint32_t(file.size() - groupLength.value - 4), 4);
    vxtest::TempDir dir;
    vxtest::writeFileBytes(dir.file("meta.dcm"), file);
    VxDicomFile parsed(dir.file("meta.dcm").c_str(), 0, 0);
    ASSERT_EQ(parsed.images.size(), 1);
    EXPECT_EQ(parsed.data->rows, 256);
    const dicom::dicomDataElement *pixels = dicom::dicomFindElement(parsed.data, 0x7FE0, 0x0010);
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(pixels->data, nullptr);
    EXPECT_EQ(pixels->length, 256 * 256 * 2);
}

} // namespace
