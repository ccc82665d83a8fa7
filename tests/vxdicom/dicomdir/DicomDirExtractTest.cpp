// extractDicomDir on DICOMDIR files: made by DCMTK's dcmmkdir over real
// scanner files (in three encodings, with the consistency flag set), by
// pydicom, and the reading loop around it.

#include "platform/core/VxMessage.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/dicomdir/DicomDirTestSupport.h"
#include "vxdicom/reader/DicomDir.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace dicomdirtest;

namespace {

using Names = std::vector<std::string>;

// Runs a DCMTK tool in a folder; fails the test when it fails.
void dcmtk(const fs::path &folder, const std::string &arguments)
{
    std::string output;
    const int rc = vxtest::runCommand(
        "cd " + vxtest::shellQuote(folder.string()) + " && " + arguments, &output, true);
    ASSERT_EQ(rc, 0) << arguments << "\n" << output;
}

const char *const kCtFolder = "dcm_qa_ct/In/Philips/S21610/S2010";
const char *const kMrFolder = "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag";

// A file set of real files: the first CT and MR slices linked under
// IMAGES/CT/<their names> and IMAGES/MRI/IM<n> (DICOMDIR file IDs allow only
// upper-case letters, digits and '_', at most 8 each). Returns the links.
Names linkFileSet(const fs::path &root, int perSeries)
{
    Names linked;
    fs::create_directories(root / "IMAGES" / "CT");
    fs::create_directories(root / "IMAGES" / "MRI");
    Names ct = vxtest::sharedDicomFiles(kCtFolder);
    ct.erase(
        std::remove_if(ct.begin(), ct.end(),
                       [](const std::string &f) { return fs::path(f).filename() == "DIRFILE"; }),
        ct.end());
    const Names mr = vxtest::sharedDicomFiles(kMrFolder);
    for (int i = 0; i < perSeries && i < static_cast<int>(ct.size()); ++i) {
        const fs::path link = root / "IMAGES" / "CT" / fs::path(ct[i]).filename();
        fs::create_symlink(ct[i], link);
        linked.push_back(link.string());
    }
    for (int i = 0; i < perSeries && i < static_cast<int>(mr.size()); ++i) {
        const fs::path link = root / "IMAGES" / "MRI" / ("IM" + std::to_string(i + 1));
        fs::create_symlink(mr[i], link);
        linked.push_back(link.string());
    }
    return linked;
}

bool haveDcmtkTools()
{
    return vxtest::haveProgram("dcmmkdir") && vxtest::haveProgram("dcmodify") &&
           vxtest::haveProgram("dcmconv");
}

// Opens the DICOMDIR as the reader does and extracts into `names`.
int extract(const std::string &dicomDir, KcDArray<KcString> &names)
{
    std::unique_ptr<VxDicomFile> file;
    try {
        file = std::make_unique<VxDicomFile>(dicomDir.c_str(), 0, 1);
    } catch (const char *why) {
        ADD_FAILURE() << dicomDir << ": " << why;
        return -1;
    }
    EXPECT_TRUE(file->isDicomDir()) << dicomDir;
    return extractDicomDir(file.get(), names);
}

Names extracted(const std::string &dicomDir, const Names &before)
{
    KcDArray<KcString> names;
    for (const std::string &n : before)
        names.append(n);
    const int count = extract(dicomDir, names);
    EXPECT_EQ(count, names.size());
    Names out;
    for (int i = static_cast<int>(before.size()); i < names.size(); ++i)
        out.push_back(names[i]);
    return out;
}

// What the IDs pydicom reads become: joined to a folder, '/' for '\'.
Names expectedNames(const std::string &folder, const Names &ids)
{
    Names out;
    for (std::string id : ids) {
        std::replace(id.begin(), id.end(), '\\', '/');
        out.push_back(folder + "/" + id);
    }
    return out;
}

} // namespace

TEST(DicomDirExtraction, DcmmkdirOverRealFilesInThreeEncodingsListsEveryFile)
{
    VX_REQUIRE_SHARED_DATA();
    if (!haveDcmtkTools())
        GTEST_SKIP() << "dcmmkdir, dcmodify and dcmconv (Debian dcmtk) are needed";
    vxtest::TempDir dir;
    const fs::path root = dir.path() / "cd";
    Names linked = linkFileSet(root, 5);
    ASSERT_EQ(linked.size(), 10u);
    dcmtk(root, "dcmmkdir --recurse IMAGES");
    // DCMTK writes the same records big endian and implicit as well.
    dcmtk(root, "dcmconv +F +tb DICOMDIR DIR_BE && dcmconv +F +ti DICOMDIR DIR_IMPL");

    const Names ids = pydicomFileIds((root / "DICOMDIR").string());
    ASSERT_EQ(ids.size(), 10u);
    // "IMAGES\CT\I10" has an odd length: stored with a trailing blank.
    EXPECT_NE(std::find(ids.begin(), ids.end(), "IMAGES\\CT\\I10"), ids.end());
    const Names expected = expectedNames(root.string(), ids);
    Names sortedExpected = expected, sortedLinked = linked;
    std::sort(sortedExpected.begin(), sortedExpected.end());
    std::sort(sortedLinked.begin(), sortedLinked.end());
    EXPECT_EQ(sortedExpected, sortedLinked) << "every file of the set is referenced once";

    for (const char *name : {"DICOMDIR", "DIR_BE", "DIR_IMPL"}) {
        const std::string path = (root / name).string();
        EXPECT_EQ(extracted(path, {path}), expected) << name;
    }
}

TEST(DicomDirExtraction, ConsistencyFlagOfOneContributesNothing)
{
    VX_REQUIRE_SHARED_DATA();
    if (!haveDcmtkTools())
        GTEST_SKIP() << "dcmmkdir, dcmodify and dcmconv (Debian dcmtk) are needed";
    vxtest::TempDir dir;
    const fs::path root = dir.path() / "cd";
    linkFileSet(root, 2);
    dcmtk(root, "dcmmkdir --recurse IMAGES");
    // dcmodify would rewrite the meta header without the DICOMDIR's SOP
    // class; the flag is set in a copy's bytes instead: (0004,1212) US, 2 bytes.
    std::vector<unsigned char> bytes = vxtest::readFileBytes((root / "DICOMDIR").string());
    const std::string flagHeader("\x04\x00\x12\x12US\x02\x00\x00\x00", 10);
    const std::string text(bytes.begin(), bytes.end());
    const size_t at = text.find(flagHeader);
    ASSERT_NE(at, std::string::npos) << "dcmmkdir writes the flag as 0";
    ASSERT_EQ(text.find(flagHeader, at + 1), std::string::npos);
    bytes[at + 8] = 1;
    const std::string flagged = (root / "FLAGGED").string();
    vxtest::writeFileBytes(flagged, bytes);
    std::string dump;
    ASSERT_EQ(vxtest::runCommand("dcmdump " + vxtest::shellQuote(flagged), &dump, true), 0) << dump;
    ASSERT_NE(dump.find("(0004,1212) US 1 "), std::string::npos) << dump;
    ASSERT_NE(dump.find("MediaStorageDirectoryStorage"), std::string::npos) << dump;
    KcDArray<KcString> names;
    names.append(flagged);
    EXPECT_EQ(extract(flagged, names), 1);
    EXPECT_EQ(names.size(), 1);
    EXPECT_EQ(extracted((root / "DICOMDIR").string(), {(root / "DICOMDIR").string()}).size(), 4u)
        << "the same DICOMDIR with the flag 0";
}

TEST(DicomDirExtraction, PydicomsDicomDirsResolveToFilesThatExist)
{
    const std::string folder = pydicomDicomDirFolder();
    if (folder.empty())
        GTEST_SKIP() << "pydicom's test DICOMDIRs are not installed (python3-pydicom)";
    for (const char *name : {"DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-bigEnd"}) {
        const std::string path = folder + "/" + name;
        const Names names = extracted(path, {path});
        EXPECT_EQ(names, expectedNames(folder, pydicomFileIds(path))) << name;
        for (const std::string &n : names)
            EXPECT_TRUE(fs::is_regular_file(n)) << n;
    }
    const std::string empty = folder + "/DICOMDIR-empty.dcm";
    EXPECT_TRUE(extracted(empty, {empty}).empty()) << "no records";
}

// File IDs join the folder of the last name; IDs that are empty or leave the
// file set are left out; a CD mounted with lower-case names is matched
// without case, and a name found in no case stays as the DICOMDIR says (it
// fails when opened).
TEST(DicomDirExtraction, FileIdsResolveInsideTheFolderOfTheLastName)
{
    vxtest::TempDir dir;
    fs::create_directories(dir.path() / "images" / "series1");
    vxtest::writeFileBytes(dir.file("images/series1/img0001"), {1});
    vxtest::writeFileBytes(dir.file("Im2"), {1});
    const std::string dicomDir = dir.file("DICOMDIR");
    makeDicomDir(dicomDir, {"--id", "IMAGES\\SERIES1\\IMG0001", "--id", "IM2", "--id", "MISSING",
                            "--id", "..\\..\\ETC\\PASSWD", "--id", "  ", "--id", "IMAGES\\..\\X"});
    EXPECT_EQ(extracted(dicomDir, {dicomDir}),
              (Names{dir.file("images/series1/img0001"), dir.file("Im2"), dir.file("MISSING")}));
    EXPECT_EQ(extracted(dicomDir, {dicomDir, "/elsewhere/x.dcm"}),
              (Names{"/elsewhere/IMAGES/SERIES1/IMG0001", "/elsewhere/IM2", "/elsewhere/MISSING"}))
        << "the last name's folder, not the DICOMDIR's";
}

TEST(DicomDirReadingLoop, ADicomDirThatListsItselfIsReadOnce)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const Names linked = linkFileSet(dir.path(), 1);
    const std::string dicomDir = dir.file("DICOMDIR");
    const std::string ct = fs::path(linked[0]).lexically_relative(dir.path()).string();
    std::string ctId = ct;
    std::replace(ctId.begin(), ctId.end(), '/', '\\');
    makeDicomDir(dicomDir, {"--id", "DICOMDIR", "--id", ctId});

    KcDArray<KcString> names;
    names.append(dicomDir);
    KcDArray<VxDicomFile *> files;
    KcDArray<VxDicomImage *> images;
    VxMessageCapture capture;
    readDicomFiles(names, 1, true, files, images);
    EXPECT_EQ(names.size(), 3) << capture.text();
    EXPECT_EQ(files.size(), 1);
    EXPECT_EQ(images.size(), 1);
    EXPECT_TRUE(capture.contains("DICOMDIR " + dir.file("DICOMDIR") +
                                 " was read before; its files are not added again"))
        << capture.text();
    for (VxDicomFile *f : files)
        delete f;
}

TEST(DicomDirReadingLoop, SecondDicomDirResolvesAgainstTheLastNameAtThatTime)
{
    vxtest::TempDir dir;
    fs::create_directories(dir.path() / "a");
    fs::create_directories(dir.path() / "b");
    makeDicomDir(dir.file("a/DICOMDIR"), {"--id", "IMAGES\\A1"});
    makeDicomDir(dir.file("b/DICOMDIR"), {"--id", "B1"});
    KcDArray<KcString> names;
    names.append(dir.file("a/DICOMDIR"));
    names.append(dir.file("b/DICOMDIR"));
    KcDArray<VxDicomFile *> files;
    KcDArray<VxDicomImage *> images;
    VxMessageCapture capture;
    readDicomFiles(names, 1, false, files, images);
    ASSERT_EQ(names.size(), 4);
    // a's file ID joins b's folder (the last name then); b's joins the folder
    // of a's reference, which is where the list ended.
    EXPECT_EQ(names[2], dir.file("b/IMAGES/A1"));
    EXPECT_EQ(names[3], dir.file("b/IMAGES/B1"));
    EXPECT_TRUE(files.isEmpty());
}
