// vxdicom load over DICOMDIRs: a file set made by DCMTK's dcmmkdir over the
// shared CT and MR series loads the same fields as their folders.

#include "tests/apps/CliRunner.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace clitest;

namespace {

const char *const kCtFolder = "dcm_qa_ct/In/Philips/S21610/S2010";
const char *const kMrFolder = "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag";

// Links every slice of the shared CT and MR series into root/IMAGES/CT and
// root/IMAGES/MR under names a DICOMDIR may hold (upper case, 8 characters).
void linkSeries(const fs::path &root)
{
    fs::create_directories(root / "IMAGES" / "CT");
    fs::create_directories(root / "IMAGES" / "MR");
    for (const std::string &f : vxtest::sharedDicomFiles(kCtFolder))
        if (fs::path(f).filename() != "DIRFILE")
            fs::create_symlink(f, root / "IMAGES" / "CT" / fs::path(f).filename());
    int n = 0;
    for (const std::string &f : vxtest::sharedDicomFiles(kMrFolder))
        fs::create_symlink(f, root / "IMAGES" / "MR" / ("IM" + std::to_string(++n)));
}

void makeDicomDir(const fs::path &root)
{
    std::string output;
    const int rc = vxtest::runCommand("cd " + q(root.string()) + " && dcmmkdir --recurse IMAGES",
                                      &output, true);
    ASSERT_EQ(rc, 0) << output;
}

std::vector<std::string> filesIn(const fs::path &dir)
{
    std::vector<std::string> names;
    for (const auto &e : fs::directory_iterator(dir))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

TEST(VxdicomDicomDir, DcmmkdirOverTheSharedCtAndMrLoadsTheSameFieldsAsTheirFolders)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::haveProgram("dcmmkdir"))
        GTEST_SKIP() << "dcmmkdir (Debian dcmtk) is not installed";
    vxtest::TempDir dir;
    const fs::path cd = dir.path() / "cd";
    linkSeries(cd);
    makeDicomDir(cd);

    const Outcome folders =
        vxdicom("load -nodialog --format nii -o " + q(dir.file("folders")) + " " +
                q((cd / "IMAGES" / "CT").string()) + " " + q((cd / "IMAGES" / "MR").string()));
    ASSERT_EQ(folders.status, 0) << folders.err;
    const std::vector<std::string> expected = summaryLines(folders.out);
    ASSERT_EQ(fieldCount(folders.out), 2) << folders.out;

    // The folder holding the DICOMDIR, and the DICOMDIR named itself.
    for (const std::string &input : {cd.string(), (cd / "DICOMDIR").string()}) {
        const std::string out = dir.file("dicomdir" + std::to_string(input.size()));
        const Outcome r = vxdicom("load -nodialog --format nii -o " + q(out) + " " + q(input));
        ASSERT_EQ(r.status, 0) << input << "\n" << r.err;
        EXPECT_EQ(summaryLines(r.out), expected) << input;
        // 54 CT and 35 MR slices, no file lost; the DICOMDIR counts as a file.
        EXPECT_TRUE(contains(r.out, "89 headers loaded from 90 files")) << r.out;
        EXPECT_FALSE(contains(r.out, "failed")) << r.out;
        ASSERT_EQ(filesIn(out), filesIn(dir.file("folders")));
        for (const std::string &f : filesIn(out))
            EXPECT_EQ(vxtest::readFileBytes(out + "/" + f),
                      vxtest::readFileBytes(dir.file("folders/" + f)))
                << f << " differs";
    }
}

TEST(VxdicomDicomDir, CdMountedWithLowerCaseNamesLoadsEveryFile)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::haveProgram("dcmmkdir"))
        GTEST_SKIP() << "dcmmkdir (Debian dcmtk) is not installed";
    vxtest::TempDir dir;
    const fs::path cd = dir.path() / "cd";
    linkSeries(cd);
    makeDicomDir(cd);
    // What mount -t iso9660 shows by default: every name in lower case.
    const fs::path lower = dir.path() / "lower";
    fs::create_directories(lower);
    for (const auto &e : fs::recursive_directory_iterator(cd)) {
        std::string rel = fs::path(e.path()).lexically_relative(cd).string();
        std::transform(rel.begin(), rel.end(), rel.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (e.is_directory())
            fs::create_directories(lower / rel);
        else if (e.is_symlink())
            fs::create_symlink(fs::read_symlink(e.path()), lower / rel);
        else
            fs::copy_file(e.path(), lower / rel);
    }
    const Outcome r = vxdicom("load -nodialog " + q(lower.string()));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "89 headers loaded from 90 files")) << r.out;
    EXPECT_FALSE(contains(r.out, "failed")) << r.out;
}

TEST(VxdicomDicomDir, SeveralFoldersWithDicomDirsAllLoad)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::haveProgram("dcmmkdir"))
        GTEST_SKIP() << "dcmmkdir (Debian dcmtk) is not installed";
    vxtest::TempDir dir;
    const fs::path cd1 = dir.path() / "cd1", cd2 = dir.path() / "cd2";
    linkSeries(cd1);
    linkSeries(cd2);
    fs::remove_all(cd1 / "IMAGES" / "MR");
    fs::remove_all(cd2 / "IMAGES" / "CT");
    makeDicomDir(cd1);
    makeDicomDir(cd2);
    const Outcome r = vxdicom("load -nodialog " + q(cd1.string()) + " " + q(cd2.string()) + " " +
                              q(cd2.string()));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "89 headers loaded from")) << r.out;
    EXPECT_FALSE(contains(r.out, "failed")) << r.out;
    EXPECT_TRUE(contains(r.err, "several DICOMDIRs; the files below " + cd1.string())) << r.err;
    EXPECT_EQ(fieldCount(r.out), 2) << r.out;
}

TEST(VxdicomDicomDir, LoadWithoutDisplayNeverWaitsForTheDialog)
{
    VX_REQUIRE_SHARED_DATA();
    // No -nodialog: without a display nobody could answer the dialog.
    const Outcome r = vxdicom("load -q " + q(vxtest::sharedPath(kMrFolder)));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(fieldCount(r.out), 1) << r.out;
}
