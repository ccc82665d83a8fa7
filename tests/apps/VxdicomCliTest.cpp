// The vxdicom command line as users run it.

#include "tests/apps/CliRunner.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>

namespace fs = std::filesystem;
using namespace clitest;

namespace {

const char *const kMrFolder = "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag";         // 35 slices, "HFS"
const char *const kEpiFolder = "dcm_qa_ge/In/SliceTimingRT/2_epiRT_IntAsc_GD0"; // 64x64x32x3

std::string readText(const std::string &path)
{
    const std::vector<unsigned char> b = vxtest::readFileBytes(path);
    return std::string(b.begin(), b.end());
}
void writeText(const std::string &path, const std::string &text)
{
    std::ofstream(path) << text;
}

TEST(VxdicomCommand, HelpAndUsageErrors)
{
    vxtest::TempDir dir;
    const std::string missing = dir.file("missing.nrrd");
    const struct
    {
        std::string args;
        int status;
        std::string text; // on standard output for status 0, else on standard error
    } rows[] = {
        {"--help", 0, "usage: vxdicom COMMAND"},
        {"info --help", 0, "1.2.840.10008.1.2.4.90"}, // lists the transfer syntaxes
        {"info FILE --help", 0, "usage: vxdicom info FILE..."},
        {"run --help", 0, "usage: vxdicom run"},
        {"view --help", 0, "R/L, A/P, S/I"},
        {"run 'set a 1'", 0, ""},
        {"frobnicate", 2, "unknown command 'frobnicate'"},
        {"frobnicate", 2, "usage: vxdicom COMMAND"},
        {"", 2, "usage: vxdicom COMMAND"},
        {"help frobnicate", 2, ""},
        {"info", 2, "usage: vxdicom info"},
        {"info --bogus x.dcm", 2, "unknown option '--bogus'"},
        {"info --no-attributes --attributes-only x.dcm", 2, "exclude each other"},
        {"save-dicom in.nii -o out --edit", 2, "--edit shows a dialog and needs a display"},
        {"run", 2, "no SCRIPT or FILE given"},
        {"run --bogus 'set a 1'", 2, "unknown option '--bogus'"},
        {"run /no/such/session.vxs", 1, "vxdicom run: /no/such/session.vxs: no such file\n"},
        {"anonymize", 2, "no IN given"},
        {"anonymize in.nrrd", 2, "no OUT given (-o OUT)"},
        {"anonymize in.nrrd -o out.dcm", 2, "out.dcm: unknown ending"},
        {"anonymize " + q(missing) + " -o " + q(dir.file("out.nrrd")), 1, missing},
        {"view", 2, "needs a display"},
    };
    for (const auto &row : rows) {
        const Outcome r = vxdicom(row.args, {}, "-u DISPLAY -u WAYLAND_DISPLAY");
        EXPECT_EQ(r.status, row.status) << row.args << "\n" << r.err;
        EXPECT_TRUE(contains(row.status ? r.err : r.out, row.text)) << row.args << "\n" << r.err;
        EXPECT_TRUE(row.status ? row.args != "frobnicate" || r.out.empty() : r.err.empty())
            << row.args;
    }
    EXPECT_FALSE(fs::exists(dir.file("out.nrrd")));
}

TEST(VxdicomRun, LoadCommandsAndScriptsReplayAndErrorsNameTheLine)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    fs::copy_file(vxtest::sharedDicomFiles(kMrFolder)[0], dir.file("a b.dcm"));
    fs::copy_file(vxtest::sharedDicomFiles(kMrFolder)[1], dir.file("c.dcm"));
    const std::string cwd = dir.path().string();
    // The stored load command: slice order, only the name with a blank quoted.
    const Outcome load =
        vxdicom("load -nodialog " + q(dir.file("a b.dcm")) + " " + q(dir.file("c.dcm")));
    ASSERT_EQ(load.status, 0) << load.err;
    const std::string command =
        "load -dicom " + dir.file("c.dcm") + " \"" + dir.file("a b.dcm") + "\"";
    EXPECT_TRUE(contains(load.out, ", load command: " + command + "\n")) << load.out;
    const Outcome replay = vxdicom("run " + q(command));
    ASSERT_EQ(replay.status, 0) << replay.err;
    EXPECT_EQ(summaryLines(replay.out), summaryLines(load.out));

    for (const char *script :
         {"load -dicom \"a b.dcm\" c.dcm", "set d .; load -dicom {a b.dcm} $d/c.dcm -nodialog"}) {
        const Outcome r = vxdicom("run " + q(script), cwd);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(contains(r.out, "+ a b.dcm\n")) << r.out;
        EXPECT_TRUE(contains(r.out, "2 headers loaded from 2 files")) << r.out;
        EXPECT_EQ(fieldCount(r.out), 1) << r.out;
        EXPECT_TRUE(contains(r.out, ": 2 x 256 x 256 int16")) << r.out;
        EXPECT_EQ(r.err, "");
    }

    writeText(dir.file("session.vxs"), "# two loads\nload -dicom \"" + dir.file("a b.dcm") +
                                           "\"\n\nload -dicom " + dir.file("c.dcm") +
                                           " -nodialog\n");
    const Outcome r = vxdicom("run -q --format nii -o out session.vxs", cwd);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(fieldCount(r.out), 2) << r.out;
    EXPECT_EQ(vxtest::namesIn(dir.file("out")),
              (std::vector<std::string>{"HFS.nii", "HFS_2_.nii"}));

    const struct
    {
        const char *script, *error;
        int fields;
    } rows[] = {
        {"load -dicom c.dcm\nset x 1\nload -dicom missing.dcm\nload -dicom \"a b.dcm\"\n",
         "reading missing.dcm failed: cannot open: missing.dcm (No such file or directory)\n"
         "vxdicom run: broken.vxs, line 3: load: no field was made from 1 file\n",
         1},
        {"set a 1\nlod -dicom c.dcm",
         "vxdicom run: broken.vxs, line 2: invalid command name \"lod\"\n", 0},
        {"load -dicom \"c.dcm", "vxdicom run: broken.vxs, line 1: missing \"\n", 0},
    };
    for (const auto &row : rows) {
        writeText(dir.file("broken.vxs"), row.script);
        const Outcome r = vxdicom("run broken.vxs", cwd);
        EXPECT_EQ(r.status, 1) << row.script;
        EXPECT_EQ(r.err, row.error) << row.script;
        EXPECT_EQ(fieldCount(r.out), row.fields) << row.script << "\n" << r.out;
        EXPECT_FALSE(contains(r.out, "failed")) << r.out;
    }
    const Outcome direct = vxdicom("run " + q("set a 1\nlod -dicom c.dcm"), cwd);
    EXPECT_EQ(direct.err, "vxdicom run: line 2: invalid command name \"lod\"\n");
}

TEST(VxdicomDicomDir, FileSetsLoadTheSameFieldsAsTheirFolders)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::haveProgram("dcmmkdir"))
        GTEST_SKIP() << "dcmmkdir (Debian dcmtk) is not installed";
    // The shared CT and MR series in cd/IMAGES/CT and MR, a DICOMDIR made by dcmmkdir.
    vxtest::TempDir dir;
    const fs::path cd = dir.path() / "cd";
    int n = 0;
    for (const auto &[folder, sub] :
         {std::pair("dcm_qa_ct/In/Philips/S21610/S2010", "CT"), std::pair(kMrFolder, "MR")}) {
        fs::create_directories(cd / "IMAGES" / sub);
        for (const std::string &f : vxtest::sharedDicomFiles(folder))
            if (fs::path(f).filename() != "DIRFILE")
                fs::create_symlink(f, cd / "IMAGES" / sub / ("IM" + std::to_string(++n)));
    }
    std::string log;
    ASSERT_EQ(
        vxtest::runCommand("cd " + q(cd.string()) + " && dcmmkdir --recurse IMAGES", &log, true), 0)
        << log;
    const Outcome folders =
        vxdicom("load -nodialog --format nii -o " + q(dir.file("folders")) + " " +
                q((cd / "IMAGES/CT").string()) + " " + q((cd / "IMAGES/MR").string()));
    ASSERT_EQ(folders.status, 0) << folders.err;
    ASSERT_EQ(fieldCount(folders.out), 2) << folders.out;

    // What mount -t iso9660 shows by default: every name in lower case.
    const fs::path lower = dir.path() / "lower";
    for (const auto &e : fs::recursive_directory_iterator(cd)) {
        std::string rel = e.path().lexically_relative(cd).string();
        std::transform(rel.begin(), rel.end(), rel.begin(),
                       [](unsigned char c) { return char(std::tolower(c)); });
        fs::create_directories((lower / rel).parent_path());
        if (e.is_symlink())
            fs::create_symlink(fs::read_symlink(e.path()), lower / rel);
        else if (!e.is_directory())
            fs::copy_file(e.path(), lower / rel);
    }
    // The DICOMDIR's folder, the DICOMDIR, and the lower-case copy without -nodialog.
    for (const std::string &input : {cd.string(), (cd / "DICOMDIR").string(), lower.string()}) {
        const std::string out = dir.file("out" + std::to_string(input.size()));
        const Outcome r = vxdicom(std::string(input == lower.string() ? "load" : "load -nodialog") +
                                  " --format nii -o " + q(out) + " " + q(input));
        ASSERT_EQ(r.status, 0) << input << "\n" << r.err;
        EXPECT_TRUE(input == lower.string() || summaryLines(r.out) == summaryLines(folders.out))
            << input;
        EXPECT_TRUE(contains(r.out, "89 headers loaded from 90 files")) << r.out;
        EXPECT_FALSE(contains(r.out, "failed")) << r.out;
        ASSERT_EQ(vxtest::namesIn(out), vxtest::namesIn(dir.file("folders")));
        for (const std::string &f : vxtest::namesIn(out))
            EXPECT_EQ(vxtest::readFileBytes(out + "/" + f),
                      vxtest::readFileBytes(dir.file("folders/" + f)))
                << f;
    }
}

// A GE EPI's three stacks become one series saved as one 4D NIfTI (against dcm2niix's) beside
// its creation command, which replays it from elsewhere (a folder name with special characters).
TEST(VxdicomTimeSeries, ThreeStacksBecomeOneSeriesSavedAsOne4dNiftiAndReplay)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const fs::path series = dir.path() / "scan $HOME [1] \"a\" back\\slash";
    fs::create_directories(series);
    std::vector<std::string> copies;
    for (const std::string &f : vxtest::sharedDicomFiles(kEpiFolder))
        fs::copy_file(f, copies.emplace_back((series / fs::path(f).filename()).string()));
    const std::string first = dir.file("first"), replay = dir.file("replay");
    const Outcome r =
        vxdicom("load -nodialog -q --time-series -o " + q(first) + " " + q(series.string()));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "time series \"TimeSeriesCtrl\": 3 time steps\n")) << r.out;
    EXPECT_TRUE(contains(r.out, "saved " + first + "/TimeSeriesCtrl.nii.gz (3 time steps)\n"))
        << r.out;
    EXPECT_EQ(count(r.out, "field \"\" (VxUniformScalarField3): 64 x 64 x 32 int16"), 3u) << r.out;
    EXPECT_EQ(fieldCount(r.out), 3);
    EXPECT_EQ(vxtest::namesIn(first),
              (std::vector<std::string>{"TimeSeriesCtrl.nii.gz", "TimeSeriesCtrl.vxs"}));
    const std::string script = readText(first + "/TimeSeriesCtrl.vxs");
    EXPECT_EQ(count(script, "load -dicom "), 1u) << script;
    EXPECT_EQ(count(script, ".dcm\""), copies.size()) << script;
    EXPECT_LT(script.find("0001.dcm\""), script.find("0096.dcm\"")) << script;

    const Outcome again =
        vxdicom("run -q -o " + q(replay) + " " + q(first + "/TimeSeriesCtrl.vxs"), "/");
    ASSERT_EQ(again.status, 0) << again.err << script.substr(0, 400);
    EXPECT_EQ(summaryLines(again.out), summaryLines(r.out));
    EXPECT_EQ(vxtest::readFileBytes(replay + "/TimeSeriesCtrl.nii.gz"),
              vxtest::readFileBytes(first + "/TimeSeriesCtrl.nii.gz"));
    EXPECT_EQ(readText(replay + "/TimeSeriesCtrl.vxs"), script);

    if (!vxtest::haveProgram("dcm2niix"))
        GTEST_SKIP() << "dcm2niix is not installed: the 4D volume is not compared";
    std::string log;
    ASSERT_EQ(vxtest::runCommand("dcm2niix -z n -f epi -o " + q(dir.path().string()) + " " +
                                     q(vxtest::sharedPath(kEpiFolder)),
                                 &log, true),
              0)
        << log;
    const int rc =
        python("compare_nifti.py", {first + "/TimeSeriesCtrl.nii.gz", dir.file("epi.nii")}, &log);
    if (rc == 77)
        GTEST_SKIP() << "nibabel is not installed";
    EXPECT_EQ(rc, 0) << log;
    EXPECT_TRUE(contains(log, "(64, 64, 32, 3)")) << log;
}

std::map<std::string, std::string> nrrdHeader(const std::string &path)
{
    std::map<std::string, std::string> header;
    std::ifstream in(path, std::ios::binary);
    for (std::string line; std::getline(in, line) && !line.empty();) {
        const size_t at = std::min(line.find(":="), line.find(": "));
        if (at != std::string::npos)
            header[line.substr(0, at)] = line.substr(at + 2);
    }
    return header;
}

void expectAnonymous(const std::string &path)
{
    const std::map<std::string, std::string> header = nrrdHeader(path);
    EXPECT_EQ(header.count("content") ? header.at("content") : "", "Anonymized") << path;
    for (const auto &[key, value] : header) {
        EXPECT_FALSE(contains(key, "Filename")) << key;
        EXPECT_FALSE(contains(value, ": HFS")) << key << " = " << value;
        for (const std::string &source : vxtest::sharedDicomFiles(kMrFolder))
            EXPECT_FALSE(contains(value, fs::path(source).filename().string()))
                << key << " = " << value;
    }
}

// The anonymizer run on a saved field (twice), and the load's "Anonymize Data" choice.
TEST(VxdicomAnonymize, SavedFieldsCarryNoPatientNameAndNoFileNames)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string mr = q(vxtest::sharedPath(kMrFolder));
    ASSERT_EQ(vxdicom("load -nodialog -q --format nrrd -o " + q(dir.file("s")) + " " + mr).status,
              0);
    const std::map<std::string, std::string> before = nrrdHeader(dir.file("s/HFS.nrrd"));
    ASSERT_EQ(before.at("DICOM/All/G0010-0010"), "patient name: HFS"); // as pydicom reads it
    ASSERT_FALSE(before.at("DICOM/Slice034/Filename").empty());
    std::string in = dir.file("s/HFS.nrrd");
    for (const char *out : {"anon.nrrd", "again.nrrd"}) {
        const Outcome r = vxdicom("anonymize " + q(in) + " -o " + q(dir.file(out)));
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out, "anonymized patient name\nanonymized 35 single slices' bundles\nsaved " +
                             dir.file(out) + "\n");
        const std::map<std::string, std::string> after = nrrdHeader(in = dir.file(out));
        EXPECT_EQ(after.at("DICOM/All/G0010-0010"), "patient name: <Anonymized>");
        for (const char *same :
             {"DICOM/All/G0010-0020", "sizes", "space directions", "space origin"})
            EXPECT_EQ(after.at(same), before.at(same)) << same;
        expectAnonymous(in);
    }

    const Outcome r =
        vxdicom("load -nodialog -q --anonymize --format nrrd -o " + q(dir.file("a")) + " " + mr);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "anonymized 35 single slices' bundles\n")) << r.out;
    EXPECT_FALSE(contains(r.out, "anonymized patient name")) << "group 0010 is not there at all";
    EXPECT_TRUE(contains(r.out, "field \"Anonymized\"")) << r.out;
    expectAnonymous(dir.file("a/Anonymized.nrrd"));
    const std::map<std::string, std::string> loaded = nrrdHeader(dir.file("a/Anonymized.nrrd"));
    EXPECT_TRUE(loaded.lower_bound("DICOM/All/G0010-") == loaded.lower_bound("DICOM/All/G0011"))
        << "no patient attribute";
    EXPECT_TRUE(loaded.count("DICOM/All/G0008-0060")) << "other groups stay";
}

// The viewer's picture without a display; a non-DICOM file fails the run; an MR has no lung window.
TEST(VxdicomView, ScreenshotShowsTheOpenedSeriesAndABrokenFileFailsTheRun)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir tmp;
    const std::string series = q(vxtest::sharedPath("dcm_qa_sag/In/2_gre_field_mapping"));
    Outcome o = vxdicom("view --size 900x700 --preset 'Full range' --screenshot " +
                        q(tmp.file("a.png")) + " " + series);
    EXPECT_EQ(o.status, 0) << o.err;
    const std::vector<unsigned char> png = vxtest::readFileBytes(tmp.file("a.png"));
    ASSERT_GT(png.size(), 24u);
    EXPECT_EQ(std::string(png.begin() + 12, png.begin() + 16), "IHDR");
    EXPECT_EQ((png[18] << 8 | png[19]) * 10000 + (png[22] << 8 | png[23]), 900 * 10000 + 700);

    writeText(tmp.file("notdicom.dcm"), "plain text");
    o = vxdicom("view --screenshot " + q(tmp.file("b.png")) + " " + series + " " +
                q(tmp.file("notdicom.dcm")));
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(contains(o.err, "reading " + tmp.file("notdicom.dcm") + " failed")) << o.err;
    EXPECT_TRUE(fs::exists(tmp.file("b.png")));
    o = vxdicom("view --preset Lung --screenshot " + q(tmp.file("c.png")) + " " + series);
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(contains(o.err, "no window preset 'Lung'")) << o.err;
}

} // namespace
