// The vxdicom command line as users run it (info on every shared file: info_vs_pydicom.py).

#include "tests/support/TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <tuple>

namespace fs = std::filesystem;
using namespace vxtest;
using Outcome = CommandOutcome;

namespace {

const char *const kMrFolder = "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag";         // 35 slices, "HFS"
const char *const kEpiFolder = "dcm_qa_ge/In/SliceTimingRT/2_epiRT_IntAsc_GD0"; // 64x64x32x3
const char *const kCompare = VX_TEST_DIR "/../vxdicom/geometry/compare_geometry.py";

const auto q = [](const std::string &s) { return shellQuote(s); };

const auto contains = [](const std::string &s, const std::string &p) {
    return s.find(p) != s.npos;
};
const auto count = [](const std::string &text, const std::string &part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
};
const auto summaryLines = [](const std::string &out) {
    std::vector<std::string> kept;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);)
        if (line.rfind("field ", 0) == 0 || line.rfind("time series ", 0) == 0)
            kept.push_back(line);
    return kept;
};
TEST(VxdicomCommand, HelpAndUsageErrors)
{
    TempDir dir;
    const std::string missing = dir.file("missing.nrrd"), out = dir.file("out.nrrd");
    const std::tuple<std::string, int, std::string> rows[] = {
        {"--help", 0, "usage: vxdicom COMMAND"},
        {"info --help", 0, "1.2.840.10008.1.2.4.90"}, // lists the transfer syntaxes
        {"frobnicate", 2, "unknown command 'frobnicate'"},
        {"info", 2, "usage: vxdicom info"},
        {"info --bogus x.dcm", 2, "unknown option '--bogus'"},
        {"save-dicom in.nii -o out --edit", 2, "--edit shows a dialog and needs a display"},
        {"run /no/such/session.vxs", 1, "vxdicom run: /no/such/session.vxs: no such file\n"},
        {"anonymize in.nrrd -o out.dcm", 2, "out.dcm: unknown ending"},
        {"anonymize " + q(missing) + " -o " + q(out), 1, missing},
        {"view", 2, "needs a display"},
    };
    for (const auto &[args, status, text] : rows) {
        const Outcome r = runVxdicom(args, {}, "-u DISPLAY -u WAYLAND_DISPLAY");
        EXPECT_EQ(r.status, status) << args << "\n" << r.err;
        EXPECT_TRUE(contains(status ? r.err : r.out, text)) << args << "\n" << r.err;
        EXPECT_TRUE((status ? r.out : r.err).empty()) << args;
    }
    EXPECT_FALSE(fs::exists(out));
}

// A load prints its replay command; a script reads names from its folder, errors name the line.
TEST(VxdicomRun, LoadCommandsAndScriptsReplayAndErrorsNameTheLine)
{
    VX_REQUIRE_SHARED_DATA();
    TempDir dir;
    fs::copy_file(sharedDicomFiles(kMrFolder)[0], dir.file("a b.dcm"));
    fs::copy_file(sharedDicomFiles(kMrFolder)[1], dir.file("c.dcm"));
    const Outcome load =
        runVxdicom("load -nodialog " + q(dir.file("a b.dcm")) + " " + q(dir.file("c.dcm")));
    ASSERT_EQ(load.status, 0) << load.err;
    const std::string command = // slice order, only the name with a blank quoted
        "load -dicom " + dir.file("c.dcm") + " \"" + dir.file("a b.dcm") + "\"";
    EXPECT_TRUE(contains(load.out, ", load command: " + command + "\n")) << load.out;
    const std::tuple<const char *, const char *, int> rows[] = {
        // script, error, fields made
        {"load -dicom c.dcm\nset x 1\nload -dicom missing.dcm\nload -dicom \"a b.dcm\"\n",
         "reading missing.dcm failed: cannot open: missing.dcm (No such file or directory)\n"
         "vxdicom run: broken.vxs, line 3: load: no field was made from 1 file\n",
         1},
        {"set a 1\nlod -dicom c.dcm",
         "vxdicom run: broken.vxs, line 2: invalid command name \"lod\"\n", 0},
    };
    for (const auto &[script, error, fields] : rows) {
        std::ofstream(dir.file("broken.vxs")) << script;
        const Outcome r = runVxdicom("run broken.vxs", dir.path().string());
        EXPECT_TRUE(r.status == 1 && r.err == error) << script << "\n" << r.err;
        EXPECT_TRUE(count("\n" + r.out, "\nfield ") == size_t(fields) && !contains(r.out, "failed"))
            << r.out;
    }
}

// A dcmmkdir DICOMDIR of a CT and an MR series, as folder or file, loads what the folders load.
TEST(VxdicomDicomDir, FileSetsLoadTheSameFieldsAsTheirFolders)
{
    VX_REQUIRE_SHARED_DATA();
    VX_REQUIRE(haveProgram("dcmmkdir"), "dcmmkdir (Debian dcmtk)");
    TempDir dir;
    const fs::path cd = dir.path() / "cd";
    int n = 0;
    for (const auto &[folder, sub] :
         {std::pair("dcm_qa_ct/In/Philips/S21610/S2010", "CT"), std::pair(kMrFolder, "MR")}) {
        fs::create_directories(cd / "IMAGES" / sub);
        for (const std::string &f : sharedDicomFiles(folder))
            if (fs::path(f).filename() != "DIRFILE")
                fs::create_symlink(f, cd / "IMAGES" / sub / ("IM" + std::to_string(++n)));
    }
    std::string log;
    ASSERT_EQ(runCommand("cd " + q(cd.string()) + " && dcmmkdir +r IMAGES", &log, true), 0) << log;
    const Outcome folders =
        runVxdicom("load -nodialog --format nii -o " + q(dir.file("folders")) + " " +
                   q((cd / "IMAGES/CT").string()) + " " + q((cd / "IMAGES/MR").string()));
    ASSERT_EQ(folders.status, 0) << folders.err;
    ASSERT_EQ(count("\n" + folders.out, "\nfield "), 2u) << folders.out;
    for (const std::string &input : {cd.string(), (cd / "DICOMDIR").string()}) {
        const std::string out = dir.file("out" + std::to_string(input.size()));
        const Outcome r = runVxdicom("load -nodialog --format nii -o " + q(out) + " " + q(input));
        ASSERT_EQ(r.status, 0) << input << "\n" << r.err;
        EXPECT_EQ(summaryLines(r.out), summaryLines(folders.out)) << input;
        EXPECT_TRUE(contains(r.out, "89 headers loaded from 90 files") &&
                    !contains(r.out, "failed"))
            << r.out;
    }
}

// A GE EPI saved as one 4D NIfTI (as dcm2niix's) and replayed from a folder with odd characters.
TEST(VxdicomTimeSeries, ThreeStacksBecomeOneSeriesSavedAsOne4dNiftiAndReplay)
{
    VX_REQUIRE_SHARED_DATA();
    TempDir dir;
    const fs::path series = dir.path() / "scan $HOME [1] \"a\" back\\slash";
    fs::create_directories(series);
    for (const std::string &f : sharedDicomFiles(kEpiFolder))
        fs::copy_file(f, series / fs::path(f).filename());
    const std::string first = dir.file("first"), replay = dir.file("replay");
    const Outcome r =
        runVxdicom("load -nodialog -q --time-series -o " + q(first) + " " + q(series.string()));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "time series \"TimeSeriesCtrl\": 3 time steps\n") &&
                contains(r.out, "saved " + first + "/TimeSeriesCtrl.nii.gz (3 time steps)\n"))
        << r.out;
    EXPECT_EQ(count(r.out, "field \"\" (VxUniformScalarField3): 64 x 64 x 32 int16"), 3u) << r.out;
    const Outcome again =
        runVxdicom("run -q -o " + q(replay) + " " + q(first + "/TimeSeriesCtrl.vxs"), "/");
    ASSERT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(summaryLines(again.out), summaryLines(r.out));
    for (const char *saved : {"/TimeSeriesCtrl.nii.gz", "/TimeSeriesCtrl.vxs"})
        EXPECT_EQ(readFileBytes(replay + saved), readFileBytes(first + saved)) << saved;

    VX_REQUIRE(haveProgram("dcm2niix"), "dcm2niix (to compare the 4D volume)");
    std::string log;
    ASSERT_EQ(runCommand("dcm2niix -z n -f epi -o " + q(dir.path().string()) + " " +
                             q(sharedPath(kEpiFolder)),
                         &log, true),
              0)
        << log;
    const int rc = runPython(
        kCompare, {"--pair", first + "/TimeSeriesCtrl.nii.gz", dir.file("epi.nii")}, &log, true);
    if (rc == 77)
        GTEST_SKIP() << "nibabel, numpy or pydicom is not installed";
    EXPECT_TRUE(rc == 0 && contains(log, "(64, 64, 32, 3)")) << log;
}

// A series large enough to be read straight into its file, into a fresh folder and again over
// that file (read on helper threads, then by one), holds what dcm2niix reads; so does one whose
// samples are reordered after the read.
TEST(VxdicomLoad, LargeSeriesSavedAsNiftiHoldWhatDcm2niixReads)
{
    VX_REQUIRE(havePythonModules({"pydicom", "numpy", "nibabel"}) && haveProgram("dcm2niix"),
               "pydicom, numpy, nibabel and dcm2niix");
    TempDir dir;
    std::string log;
    for (const std::string orientation : {"axial", "axial-rev"}) {
        SCOPED_TRACE(orientation);
        const std::string series = dir.file(orientation), out = dir.file(orientation + "-out");
        ASSERT_EQ(runPython(VX_MAKE_SERIES,
                            {series, "--rows", "512", "--columns", "512", "--slices", "40",
                             "--orientation", orientation},
                            &log, true),
                  0)
            << log;
        ASSERT_EQ(runCommand("dcm2niix -z n -f " + orientation + " -o " + q(dir.file("")) + " " +
                                 q(series),
                             &log, true),
                  0)
            << log;
        for (int run = 0; run < 2; ++run) {
            const Outcome r =
                runVxdicom("load -nodialog -q --format nii -o " + q(out) + " " + q(series), {},
                           run ? "VXDICOM_DECODE_THREADS=1" : "");
            ASSERT_EQ(r.status, 0) << r.err;
            const size_t at = r.out.find("saved "), end = r.out.find('\n', at);
            ASSERT_NE(at, std::string::npos) << r.out;
            EXPECT_EQ(runPython(kCompare,
                                {"--pair", r.out.substr(at + 6, end - at - 6), series + ".nii",
                                 "--scaled"},
                                &log, true),
                      0)
                << log;
            EXPECT_EQ(namesIn(out).size(), 1u);
        }
    }
}

const auto nrrdHeader = [](const std::string &path) {
    std::map<std::string, std::string> header;
    std::ifstream in(path, std::ios::binary);
    for (std::string line; std::getline(in, line) && !line.empty();) {
        const size_t at = std::min(line.find(":="), line.find(": "));
        if (at != std::string::npos)
            header[line.substr(0, at)] = line.substr(at + 2);
    }
    return header;
};

// The anonymizer run on a saved field: no patient name, no source file name, the rest as it was.
TEST(VxdicomAnonymize, SavedFieldsCarryNoPatientNameAndNoFileNames)
{
    VX_REQUIRE_SHARED_DATA();
    TempDir dir;
    const Outcome load = runVxdicom("load -nodialog -q --format nrrd -o " + q(dir.file("s")) + " " +
                                    q(sharedPath(kMrFolder)));
    ASSERT_EQ(load.status, 0) << load.err;
    const std::map<std::string, std::string> before = nrrdHeader(dir.file("s/HFS.nrrd"));
    ASSERT_EQ(before.at("DICOM/All/G0010-0010"), "patient name: HFS"); // as pydicom reads it
    ASSERT_FALSE(before.at("DICOM/Slice034/Filename").empty());
    const Outcome r =
        runVxdicom("anonymize " + q(dir.file("s/HFS.nrrd")) + " -o " + q(dir.file("n.nrrd")));
    EXPECT_EQ(r.out, "anonymized patient name\nanonymized 35 single slices' bundles\nsaved " +
                         dir.file("n.nrrd") + "\n")
        << r.err;
    const std::map<std::string, std::string> after = nrrdHeader(dir.file("n.nrrd"));
    EXPECT_EQ(after.at("DICOM/All/G0010-0010"), "patient name: <Anonymized>");
    for (const char *same : {"DICOM/All/G0010-0020", "sizes", "space directions", "space origin"})
        EXPECT_EQ(after.at(same), before.at(same)) << same;
    EXPECT_EQ(after.count("content") ? after.at("content") : "", "Anonymized");
    for (const auto &[key, value] : after) // the slices' names end in .dcm
        EXPECT_FALSE(contains(key, "Filename") || contains(value, ": HFS") ||
                     contains(value, ".dcm"))
            << key << " = " << value;
}

// The viewer's picture without a display; a non-DICOM file fails the run.
TEST(VxdicomView, ScreenshotShowsTheOpenedSeriesAndABrokenFileFailsTheRun)
{
    VX_REQUIRE_SHARED_DATA();
    TempDir tmp;
    const std::string series = q(sharedPath("dcm_qa_sag/In/2_gre_field_mapping"));
    Outcome o = runVxdicom("view --size 900x700 --preset 'Full range' --screenshot " +
                           q(tmp.file("a.png")) + " " + series);
    EXPECT_EQ(o.status, 0) << o.err;
    const std::vector<unsigned char> png = readFileBytes(tmp.file("a.png"));
    ASSERT_GT(png.size(), 24u);
    EXPECT_EQ(std::string(png.begin() + 12, png.begin() + 16), "IHDR");
    EXPECT_EQ((png[18] << 8 | png[19]) * 10000 + (png[22] << 8 | png[23]), 900 * 10000 + 700);

    std::ofstream(tmp.file("notdicom.dcm")) << "plain text";
    o = runVxdicom("view --screenshot " + q(tmp.file("b.png")) + " " + series + " " +
                   q(tmp.file("notdicom.dcm")));
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(contains(o.err, "reading " + tmp.file("notdicom.dcm") + " failed")) << o.err;
    EXPECT_TRUE(fs::exists(tmp.file("b.png")));
}

// An EPI mosaic with both CSA headers.
const std::string mosaic = sharedPath(
    "dcm_qa/In/Orientation/ax/axasc35/MR.1.3.12.2.1107.5.2.32.35131.2014031012493950715786673");
const std::string ctI10 = sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10");

const auto info = [](std::string args, const std::vector<std::string> &files,
                     const std::string &env = {}) {
    for (const std::string &f : files)
        args += " " + q(f);
    return runVxdicom("info " + args, {}, env);
};

// Layer sections, a line per failed file, a mosaic's tiles, attributes and CSA, value ranges; JSON.
TEST(VxdicomInfo, LayerSectionFailuresMosaicTilesCsaHeadersValueRangesAndTheJsonForm)
{
    VX_REQUIRE_SHARED_DATA();
    const auto ts = [](int n) { return sharedPath("dcm_qa_ts/In/" + std::to_string(n) + ".dcm"); };
    TempDir dir;
    const std::string text = dir.file("notes.txt"), cut = dir.file("cut.dcm"),
                      j2k = dir.file("j2k.dcm"), missing = dir.file("missing.dcm");
    writeFileBytes(text, {'h', 'i', '\n'});
    std::vector<unsigned char> bytes = readFileBytes(ts(1));
    bytes.resize(bytes.size() - 100); // the header parses, the pixels are short
    writeFileBytes(cut, bytes);
    bytes = readFileBytes(ts(9)); // the codestream's width (SIZ) no longer matches
    const unsigned char soc[] = {0xFF, 0x4F, 0xFF, 0x51};
    auto at = std::search(bytes.begin(), bytes.end(), soc, soc + 4);
    ASSERT_NE(at, bytes.end());
    at[8] ^= 0x01;
    writeFileBytes(j2k, bytes);

    Outcome r = info("", {ts(3), ts(9), ts(4), mosaic, missing, text, cut, j2k});
    EXPECT_EQ(r.status, 1);
    for (const std::string &line :
         {"reading " + missing + " failed: No such file or directory\n",
          "reading " + text + " failed: not a DICOM file\n",
          "reading " + cut + " failed: (7FE0,0010) pixel data are truncated",
          "reading " + j2k + " failed: JPEG 2000"})
        EXPECT_TRUE(contains(r.err, line)) << line << "\n" << r.err;
    EXPECT_EQ(count(r.err, "\n"), 4u) << r.err;
    for (const std::string &part : std::vector<std::string>{
             ts(3) + "\n", "transfer syntax:   1.2.840.10008.1.2.2 (Explicit VR Big Endian)",
             "transfer syntax:   1.2.840.10008.1.2.4.90 (JPEG 2000 Image Compression (Lossless "
             "Only))",
             "rows:              384\n", "photometric:       MONOCHROME2\n",
             "pixels:            not decoded",
             "\n  message:           WARNING: forcing planarConfig=1 for RLE compressed images\n",
             "\n    planar config:     1\n"})
        EXPECT_TRUE(contains(r.out, part)) << part;
    EXPECT_EQ(count(r.out, "pixels:            1 frame decoded"), 4u) << r.out;
    EXPECT_FALSE(contains(r.out, missing));
    for (const char *part : // the mosaic
         {"\n  image 1 of 35:\n    size:              64 x 64\n",
          "\n    pixel spacing:     3.25 x 3.25 mm (row, column)\n",
          "\n    row direction:     1 -1e-16 0\n",
          "\n    value range:       not known (pixels not read with the header)\n",
          "\n    G0010-0010 = patient name: stc_test\n",
          "\n    G0019-100A =  [US]: 35\n", // a private element with its VR
          "\n    CSAImageHeaderInfo:\n      EchoLinePosition:\n        vm = 1\n        vr = IS\n"
          "        syngodt = 6\n        nitems = 6\n        xx = 77\n        values:\n"
          "          0000 = 32      \n",
          "\n    CSASeriesHeaderInfo:\n"})
        EXPECT_TRUE(contains(r.out, part)) << part;
    EXPECT_FALSE(contains(r.out, "G0029-1010") || contains(r.out, "G0029-1020")) << "decoded";
    // The first tile lies (384 - 64) / 2 x 3.25 mm along row and column from the corner.
    r = info("--no-attributes --all-frames", {mosaic});
    EXPECT_EQ(count(r.out, "\n  image "), 35u);
    EXPECT_FALSE(contains(r.out, "attributes:"));
    const double expected[2][3] = {{-104, -144.868087, -62.685166},
                                   {-104, -144.479289, -59.106222}};
    size_t from = 0;
    for (const auto &tile : expected) {
        from = r.out.find("\n    position:", from + 1);
        double p[3];
        ASSERT_EQ(
            std::sscanf(r.out.c_str() + from, "\n    position: %lf %lf %lf", &p[0], &p[1], &p[2]),
            3);
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(p[i], tile[i], 1e-3);
    }
    // The CT's pixels run 0 to 1813 (pydicom).
    for (const auto &[options, env] :
         {std::pair<std::string, std::string>{"--read-pixels", ""}, {"", "DICOM_DELAYED_READ=0"}})
        EXPECT_TRUE(contains(info("--no-attributes " + options, {ctI10}, env).out,
                             "\n    value range:       0 .. 1813\n"))
            << options << env;
    // One JSON document, an object per file: the texts of the text form, a failure's reasons.
    r = info("--json", {mosaic, missing});
    EXPECT_TRUE(r.status == 1 &&
                r.err == "reading " + missing + " failed: No such file or directory\n")
        << r.err;
    QJsonParseError error;
    const QJsonArray files =
        QJsonDocument::fromJson(QByteArray::fromStdString(r.out), &error).array();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << error.errorString().toStdString();
    ASSERT_EQ(files.size(), 2);
    EXPECT_TRUE(files[0]["file"].toString().toStdString() == mosaic && files[0]["ok"].toBool());
    EXPECT_TRUE(files[0]["attributes"].toArray().contains(
        QJsonArray{"G0010-0010", "patient name: stc_test"}));
    EXPECT_FALSE(files[1]["ok"].toBool() || files[1].toObject().contains("layer"));
    EXPECT_EQ(files[1]["failures"][0].toString(), QStringLiteral("No such file or directory"));
}

} // namespace
