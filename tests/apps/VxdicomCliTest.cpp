// The vxdicom command line, run as users run it.

#include "tests/support/TestSupport.h"

#include <algorithm>
#include <filesystem>

namespace {

using Outcome = vxtest::CommandOutcome;
using vxtest::shellQuote;

Outcome run(const std::string &arguments)
{
    return vxtest::runCapturing(shellQuote(VXDICOM_BINARY) + " " + arguments);
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

TEST(VxdicomCommand, HelpIsOnStandardOutput)
{
    for (const char *args : {"--help", "-h", "help"}) {
        const Outcome r = run(args);
        EXPECT_EQ(r.status, 0) << args;
        EXPECT_TRUE(contains(r.out, "usage: vxdicom COMMAND")) << args;
        EXPECT_TRUE(contains(r.out, "info")) << args;
        EXPECT_EQ(r.err, "") << args;
    }
    for (const char *args : {"info --help", "help info", "info -h", "info FILE --help"}) {
        const Outcome r = run(args);
        EXPECT_EQ(r.status, 0) << args;
        EXPECT_TRUE(contains(r.out, "usage: vxdicom info FILE...")) << args;
        EXPECT_TRUE(contains(r.out, "1.2.840.10008.1.2.4.90")) << "lists the transfer syntaxes";
    }
}

TEST(VxdicomCommand, UsageErrorsExitWithTwo)
{
    Outcome r = run("frobnicate");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "unknown command 'frobnicate'"));
    EXPECT_TRUE(contains(r.err, "usage: vxdicom COMMAND"));
    EXPECT_EQ(r.out, "");

    r = run("help frobnicate");
    EXPECT_EQ(r.status, 2);
    r = run("");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "usage: vxdicom COMMAND"));
    r = run("info");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "usage: vxdicom info"));
    r = run("info --bogus x.dcm");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "unknown option '--bogus'"));
    r = vxtest::runCapturing("env -u DISPLAY -u WAYLAND_DISPLAY " + shellQuote(VXDICOM_BINARY) +
                             " save-dicom in.nii -o out --edit");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "--edit shows a dialog and needs a display")) << r.err;
}

std::string ts(int n)
{
    return vxtest::sharedPath("dcm_qa_ts/In/" + std::to_string(n) + ".dcm");
}

// The text form; the values of every shared file are compared with pydicom
// and gdcmdump through the JSON form (info_vs_pydicom.py), which also asks for
// an exit status of 0 and nothing on standard error.
TEST(VxdicomInfo, ReportsWhatTheLayerReadsAndDecodes)
{
    VX_REQUIRE_SHARED_DATA();
    const Outcome r = run("info " + shellQuote(ts(3)) + " " + shellQuote(ts(9)));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(contains(r.out, ts(3) + "\n"));
    EXPECT_TRUE(contains(r.out, "transfer syntax:   1.2.840.10008.1.2.2 (Explicit VR Big Endian)"));
    EXPECT_TRUE(contains(
        r.out,
        "transfer syntax:   1.2.840.10008.1.2.4.90 (JPEG 2000 Image Compression (Lossless Only))"));
    EXPECT_TRUE(contains(r.out, "rows:              384\n"));
    EXPECT_TRUE(contains(r.out, "photometric:       MONOCHROME2\n"));
    size_t decoded = 0;
    for (size_t at = r.out.find("pixels:            1 frame decoded"); at != std::string::npos;
         at = r.out.find("pixels:            1 frame decoded", at + 1))
        ++decoded;
    EXPECT_EQ(decoded, 2u);
}

TEST(VxdicomInfo, FailuresAreReportedAndTheOtherFilesStillRead)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string text = dir.file("notes.txt");
    vxtest::writeFileBytes(text, {'h', 'e', 'l', 'l', 'o', '\n'});
    // Cut inside the pixel data: the header parses, the pixels are short.
    const std::string cut = dir.file("cut.dcm");
    std::vector<unsigned char> bytes = vxtest::readFileBytes(ts(1));
    bytes.resize(bytes.size() - 100);
    vxtest::writeFileBytes(cut, bytes);
    const std::string missing = dir.file("missing.dcm");

    const Outcome r = run("info " + shellQuote(missing) + " " + shellQuote(ts(1)) + " " +
                          shellQuote(text) + " " + shellQuote(cut));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "reading " + missing + " failed: No such file or directory\n"))
        << r.err;
    EXPECT_TRUE(contains(r.err, "reading " + text + " failed: not a DICOM file\n")) << r.err;
    EXPECT_TRUE(contains(r.err, "reading " + cut + " failed: (7FE0,0010) pixel data are truncated"))
        << r.err;
    EXPECT_TRUE(contains(r.out, ts(1) + "\n"));
    EXPECT_TRUE(contains(r.out, "1 frame decoded"));
    EXPECT_FALSE(contains(r.out, missing));
}

TEST(VxdicomInfo, AFrameThatCannotBeDecodedFailsTheFile)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    // The image size in the JPEG 2000 codestream of 9.dcm (SIZ marker right
    // after the start of codestream) no longer matches the header: the file
    // parses, its frame does not decode.
    std::vector<unsigned char> bytes = vxtest::readFileBytes(ts(9));
    const unsigned char soc[] = {0xFF, 0x4F, 0xFF, 0x51};
    auto at = std::search(bytes.begin(), bytes.end(), soc, soc + 4);
    ASSERT_NE(at, bytes.end());
    at[8] ^= 0x01; // Xsiz, most significant byte
    const std::string broken = dir.file("broken.dcm");
    vxtest::writeFileBytes(broken, bytes);
    const Outcome r = run("info " + shellQuote(broken));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.out, "pixels:            not decoded"));
    EXPECT_TRUE(contains(r.err, "reading " + broken + " failed: JPEG 2000")) << r.err;
}

} // namespace

TEST(VxdicomLoad, DamageFailsTheCommandWhicheverReadingModeFindsIt)
{
    // A series beside a file cut in its header, and beside a JPEG file whose
    // codestream is broken (found when its pixels are decoded: with the header
    // when DICOM_DELAYED_READ=0, else when the field is filled). The series
    // loads every time; the damage makes the status 1 and is named on
    // standard error.
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    std::vector<unsigned char> header = vxtest::readFileBytes(ts(1));
    header.resize(1000);
    vxtest::writeFileBytes(dir.file("header.dcm"), header);
    std::vector<unsigned char> jpeg = vxtest::readFileBytes(ts(5));
    const unsigned char soi[] = {0xFF, 0xD8, 0xFF};
    const auto at = std::search(jpeg.begin() + 1000, jpeg.end(), soi, soi + 3);
    ASSERT_NE(at, jpeg.end());
    std::fill(at, at + 3, 0);
    vxtest::writeFileBytes(dir.file("pixels.dcm"), jpeg);
    const std::string series = shellQuote(vxtest::sharedPath("dcm_qa_sag/In/2_gre_field_mapping"));
    for (const char *broken : {"header.dcm", "pixels.dcm"})
        for (const char *mode : {"", "DICOM_DELAYED_READ=0 "}) {
            SCOPED_TRACE(std::string(mode) + broken);
            const Outcome r = vxtest::runCapturing(
                std::string("env QT_QPA_PLATFORM=offscreen ") + mode + shellQuote(VXDICOM_BINARY) +
                " load -nodialog -q " + series + " " + shellQuote(dir.file(broken)));
            EXPECT_EQ(r.status, 1);
            EXPECT_TRUE(contains(r.err, "reading " + dir.file(broken) + " failed: ")) << r.err;
            EXPECT_FALSE(contains(r.out, "failed")) << r.out;
            EXPECT_TRUE(contains(r.out, "field \"")) << "the series still loads:\n" << r.out;
        }
}
