// The walk over a Directory Record Sequence and extractDicomDir: sequences
// built byte by byte in every encoding, malformed ones, DICOMDIRs made by
// pydicom and by DCMTK's dcmmkdir over real scanner files, and the reading
// loop around them. pydicom reads the expected file IDs.

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
#include <memory>
#include <random>
#include <sstream>

namespace fs = std::filesystem;

namespace {

using Ids = std::vector<std::string>;

/// Elements, items and sequences in one byte order and VR form.
struct Bytes
{
    bool big, explicitVr;
    std::vector<unsigned char> data;

    Bytes &u16(uint16_t v)
    {
        for (int i : {big ? 8 : 0, big ? 0 : 8})
            data.push_back(static_cast<unsigned char>(v >> i));
        return *this;
    }
    Bytes &u32(uint32_t v)
    {
        return big ? u16(static_cast<uint16_t>(v >> 16)).u16(static_cast<uint16_t>(v))
                   : u16(static_cast<uint16_t>(v)).u16(static_cast<uint16_t>(v >> 16));
    }
    Bytes &raw(const std::string &s)
    {
        data.insert(data.end(), s.begin(), s.end());
        return *this;
    }
    Bytes &append(const Bytes &b)
    {
        data.insert(data.end(), b.data.begin(), b.data.end());
        return *this;
    }
    Bytes &element(uint16_t g, uint16_t e, const char *vr, const std::string &value)
    {
        u16(g).u16(e);
        const auto n = static_cast<uint32_t>(value.size());
        if (!explicitVr)
            u32(n);
        else if (std::strstr("OB OW SQ UN UT", vr))
            raw(std::string(vr, 2)).u16(0).u32(n);
        else
            raw(std::string(vr, 2)).u16(static_cast<uint16_t>(n));
        return raw(value);
    }
    Bytes &undefinedHeader(uint16_t g, uint16_t e, const char *vr)
    {
        u16(g).u16(e);
        if (explicitVr)
            raw(std::string(vr, 2)).u16(0);
        return u32(0xFFFFFFFFu);
    }
    Bytes &itemHeader(uint32_t length) { return u16(0xFFFE).u16(0xE000).u32(length); }
    Bytes &itemDelimiter() { return u16(0xFFFE).u16(0xE00D).u32(0); }
    Bytes &sequenceDelimiter() { return u16(0xFFFE).u16(0xE0DD).u32(0); }
    Bytes &item(const Bytes &content, bool undefinedLength = false)
    {
        itemHeader(undefinedLength ? 0xFFFFFFFFu : static_cast<uint32_t>(content.data.size()));
        append(content);
        return undefinedLength ? itemDelimiter() : *this;
    }
    Bytes &fileId(const std::string &id) { return element(0x0004, 0x1500, "CS", id); }
    std::string text() const { return std::string(data.begin(), data.end()); }
    /// A directory record with the usual leading elements and, when id is
    /// not empty, a Referenced File ID.
    Bytes record(const std::string &id) const
    {
        Bytes r{big, explicitVr, {}}, zero{big, false, {}}, inUse{big, false, {}};
        zero.u32(0);
        inUse.u16(0xFFFF);
        r.element(0x0004, 0x1400, "UL", zero.text()).element(0x0004, 0x1410, "US", inUse.text());
        r.element(0x0004, 0x1420, "UL", zero.text());
        r.element(0x0004, 0x1430, "CS", id.empty() ? "PATIENT " : "IMAGE ");
        return id.empty() ? r : r.fileId(id);
    }
    Bytes empty() const { return Bytes{big, explicitVr, {}}; }
};

struct WalkResult
{
    bool complete = false;
    Ids ids;
};

/// dicomDirFileIds over a heap block of exactly the value's size, so that
/// AddressSanitizer sees any read past it.
WalkResult walk(const std::vector<unsigned char> &bytes, bool big, bool explicitVr)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[std::max<size_t>(bytes.size(), 1)]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    KcDArray<KcString> ids;
    WalkResult r;
    r.complete =
        dicomDirFileIds(bytes.empty() ? nullptr : copy.get(), bytes.size(), big, explicitVr, ids);
    for (const KcString &id : ids)
        r.ids.push_back(id);
    return r;
}

const std::string script = std::string(VX_PYTHON) + " " VX_DICOMDIR_TEST_DIR "/make_dicomdir.py";

/// A DICOMDIR written by pydicom with one IMAGE record per id.
void makeDicomDir(const std::string &out, const Ids &ids)
{
    std::string command = script + " " + vxtest::shellQuote(out), output;
    for (const std::string &id : ids)
        command += " --id " + vxtest::shellQuote(id);
    ASSERT_EQ(vxtest::runCommand(command, &output, true), 0) << command << "\n" << output;
}

/// pydicom's Referenced File IDs of a DICOMDIR, components joined by '\'.
Ids pydicomFileIds(const std::string &dicomDir)
{
    std::string output;
    EXPECT_EQ(vxtest::runCommand(
                  script + " --list " + vxtest::shellQuote(dicomDir) + " 2>/dev/null", &output),
              0);
    Ids ids;
    std::istringstream in(output);
    for (std::string line; std::getline(in, line);)
        ids.push_back(line);
    return ids;
}

/// The folder of pydicom's own test DICOMDIRs, or "" without them.
std::string pydicomDicomDirFolder()
{
    std::string out;
    vxtest::runCommand(script + " --folder 2>/dev/null", &out);
    out = out.substr(0, out.find('\n'));
    return !out.empty() && fs::is_regular_file(out + "/DICOMDIR") ? out : std::string();
}

/// extractDicomDir on the DICOMDIR opened as the reader does, after `before`;
/// the names it added.
Ids extracted(const std::string &dicomDir, const Ids &before, int *count = nullptr)
{
    std::unique_ptr<VxDicomFile> file;
    try {
        file = std::make_unique<VxDicomFile>(dicomDir.c_str(), 0, 1);
    } catch (const char *why) {
        ADD_FAILURE() << dicomDir << ": " << why;
        return {};
    }
    EXPECT_TRUE(file->isDicomDir()) << dicomDir;
    KcDArray<KcString> names;
    for (const std::string &n : before)
        names.append(n);
    const int n = extractDicomDir(file.get(), names);
    EXPECT_EQ(n, names.size());
    if (count)
        *count = n;
    Ids out;
    for (int i = static_cast<int>(before.size()); i < names.size(); ++i)
        out.push_back(names[i]);
    return out;
}

/// What the IDs pydicom reads become: joined to a folder, '/' for '\'.
Ids expectedNames(const std::string &folder, Ids ids)
{
    for (std::string &id : ids) {
        std::replace(id.begin(), id.end(), '\\', '/');
        id = folder + "/" + id;
    }
    return ids;
}

} // namespace

TEST(DicomDirWalk, EveryEncodingGivesTheFileIdsOfWellFormedSequences)
{
    for (const auto &[name, big, explicitVr] :
         {std::tuple{"explicit little", false, true}, std::tuple{"implicit little", false, false},
          std::tuple{"explicit big", true, true}}) {
        const Bytes b{big, explicitVr, {}};
        std::vector<std::tuple<const char *, Bytes, Ids>> rows;
        // Odd-length IDs padded with a blank as CS values are, NULs of some
        // writers, leading blanks; in defined and undefined length items.
        const Ids stored = {"IMAGES\\CT\\IM0001 ", "  IMAGES\\IM2", std::string("IM3\0", 4),
                            std::string("IM\0JUNK", 7), "        "};
        const Ids expected = {"IMAGES\\CT\\IM0001", "IMAGES\\IM2", "IM3", "IM", ""};
        for (bool undefinedItems : {false, true}) {
            Bytes seq = b.empty().item(b.record(""), undefinedItems);
            for (const std::string &id : stored)
                seq.item(b.record(id), undefinedItems);
            rows.emplace_back(undefinedItems ? "undefined items" : "defined items", seq, expected);
        }
        // An icon image sequence inside a record: its own (0004,1500) is not
        // a record's file ID, whatever the sequence's length.
        Bytes nested = b.empty().item(b.empty().fileId("NOTME "), true);
        Bytes first = b.record("FIRST ");
        first.undefinedHeader(0x0088, 0x0200, "SQ").append(nested).sequenceDelimiter();
        Bytes second = b.record("SECOND");
        second.element(0x0088, 0x0200, "SQ", nested.text());
        rows.emplace_back("nested sequences", b.empty().item(first, true).item(second),
                          Ids{"FIRST", "SECOND"});
        // A group length, and nothing after the sequence delimiter.
        Bytes withLength =
            b.empty().element(0x0004, 0x0000, "UL", Bytes{big, false, {}}.u32(24).text());
        rows.emplace_back("group length, delimiter",
                          b.empty()
                              .item(withLength.append(b.record("A1")))
                              .sequenceDelimiter()
                              .item(b.record("AFTER ")),
                          Ids{"A1"});
        if (explicitVr && !big) {
            // In explicit VR, UN of undefined length holds implicit VR little endian items.
            const Bytes implicit{false, false, {}};
            Bytes rec = b.record("");
            rec.undefinedHeader(0x0009, 0x1010, "UN")
                .append(implicit.empty().item(
                    implicit.empty().element(0x0008, 0x1150, "UI", "1.2.3.4 "), true))
                .sequenceDelimiter()
                .fileId("AFTERUN ");
            rows.emplace_back("UN of undefined length", b.empty().item(rec, true), Ids{"AFTERUN"});
        }
        Bytes emptyItems = b.empty();
        for (int i = 0; i < 1000; ++i)
            emptyItems.item(b.empty());
        rows.emplace_back("only empty items", emptyItems, Ids{});
        for (const auto &[why, bytes, ids] : rows) {
            SCOPED_TRACE(std::string(name) + ": " + why);
            const WalkResult r = walk(bytes.data, big, explicitVr);
            EXPECT_TRUE(r.complete);
            EXPECT_EQ(r.ids, ids);
        }
    }
}

TEST(DicomDirWalk, MalformedSequencesEndTheWalkWithTheNamesFoundSoFar)
{
    const Bytes b{false, true, {}};
    auto kept = [&] { return b.empty().item(b.record("KEPT")); };
    Bytes longId = b.record("");
    longId.u16(0x0004).u16(0x1500).raw("CS").u16(0xFFF0).raw("SHORT");
    Bytes lastId = b.record("");
    lastId.u16(0x0004).u16(0x1500).raw("CS").u16(0x4000).raw("END");
    Bytes delimiterInside = b.record("INSIDE");
    delimiterInside.itemDelimiter();
    Bytes deep = b.record(""); // deeper than any walk goes
    for (int i = 0; i < 80; ++i)
        deep.undefinedHeader(0x0040, 0xA730, "SQ").itemHeader(0xFFFFFFFFu);
    for (int i = 0; i < 80; ++i)
        deep.itemDelimiter().sequenceDelimiter();
    deep.fileId("DEEP");
    Bytes swallowed = b.record("");
    swallowed.undefinedHeader(0x0088, 0x0200, "SQ").itemHeader(0xFFFFFFFFu).fileId("SWALLOWED");
    const std::tuple<const char *, Bytes, Ids> rows[] = {
        {"empty value", b.empty(), {}},
        {"an item tag alone", b.empty().raw(std::string("\xFE\xFF\x00\xE0", 4)), {}},
        {"does not begin with an item",
         b.empty().element(0x0004, 0x1400, "UL", std::string(4, 0)),
         {}},
        {"item length past the end",
         kept().itemHeader(0x7FFFFFF0).append(b.record("LOST")),
         {"KEPT"}},
        {"element length past the item", kept().item(longId), {"KEPT"}},
        {"last file ID longer than the value",
         kept().itemHeader(0xFFFFFFFFu).append(lastId),
         {"KEPT"}},
        {"undefined-length item without a delimiter",
         kept().itemHeader(0xFFFFFFFFu).append(b.record("LOST")),
         {"KEPT", "LOST"}},
        {"item delimiter inside a defined-length item",
         kept().item(delimiterInside).item(b.record("LOST")),
         {"KEPT", "INSIDE"}},
        {"an element where an item should be",
         kept().u16(0x0008).u16(0x0005).raw("CS").u16(2).raw("AB"),
         {"KEPT"}},
        {"item delimiter at sequence level",
         kept().itemDelimiter().item(b.record("LOST")),
         {"KEPT"}},
        {"three stray bytes at the end", kept().raw("\xFE\xFF\x00"), {"KEPT"}},
        {"nesting deeper than 64 levels", kept().item(deep, true), {"KEPT"}},
        {"nested sequence without its delimiters", kept().item(swallowed, true), {"KEPT"}},
    };
    for (const auto &[why, bytes, ids] : rows) {
        const WalkResult r = walk(bytes.data, false, true);
        EXPECT_FALSE(r.complete) << why;
        EXPECT_EQ(r.ids, ids) << why;
    }
}

TEST(DicomDirWalk, PydicomsDicomDirsGiveWhatPydicomReadsWholeCutOrCorrupted)
{
    const std::string folder = pydicomDicomDirFolder();
    if (folder.empty())
        GTEST_SKIP() << "pydicom's test DICOMDIRs are not installed (python3-pydicom)";
    for (const std::string name : {"DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-bigEnd",
                                   "DICOMDIR-reordered", "DICOMDIR-nooffset"}) {
        SCOPED_TRACE(name);
        const std::string path = folder + "/" + name;
        std::string why;
        dicom::dicomStruct *d = dicom::dicomReadFile(path.c_str(), 1, &why);
        ASSERT_NE(d, nullptr) << why;
        EXPECT_TRUE(d->isDicomDir);
        const dicom::dicomDataElement *e = dicom::dicomFindElement(d, 0x0004, 0x1220);
        ASSERT_TRUE(e && e->data && e->length > 0);
        const std::vector<unsigned char> seq(e->data, e->data + e->length);
        const bool big = d->bigEndian, explicitVr = d->explicitVR;
        dicom::dicomFree(d);
        const Ids ids = pydicomFileIds(path);
        ASSERT_EQ(ids.size(), 31u);
        const WalkResult r = walk(seq, big, explicitVr);
        EXPECT_TRUE(r.complete);
        EXPECT_EQ(r.ids, ids);
        if (name.find('-') != std::string::npos && name != "DICOMDIR-implicit" &&
            name != "DICOMDIR-bigEnd")
            continue;
        const Ids names = extracted(path, {path});
        EXPECT_EQ(names, expectedNames(folder, ids));
        for (const std::string &n : names)
            EXPECT_TRUE(fs::is_regular_file(n)) << n;
        // Every truncation keeps a prefix of the IDs.
        for (size_t n = 0; n < seq.size(); ++n) {
            const Ids cut =
                walk({seq.begin(), seq.begin() + static_cast<long>(n)}, big, explicitVr).ids;
            ASSERT_LE(cut.size(), ids.size()) << "cut at " << n;
            ASSERT_TRUE(std::equal(cut.begin(), cut.end(), ids.begin())) << "cut at " << n;
        }
        // Every byte in turn set to 0xFF (each length field once huge or
        // undefined, each tag once a delimiter), then random bytes at random
        // places: the walk stays inside the value (AddressSanitizer).
        std::mt19937 random(20240607);
        for (size_t mutant = 0; mutant < seq.size() + 2000; ++mutant) {
            std::vector<unsigned char> bytes = seq;
            if (mutant < seq.size())
                bytes[mutant] = 0xFF;
            else
                for (int k = 1 + static_cast<int>(random() % 8); k > 0; --k)
                    bytes[random() % bytes.size()] = static_cast<unsigned char>(random());
            ASSERT_LE(walk(bytes, big, explicitVr).ids.size(),
                      mutant < seq.size() ? 31 : seq.size() / 8)
                << mutant;
        }
    }
    const std::string empty = folder + "/DICOMDIR-empty.dcm";
    EXPECT_TRUE(extracted(empty, {empty}).empty()) << "no records";
}

TEST(DicomDirExtraction, DcmmkdirOverRealFilesInThreeEncodingsListsEveryFileUnlessFlagged)
{
    VX_REQUIRE_SHARED_DATA();
    for (const char *tool : {"dcmmkdir", "dcmconv", "dcmdump"})
        if (!vxtest::haveProgram(tool))
            GTEST_SKIP() << tool << " (Debian dcmtk) is needed";
    // Five CT and five MR slices linked under IMAGES/CT/<their names> and
    // IMAGES/MRI/IM<n> (file IDs allow upper-case letters, digits and '_').
    vxtest::TempDir dir;
    const fs::path root = dir.path() / "cd";
    fs::create_directories(root / "IMAGES" / "CT");
    fs::create_directories(root / "IMAGES" / "MRI");
    Ids linked;
    const Ids ct = vxtest::sharedDicomFiles("dcm_qa_ct/In/Philips/S21610/S2010");
    const Ids mr = vxtest::sharedDicomFiles("dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag");
    for (size_t i = 0, n = 0; i < ct.size() && n < 5; ++i)
        if (fs::path(ct[i]).filename() != "DIRFILE") {
            linked.push_back((root / "IMAGES" / "CT" / fs::path(ct[i]).filename()).string());
            fs::create_symlink(ct[i], linked.back());
            ++n;
        }
    for (size_t i = 0; i < 5 && i < mr.size(); ++i) {
        linked.push_back((root / "IMAGES" / "MRI" / ("IM" + std::to_string(i + 1))).string());
        fs::create_symlink(mr[i], linked.back());
    }
    ASSERT_EQ(linked.size(), 10u);
    std::string out;
    ASSERT_EQ(
        vxtest::runCommand("cd " + vxtest::shellQuote(root.string()) +
                               " && dcmmkdir --recurse IMAGES && dcmconv +F +tb DICOMDIR DIR_BE"
                               " && dcmconv +F +ti DICOMDIR DIR_IMPL",
                           &out, true),
        0)
        << out;
    const Ids ids = pydicomFileIds((root / "DICOMDIR").string());
    EXPECT_NE(std::find(ids.begin(), ids.end(), "IMAGES\\CT\\I10"), ids.end())
        << "an odd length, stored with a trailing blank";
    const Ids expected = expectedNames(root.string(), ids);
    Ids sortedExpected = expected;
    std::sort(sortedExpected.begin(), sortedExpected.end());
    std::sort(linked.begin(), linked.end());
    EXPECT_EQ(sortedExpected, linked) << "every file of the set is referenced once";
    for (const char *name : {"DICOMDIR", "DIR_BE", "DIR_IMPL"}) {
        const std::string path = (root / name).string();
        EXPECT_EQ(extracted(path, {path}), expected) << name;
    }

    // A File-set Consistency Flag of 1 contributes nothing. dcmodify would
    // rewrite the meta header without the DICOMDIR's SOP class; the flag is
    // set in a copy's bytes instead: (0004,1212) US, 2 bytes.
    std::vector<unsigned char> bytes = vxtest::readFileBytes((root / "DICOMDIR").string());
    const std::string text(bytes.begin(), bytes.end());
    const std::string flagHeader("\x04\x00\x12\x12US\x02\x00\x00\x00", 10);
    const size_t at = text.find(flagHeader);
    ASSERT_NE(at, std::string::npos) << "dcmmkdir writes the flag as 0";
    ASSERT_EQ(text.find(flagHeader, at + 1), std::string::npos);
    bytes[at + 8] = 1;
    const std::string flagged = (root / "FLAGGED").string();
    vxtest::writeFileBytes(flagged, bytes);
    std::string dump;
    ASSERT_EQ(vxtest::runCommand("dcmdump " + vxtest::shellQuote(flagged), &dump, true), 0) << dump;
    ASSERT_NE(dump.find("(0004,1212) US 1 "), std::string::npos) << dump;
    int count = -1;
    EXPECT_TRUE(extracted(flagged, {flagged}, &count).empty());
    EXPECT_EQ(count, 1);
}

// File IDs join the folder of the last name; IDs that are empty or leave the
// file set are left out; a CD mounted with lower-case names is matched
// without case, and a name found in no case stays as the DICOMDIR says.
TEST(DicomDirExtraction, FileIdsResolveInsideTheFolderOfTheLastName)
{
    vxtest::TempDir dir;
    fs::create_directories(dir.path() / "images" / "series1");
    vxtest::writeFileBytes(dir.file("images/series1/img0001"), {1});
    vxtest::writeFileBytes(dir.file("Im2"), {1});
    const std::string dicomDir = dir.file("DICOMDIR");
    makeDicomDir(dicomDir, {"IMAGES\\SERIES1\\IMG0001", "IM2", "MISSING", "..\\..\\ETC\\PASSWD",
                            "  ", "IMAGES\\..\\X"});
    EXPECT_EQ(extracted(dicomDir, {dicomDir}),
              (Ids{dir.file("images/series1/img0001"), dir.file("Im2"), dir.file("MISSING")}));
    EXPECT_EQ(extracted(dicomDir, {dicomDir, "/elsewhere/x.dcm"}),
              (Ids{"/elsewhere/IMAGES/SERIES1/IMG0001", "/elsewhere/IM2", "/elsewhere/MISSING"}))
        << "the last name's folder, not the DICOMDIR's";
}

TEST(DicomDirReadingLoop, ADicomDirThatListsItselfIsReadOnceAndASecondResolvesAgainstTheLastName)
{
    vxtest::TempDir dir;
    KcDArray<VxDicomFile *> files;
    KcDArray<VxDicomImage *> images;
    if (!vxtest::sharedDataDir().empty()) {
        fs::create_directories(dir.path() / "self" / "CT");
        const std::string ct = vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10");
        fs::create_symlink(ct, dir.path() / "self" / "CT" / "I10");
        const std::string self = dir.file("self/DICOMDIR");
        makeDicomDir(self, {"DICOMDIR", "CT\\I10"});
        KcDArray<KcString> names;
        names.append(self);
        VxMessageCapture capture;
        readDicomFiles(names, 1, true, files, images);
        EXPECT_EQ(names.size(), 3) << capture.text();
        EXPECT_EQ(files.size(), 1);
        EXPECT_EQ(images.size(), 1);
        EXPECT_TRUE(capture.contains("DICOMDIR " + self +
                                     " was read before; its files are not added again"))
            << capture.text();
        for (VxDicomFile *f : files)
            delete f;
        files.clear();
        images.clear();
    } else {
        std::cout << "../shared/data is missing: the DICOMDIR listing itself is left out\n";
    }
    fs::create_directories(dir.path() / "a");
    fs::create_directories(dir.path() / "b");
    makeDicomDir(dir.file("a/DICOMDIR"), {"IMAGES\\A1"});
    makeDicomDir(dir.file("b/DICOMDIR"), {"B1"});
    KcDArray<KcString> names;
    names.append(dir.file("a/DICOMDIR"));
    names.append(dir.file("b/DICOMDIR"));
    VxMessageCapture capture;
    readDicomFiles(names, 1, false, files, images);
    ASSERT_EQ(names.size(), 4);
    // a's file ID joins b's folder (the last name then); b's joins the folder
    // of a's reference, which is where the list ended.
    EXPECT_EQ(names[2], dir.file("b/IMAGES/A1"));
    EXPECT_EQ(names[3], dir.file("b/IMAGES/B1"));
    EXPECT_TRUE(files.isEmpty());
}
