// vxdicom load --time-series: the stacks become the steps of one control,
// saved as one 4D NIfTI with the control's creation command beside it, and
// vxdicom run replays that command.

#include "tests/apps/CliRunner.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace clitest;

namespace {

// GE EPI, 96 files: 32 slices x 3 volumes (dcm2niix: 64x64x32x3).
const char *const kEpiFolder = "dcm_qa_ge/In/SliceTimingRT/2_epiRT_IntAsc_GD0";

std::string readText(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> filesIn(const fs::path &dir)
{
    std::vector<std::string> names;
    for (const auto &e : fs::directory_iterator(dir))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// The names of the "load -dicom" line of a creation command; fails the test
// unless every name stands between double quotes.
std::vector<std::string> quotedNames(const std::string &script)
{
    std::vector<std::string> names;
    for (const std::string &line : lines(script)) {
        if (line.rfind("load -dicom", 0) != 0)
            continue;
        size_t pos = std::string("load -dicom").size();
        while (pos < line.size()) {
            EXPECT_EQ(line.compare(pos, 2, " \""), 0) << "unquoted name at " << pos << ": " << line;
            pos += 2;
            std::string name;
            while (pos < line.size() && line[pos] != '"') {
                if (line[pos] == '\\' && pos + 1 < line.size())
                    ++pos;
                name += line[pos++];
            }
            EXPECT_LT(pos, line.size()) << "no closing quote";
            ++pos;
            names.push_back(name);
        }
    }
    return names;
}

} // namespace

TEST(VxdicomTimeSeries, ThreeStacksBecomeOneSeriesSavedAsOne4dNifti)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string out = dir.file("out");
    const Outcome r = vxdicom("load -nodialog -q --time-series -o " + q(out) + " " +
                              q(vxtest::sharedPath(kEpiFolder)));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "time series \"TimeSeriesCtrl\": 3 time steps\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "saved " + out + "/TimeSeriesCtrl.nii.gz (3 time steps)\n"))
        << r.out;
    // Three steps, none registered as a data object of its own (those get the
    // stack's name as label).
    EXPECT_EQ(fieldCount(r.out), 3);
    for (const std::string &line : summaryLines(r.out)) {
        if (line.rfind("field ", 0) == 0) {
            EXPECT_EQ(line.rfind("field \"\" (VxUniformScalarField3): 64 x 64 x 32 int16", 0), 0u)
                << line;
        }
    }
    // The steps are no data objects of their own: nothing else is saved.
    EXPECT_EQ(filesIn(out),
              (std::vector<std::string>{"TimeSeriesCtrl.nii.gz", "TimeSeriesCtrl.vxs"}));

    // The creation command quotes every name, one line, in load order.
    const std::vector<std::string> names = quotedNames(readText(out + "/TimeSeriesCtrl.vxs"));
    EXPECT_EQ(names, vxtest::sharedDicomFiles(kEpiFolder));

    if (!vxtest::haveProgram("dcm2niix"))
        GTEST_SKIP() << "dcm2niix is not installed: the 4D volume is not compared";
    const std::string peer = dir.file("dcm2niix");
    fs::create_directories(peer);
    std::string log;
    ASSERT_EQ(vxtest::runCommand("dcm2niix -z n -f epi -o " + q(peer) + " " +
                                     q(vxtest::sharedPath(kEpiFolder)),
                                 &log, true),
              0)
        << log;
    std::string compared;
    const int rc =
        python("compare_nifti.py", {out + "/TimeSeriesCtrl.nii.gz", peer + "/epi.nii"}, &compared);
    if (rc == 77)
        GTEST_SKIP() << "nibabel is not installed";
    EXPECT_EQ(rc, 0) << compared;
    EXPECT_TRUE(contains(compared, "(64, 64, 32, 3)")) << compared;
}

TEST(VxdicomTimeSeries, RunningTheSavedCreationCommandMakesTheSameSeries)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string first = dir.file("first"), replay = dir.file("replay");
    const Outcome load = vxdicom("load -nodialog -q --time-series -o " + q(first) + " " +
                                 q(vxtest::sharedPath(kEpiFolder)));
    ASSERT_EQ(load.status, 0) << load.err;
    // From another folder: the names are as they were loaded.
    const Outcome r =
        vxdicom("run -q -o " + q(replay) + " " + q(first + "/TimeSeriesCtrl.vxs"), "/");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "time series \"TimeSeriesCtrl\": 3 time steps\n")) << r.out;
    EXPECT_EQ(summaryLines(r.out), summaryLines(load.out));
    EXPECT_EQ(vxtest::readFileBytes(replay + "/TimeSeriesCtrl.nii.gz"),
              vxtest::readFileBytes(first + "/TimeSeriesCtrl.nii.gz"));
    EXPECT_EQ(readText(replay + "/TimeSeriesCtrl.vxs"), readText(first + "/TimeSeriesCtrl.vxs"));
}

TEST(VxdicomTimeSeries, NamesWithBlanksQuotesDollarsAndBracketsReplay)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    // Each character here means something to the script interpreter (or to Tcl).
    const fs::path series = dir.path() / "scan $HOME [1] \"a\" back\\slash";
    fs::create_directories(series);
    const std::vector<std::string> files = vxtest::sharedDicomFiles(kEpiFolder);
    for (const std::string &f : files)
        fs::copy_file(f, series / fs::path(f).filename());

    const std::string first = dir.file("first"), replay = dir.file("replay");
    const Outcome load =
        vxdicom("load -nodialog -q --time-series -o " + q(first) + " " + q(series.string()));
    ASSERT_EQ(load.status, 0) << load.err;
    const std::string script = readText(first + "/TimeSeriesCtrl.vxs");
    const std::vector<std::string> names = quotedNames(script);
    ASSERT_EQ(names.size(), files.size());
    EXPECT_EQ(names[0], (series / "0001.dcm").string());

    const Outcome r = vxdicom("run -q -o " + q(replay) + " " + q(first + "/TimeSeriesCtrl.vxs"));
    ASSERT_EQ(r.status, 0) << r.err << script.substr(0, 400);
    EXPECT_TRUE(contains(r.out, "3 time steps")) << r.out;
    EXPECT_EQ(vxtest::readFileBytes(replay + "/TimeSeriesCtrl.nii.gz"),
              vxtest::readFileBytes(first + "/TimeSeriesCtrl.nii.gz"));
}

TEST(VxdicomTimeSeries, StepsOfDifferentGeometryAreSavedOneFileEachWithAWarning)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string out = dir.file("out");
    const Outcome r = vxdicom("load -nodialog -q --time-series -o " + q(out) + " " +
                              q(vxtest::sharedPath("dcm_qa_decubitus/In")) + " " +
                              q(vxtest::sharedPath("dcm_qa_toshiba/In")));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "time series \"TimeSeriesCtrl\": 3 time steps")) << r.out;
    EXPECT_TRUE(contains(r.err, "warning: the time steps are saved one file each")) << r.err;
    EXPECT_EQ(filesIn(out),
              (std::vector<std::string>{"TimeSeriesCtrl.vxs", "TimeSeriesCtrl_t0.nii.gz",
                                        "TimeSeriesCtrl_t1.nii.gz", "TimeSeriesCtrl_t2.nii.gz"}));
}
