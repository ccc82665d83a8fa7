// The walk over a Directory Record Sequence and extractDicomDir over pydicom's
// DICOMDIRs (pydicom reads the expected IDs) and sequences built byte by byte.
// Corrupted bytes are fuzz/fuzz_dicomdir.cpp's work; dcmmkdir's file sets
// are loaded in tests/apps and read in tests/platform/dicom.

#include "vxdicom/reader/DicomDir.h"
#include "platform/core/VxMessage.h"
#include "platform/dicom/dicom.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

using Ids = std::vector<std::string>;

/// Elements, items and sequences in explicit VR little endian.
struct Bytes
{
    std::string data;

    Bytes &raw(const std::string &s) { return data += s, *this; }
    Bytes &u16(uint16_t v) { return raw({static_cast<char>(v), static_cast<char>(v >> 8)}); }
    Bytes &u32(uint32_t v) { return u16(v & 0xFFFF).u16(static_cast<uint16_t>(v >> 16)); }
    Bytes &element(uint16_t g, uint16_t e, const char *vr, const std::string &value)
    {
        u16(g).u16(e).raw(vr);
        const auto n = static_cast<uint32_t>(value.size());
        return (std::strstr("OB OW SQ UN UT", vr) ? u16(0).u32(n) : u16(static_cast<uint16_t>(n)))
            .raw(value);
    }
    Bytes &undefined(uint16_t g, uint16_t e, const char *vr)
    {
        return u16(g).u16(e).raw(vr).u16(0).u32(~0u);
    }
    Bytes &itemHeader(uint32_t length) { return u16(0xFFFE).u16(0xE000).u32(length); }
    Bytes &itemDelimiter() { return u16(0xFFFE).u16(0xE00D).u32(0); }
    Bytes &sequenceDelimiter() { return u16(0xFFFE).u16(0xE0DD).u32(0); }
    Bytes &item(const Bytes &c, bool undefinedLength = false)
    {
        itemHeader(undefinedLength ? ~0u : static_cast<uint32_t>(c.data.size())).raw(c.data);
        return undefinedLength ? itemDelimiter() : *this;
    }
    Bytes &fileId(const std::string &id) { return element(0x0004, 0x1500, "CS", id); }
};

/// A directory record with the usual leading elements and, when id is not
/// empty, a Referenced File ID.
Bytes record(const std::string &id)
{
    Bytes r;
    r.element(0x0004, 0x1400, "UL", std::string(4, '\0')).element(0x0004, 0x1410, "US", "\xFF\xFF");
    r.element(0x0004, 0x1420, "UL", std::string(4, '\0'));
    r.element(0x0004, 0x1430, "CS", id.empty() ? "PATIENT " : "IMAGE ");
    return id.empty() ? r : r.fileId(id);
}

/// dicomDirFileIds over a heap block of exactly the value's size, so that
/// AddressSanitizer sees any read past it: whether the walk was complete, the IDs.
std::pair<bool, Ids> walk(const std::string &bytes, bool big = false, bool explicitVr = true)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[std::max<size_t>(bytes.size(), 1)]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    KcDArray<KcString> ids;
    const bool complete =
        dicomDirFileIds(bytes.empty() ? nullptr : copy.get(), bytes.size(), big, explicitVr, ids);
    return {complete, Ids(ids.begin(), ids.end())};
}

/// Runs make_dicomdir.py; its output lines (stderr left out).
Ids pydicom(const std::string &arguments)
{
    std::string output;
    EXPECT_EQ(vxtest::runCommand(std::string(VX_PYTHON) +
                                     " " VX_DICOMDIR_TEST_DIR "/make_dicomdir.py " + arguments +
                                     " 2>/dev/null",
                                 &output),
              0)
        << arguments;
    Ids lines;
    std::istringstream in(output);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/// A DICOMDIR written by pydicom with one IMAGE record per id.
void makeDicomDir(const std::string &out, const Ids &ids, const std::string &options = "")
{
    std::string arguments = vxtest::shellQuote(out) + " " + options;
    for (const std::string &id : ids)
        arguments += " --id " + vxtest::shellQuote(id);
    pydicom(arguments);
    ASSERT_TRUE(fs::is_regular_file(out)) << arguments;
}

/// extractDicomDir on the DICOMDIR opened as the reader does, after the names
/// `before` (the DICOMDIR itself when none); the names it added.
Ids extracted(const std::string &dicomDir, Ids before = {})
{
    std::unique_ptr<VxDicomFile> file;
    try {
        file = std::make_unique<VxDicomFile>(dicomDir.c_str(), 0, 1);
    } catch (const char *why) {
        ADD_FAILURE() << dicomDir << ": " << why;
        return {};
    }
    EXPECT_TRUE(file->isDicomDir()) << dicomDir;
    if (before.empty())
        before.push_back(dicomDir);
    KcDArray<KcString> names;
    for (const std::string &n : before)
        names.append(n);
    const int count = extractDicomDir(file.get(), names);
    EXPECT_EQ(count, names.size());
    return Ids(names.begin() + static_cast<int>(before.size()), names.end());
}

/// What the IDs pydicom reads in a DICOMDIR become: blanks around them
/// dropped, joined to the DICOMDIR's folder, '/' for '\'.
Ids expectedNames(const std::string &dicomDir)
{
    Ids ids = pydicom("--list " + vxtest::shellQuote(dicomDir));
    for (std::string &id : ids) {
        id = id.substr(id.find_first_not_of(' '));
        id = id.substr(0, id.find_last_not_of(' ') + 1);
        std::replace(id.begin(), id.end(), '\\', '/');
        id = fs::path(dicomDir).parent_path().string() + "/" + id;
    }
    return ids;
}

} // namespace

TEST(DicomDirWalk, SequencesBuiltByteByByteGiveTheIdsFoundUpToTheirFirstFault)
{
    auto seq = [] { return Bytes().item(record("")); };
    auto kept = [] { return Bytes().item(record("KEPT")); };
    Bytes nestedItem = Bytes().item(Bytes().fileId("NOTME "), true);
    Bytes definedNested = record("SECOND");
    definedNested.element(0x0088, 0x0200, "SQ", nestedItem.data);
    Bytes groupLength = Bytes().element(0x0004, 0x0000, "UL", std::string("\x18\0\0\0", 4));
    groupLength.raw(record("A1").data);
    Bytes un = record(""); // in explicit VR, UN of undefined length holds implicit VR items
    un.undefined(0x0009, 0x1010, "UN").itemHeader(~0u).u16(0x0008).u16(0x1150).u32(8);
    un.raw("1.2.3.4 ").itemDelimiter().sequenceDelimiter().fileId("AFTERUN ");
    Bytes empties;
    for (int i = 0; i < 1000; ++i)
        empties.item(Bytes());
    const std::string lost = record("LOST").data;
    Bytes longId = record("");
    longId.u16(0x0004).u16(0x1500).raw("CS").u16(0xFFF0).raw("SHORT");
    Bytes lastId = record("");
    lastId.u16(0x0004).u16(0x1500).raw("CS").u16(0x4000).raw("END");
    Bytes delimiterInside = record("INSIDE").itemDelimiter();
    Bytes deep = record(""); // deeper than any walk goes
    for (int i = 0; i < 80; ++i)
        deep.undefined(0x0040, 0xA730, "SQ").itemHeader(~0u);
    for (int i = 0; i < 80; ++i)
        deep.itemDelimiter().sequenceDelimiter();
    deep.fileId("DEEP");
    Bytes swallowed = record("");
    swallowed.undefined(0x0088, 0x0200, "SQ").itemHeader(~0u).fileId("SWALLOWED");
    // clang-format off
    const std::tuple<const char *, bool, Bytes, Ids> rows[] = {
        {"blanks and NULs around the ID", true, seq().item(record("IMG0001 "))
             .item(record("  IMAGES\\IMG0001")).item(record(std::string("IMAGES\\IMG01\0", 13)))
             .item(record(std::string("IM\0JUNK", 7))).item(record("        ")),
         {"IMG0001", "IMAGES\\IMG0001", "IMAGES\\IMG01", "IM", ""}},
        {"a nested sequence of defined length", true, seq().item(definedNested), {"SECOND"}},
        {"group length, nothing after the delimiter", true,
         seq().item(groupLength).sequenceDelimiter().item(record("AFTER ")), {"A1"}},
        {"UN of undefined length", true, seq().item(un, true), {"AFTERUN"}},
        {"only empty items", true, empties, {}},
        {"empty value", false, Bytes(), {}},
        {"an item tag alone", false, Bytes().raw(std::string("\xFE\xFF\x00\xE0", 4)), {}},
        {"does not begin with an item", false, Bytes().element(0x0004, 0x1400, "UL", "ABCD"), {}},
        {"item length past the end", false, kept().itemHeader(1u << 30).raw(lost), {"KEPT"}},
        {"element length past the item", false, kept().item(longId), {"KEPT"}},
        {"last file ID past the value", false, kept().itemHeader(~0u).raw(lastId.data), {"KEPT"}},
        {"undefined item, no delimiter", false, kept().itemHeader(~0u).raw(lost), {"KEPT", "LOST"}},
        {"item delimiter inside a defined-length item", false,
         kept().item(delimiterInside).item(record("LOST")), {"KEPT", "INSIDE"}},
        {"an element where an item should be", false, kept().element(8, 5, "CS", "AB"), {"KEPT"}},
        {"item delimiter at sequence level", false, kept().itemDelimiter().item(record("LOST")),
         {"KEPT"}},
        {"stray bytes at the end", false, kept().raw("\xFE\xFF"), {"KEPT"}},
        {"nesting deeper than 64 levels", false, kept().item(deep, true), {"KEPT"}},
        {"nested sequence without its delimiters", false, kept().item(swallowed, true), {"KEPT"}},
    };
    // clang-format on
    for (const auto &[why, complete, bytes, ids] : rows)
        EXPECT_EQ(walk(bytes.data), std::pair(complete, ids)) << why;
}

// DICOMDIRs written by pydicom in every encoding, with and without undefined
// lengths (odd-length IDs padded with a blank, an icon image sequence in each
// record whose own file ID is not a record's), and pydicom's own test set:
// every record's file in order, and every cut of the sequence keeps a prefix.
TEST(DicomDirExtraction, PydicomsDicomDirsGiveWhatPydicomReadsWholeOrCut)
{
    vxtest::TempDir dir;
    std::vector<std::pair<std::string, size_t>> sets; // path, number of records
    for (const char *syntax : {"explicit", "implicit", "big"})
        for (const char *lengths : {"", "--undefined-lengths"}) {
            sets.emplace_back(dir.file(std::string("DIR_") + syntax + lengths), 3);
            makeDicomDir(sets.back().first, {"IMAGES\\CT\\IM0001", "  IMAGES\\IM2", "IM3"},
                         std::string("--syntax ") + syntax + " " + lengths);
        }
    const Ids folderLine = pydicom("--folder");
    const std::string folder = folderLine.empty() ? "" : folderLine[0];
    if (fs::is_regular_file(folder + "/DICOMDIR"))
        for (const char *name : {"DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-bigEnd",
                                 "DICOMDIR-reordered", "DICOMDIR-nooffset"})
            sets.emplace_back(folder + "/" + name, 31);
    else
        std::cout << "pydicom's test DICOMDIRs are not installed (python3-pydicom)\n";
    for (const auto &[path, records] : sets) {
        SCOPED_TRACE(path);
        const Ids names = extracted(path);
        ASSERT_EQ(names.size(), records);
        EXPECT_EQ(names, expectedNames(path));
        for (const std::string &n : names)
            EXPECT_TRUE(records == 3u || fs::is_regular_file(n)) << n;
        if (path.find("-reordered") != std::string::npos ||
            path.find("-nooffset") != std::string::npos)
            continue;
        std::string why;
        dicom::dicomStruct *d = dicom::dicomReadFile(path.c_str(), 1, &why);
        ASSERT_NE(d, nullptr) << why;
        const dicom::dicomDataElement *e = dicom::dicomFindElement(d, 0x0004, 0x1220);
        ASSERT_TRUE(e && e->data && e->length > 0);
        const std::string seq(e->data, e->data + e->length);
        const bool big = d->bigEndian, explicitVr = d->explicitVR;
        dicom::dicomFree(d);
        const Ids ids = walk(seq, big, explicitVr).second;
        for (size_t n = 0; n < seq.size(); ++n) {
            const Ids cut = walk(seq.substr(0, n), big, explicitVr).second;
            ASSERT_LE(cut.size(), ids.size()) << "cut at " << n;
            ASSERT_TRUE(std::equal(cut.begin(), cut.end(), ids.begin())) << "cut at " << n;
        }
    }
}

// File IDs join the folder of the last name; IDs that are empty or leave the
// file set are left out; a CD mounted with lower-case names is matched
// without case, a name found in no case stays as the DICOMDIR says; a File-set
// Consistency Flag of 1 contributes nothing. In the reading loop, a DICOMDIR
// that lists itself is read once.
TEST(DicomDirExtraction, FileIdsResolveInsideTheFolderOfTheLastNameAndEachDicomDirIsReadOnce)
{
    vxtest::TempDir dir;
    for (const char *folder : {"images/series1", "self", "a", "b"})
        fs::create_directories(dir.path() / folder);
    vxtest::writeFileBytes(dir.file("images/series1/img0001"), {1});
    vxtest::writeFileBytes(dir.file("Im2"), {1});
    const std::string dicomDir = dir.file("DICOMDIR");
    makeDicomDir(dicomDir, {"IMAGES\\SERIES1\\IMG0001", "IM2", "MISSING", "..\\..\\ETC\\PASSWD",
                            "  ", "IMAGES\\..\\X"});
    EXPECT_EQ(extracted(dicomDir),
              (Ids{dir.file("images/series1/img0001"), dir.file("Im2"), dir.file("MISSING")}));
    EXPECT_EQ(extracted(dicomDir, {dicomDir, "/elsewhere/x.dcm"}),
              (Ids{"/elsewhere/IMAGES/SERIES1/IMG0001", "/elsewhere/IM2", "/elsewhere/MISSING"}))
        << "the last name's folder, not the DICOMDIR's";
    makeDicomDir(dir.file("FLAGGED"), {"IM2"}, "--inconsistent");
    EXPECT_TRUE(extracted(dir.file("FLAGGED")).empty());

    makeDicomDir(dir.file("self/DICOMDIR"), {"DICOMDIR"});
    makeDicomDir(dir.file("a/DICOMDIR"), {"IMAGES\\A1"});
    makeDicomDir(dir.file("b/DICOMDIR"), {"B1"});
    // a's file ID joins b's folder (the last name then); b's joins the folder
    // of a's reference, which is where the list ended.
    for (const auto &[given, expected] :
         {std::pair{Ids{dir.file("self/DICOMDIR")}, Ids{dir.file("self/DICOMDIR")}},
          std::pair{Ids{dir.file("a/DICOMDIR"), dir.file("b/DICOMDIR")},
                    Ids{dir.file("b/IMAGES/A1"), dir.file("b/IMAGES/B1")}}}) {
        KcDArray<KcString> names;
        for (const std::string &n : given)
            names.append(n);
        KcDArray<VxDicomFile *> files;
        KcDArray<VxDicomImage *> images;
        VxMessageCapture capture;
        readDicomFiles(names, 1, false, files, images);
        EXPECT_TRUE(files.isEmpty());
        EXPECT_EQ(Ids(names.begin() + static_cast<int>(given.size()), names.end()), expected);
        EXPECT_EQ(capture.contains("DICOMDIR " + given[0] +
                                   " was read before; its files are not added again"),
                  given.size() == 1)
            << capture.text();
    }
}
