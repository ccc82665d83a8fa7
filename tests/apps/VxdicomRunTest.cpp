// vxdicom run: host script commands through the interpreter, with the
// module's "load -dicom" registered, as stored load commands replay.

#include "tests/apps/CliRunner.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace clitest;

namespace {

const char *const kMrFolder = "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag";

// Two slices of the MR series, named "a b.dcm" and "c.dcm" in dir.
void twoSlices(const vxtest::TempDir &dir)
{
    const std::vector<std::string> files = vxtest::sharedDicomFiles(kMrFolder);
    fs::copy_file(files[0], dir.file("a b.dcm"));
    fs::copy_file(files[1], dir.file("c.dcm"));
}

std::string loadCommandOf(const std::string &out)
{
    // The summary line of a field ends with ", load command: ...".
    const std::string marker = ", load command: ";
    for (const std::string &line : lines(out))
        if (line.rfind("field ", 0) == 0 && line.find(marker) != std::string::npos)
            return line.substr(line.find(marker) + marker.size());
    return {};
}

} // namespace

TEST(VxdicomRun, QuotedNamesLoadThroughTheInterpreter)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    twoSlices(dir);
    const Outcome r = vxdicom("run 'load -dicom \"a b.dcm\" c.dcm'", dir.path().string());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "+ a b.dcm\n+ c.dcm\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "2 headers loaded from 2 files")) << r.out;
    ASSERT_EQ(fieldCount(r.out), 1) << r.out;
    EXPECT_TRUE(contains(r.out, ": 2 x 256 x 256 int16")) << r.out;
    EXPECT_EQ(r.err, "");

    // Braces, a variable and a trailing -nodialog do the same.
    const Outcome braces =
        vxdicom("run 'set d .; load -dicom {a b.dcm} $d/c.dcm -nodialog'", dir.path().string());
    ASSERT_EQ(braces.status, 0) << braces.err;
    EXPECT_TRUE(contains(braces.out, "+ ./c.dcm")) << braces.out;
    EXPECT_TRUE(contains(braces.out, ": 2 x 256 x 256 int16")) << braces.out;
}

TEST(VxdicomRun, AFieldsStoredLoadCommandReloadsTheSameField)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    twoSlices(dir);
    const Outcome load =
        vxdicom("load -nodialog " + q(dir.file("a b.dcm")) + " " + q(dir.file("c.dcm")));
    ASSERT_EQ(load.status, 0) << load.err;
    const std::string command = loadCommandOf(load.out);
    // In slice order; only the name with a blank is quoted.
    ASSERT_EQ(command, "load -dicom " + dir.file("c.dcm") + " \"" + dir.file("a b.dcm") + "\"");
    const Outcome replay = vxdicom("run " + q(command));
    ASSERT_EQ(replay.status, 0) << replay.err;
    EXPECT_EQ(summaryLines(replay.out), summaryLines(load.out));
}

TEST(VxdicomRun, ScriptFileRunsEveryLoadAndSavesWithoutClashes)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    twoSlices(dir);
    const std::string script = dir.file("session.vxs");
    vxtest::writeFileBytes(script, {});
    {
        const std::string text = "# two loads of one slice each\n"
                                 "load -dicom \"" +
                                 dir.file("a b.dcm") +
                                 "\"\n"
                                 "\n"
                                 "load -dicom " +
                                 dir.file("c.dcm") + " -nodialog\n";
        vxtest::writeFileBytes(script, std::vector<unsigned char>(text.begin(), text.end()));
    }
    const std::string out = dir.file("out");
    const Outcome r = vxdicom("run -q --format nii -o " + q(out) + " " + q(script));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(fieldCount(r.out), 2) << r.out;
    // Both fields carry the patient's name as label.
    EXPECT_TRUE(fs::is_regular_file(out + "/HFS.nii")) << r.out;
    // The second is "HFS<2>" in the object pool.
    EXPECT_TRUE(fs::is_regular_file(out + "/HFS_2_.nii")) << r.out;
}

TEST(VxdicomRun, ErrorsNameTheLineAndStopTheScript)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    twoSlices(dir);
    const std::string script = dir.file("broken.vxs");
    const std::string text = "load -dicom c.dcm\n"
                             "set x 1\n"
                             "load -dicom missing.dcm\n"
                             "load -dicom \"a b.dcm\"\n";
    vxtest::writeFileBytes(script, std::vector<unsigned char>(text.begin(), text.end()));
    Outcome r = vxdicom("run broken.vxs", dir.path().string());
    EXPECT_EQ(r.status, 1);
    // The failure goes to standard error, before the script stops.
    EXPECT_EQ(r.err, "reading missing.dcm failed: cannot open: missing.dcm (No such file or "
                     "directory)\nvxdicom run: broken.vxs, line 3: load: no field was made "
                     "from 1 file\n");
    EXPECT_FALSE(contains(r.out, "failed")) << r.out;
    EXPECT_EQ(fieldCount(r.out), 1) << "line 1 ran, line 4 did not";

    struct Row
    {
        const char *script;
        const char *error;
    };
    const Row rows[] = {
        {"set a 1\nlod -dicom c.dcm", "vxdicom run: line 2: invalid command name \"lod\"\n"},
        {"load c.dcm", "vxdicom run: line 1: load: only \"load -dicom FILE ... ?-nodialog?\" is "
                       "known here\n"},
        {"load -dicom -nodialog",
         "vxdicom run: line 1: load: wrong # args: should be \"load -dicom FILE ... "
         "?-nodialog?\"\n"},
        {"load -dicom $nothing", "vxdicom run: line 1: can't read \"nothing\": no such variable\n"},
        {"load -dicom \"c.dcm", "vxdicom run: line 1: missing \"\n"},
    };
    for (const Row &row : rows) {
        r = vxdicom("run " + q(row.script), dir.path().string());
        EXPECT_EQ(r.status, 1) << row.script;
        EXPECT_EQ(r.err, row.error) << row.script;
        EXPECT_EQ(fieldCount(r.out), 0) << row.script;
    }
}

TEST(VxdicomRun, UsageErrors)
{
    Outcome r = vxdicom("run");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "no SCRIPT or FILE given")) << r.err;
    r = vxdicom("run 'set a 1' 'set b 2'");
    EXPECT_EQ(r.status, 2);
    r = vxdicom("run --bogus 'set a 1'");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "unknown option '--bogus'")) << r.err;
    r = vxdicom("run /no/such/session.vxs");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "vxdicom run: /no/such/session.vxs: no such file\n");
    r = vxdicom("run 'set a 1'");
    EXPECT_EQ(r.status, 0) << "a script without loads is fine";
    r = vxdicom("run --help");
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(contains(r.out, "usage: vxdicom run")) << r.out;
}
