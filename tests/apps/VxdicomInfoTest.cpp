// vxdicom info: the layer's section, each file's failure, image records, attributes, decoded CSA
// headers, the options and the JSON form (every shared file: info_vs_pydicom.py).

#include "tests/apps/CliRunner.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace clitest;

namespace {

std::string ts(int n)
{
    return vxtest::sharedPath("dcm_qa_ts/In/" + std::to_string(n) + ".dcm");
}
// A Siemens EPI mosaic with both CSA headers; an enhanced MR of 6 frames 2.4 mm apart.
const std::string mosaic = vxtest::sharedPath(
    "dcm_qa/In/Orientation/ax/axasc35/MR.1.3.12.2.1107.5.2.32.35131.2014031012493950715786673");
const std::string enhanced = vxtest::sharedPath("dcm_qa_enh/In/Siemens/XA10/6_1.dcm");
const std::string ctI10 = vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10");

Outcome info(const std::string &options, const std::vector<std::string> &files,
             const std::string &env = {})
{
    std::string args = "info " + options;
    for (const std::string &f : files)
        args += " " + q(f);
    return vxdicom(args, {}, env);
}

TEST(VxdicomInfo, LayerSectionAndFailuresOfEachFile)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string text = dir.file("notes.txt"), cut = dir.file("cut.dcm"),
                      j2k = dir.file("j2k.dcm"), missing = dir.file("missing.dcm");
    vxtest::writeFileBytes(text, {'h', 'i', '\n'});
    std::vector<unsigned char> bytes = vxtest::readFileBytes(ts(1));
    bytes.resize(bytes.size() - 100); // the header parses, the pixels are short
    vxtest::writeFileBytes(cut, bytes);
    // The JPEG 2000 codestream's width (SIZ after SOC) no longer matches the header.
    bytes = vxtest::readFileBytes(ts(9));
    const unsigned char soc[] = {0xFF, 0x4F, 0xFF, 0x51};
    auto at = std::search(bytes.begin(), bytes.end(), soc, soc + 4);
    ASSERT_NE(at, bytes.end());
    at[8] ^= 0x01;
    vxtest::writeFileBytes(j2k, bytes);

    const Outcome r = info("", {ts(3), ts(9), ts(4), missing, text, cut, j2k});
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
    EXPECT_EQ(count(r.out, "pixels:            1 frame decoded"), 3u) << r.out;
    EXPECT_FALSE(contains(r.out, missing));
}

TEST(VxdicomInfoRecord, MosaicTilesAttributesCsaHeadersMultiFrameAndValueRanges)
{
    VX_REQUIRE_SHARED_DATA();
    Outcome r = info("", {mosaic});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    // As gdcmdump and nibabel read the file.
    for (const char *part :
         {"\n  pixels:            1 frame decoded\n",
          "\n  image 1 of 35:\n    size:              64 x 64\n",
          "\n    bits stored:       12\n    high bit:          11\n",
          "\n    pixel spacing:     3.25 x 3.25 mm (row, column)\n",
          "\n    slice thickness:   3 mm\n", "\n    row direction:     1 -1e-16 0\n",
          "\n    oblique:           yes\n",
          "\n    value range:       not known (pixels not read with the header)\n",
          "\n    G0010-0010 = patient name: stc_test\n",
          "\n    G0018-0088 = spacing between slices: 3.6000000030835\n",
          "\n    G0019-100A =  [US]: 35\n", // a private element with its VR
          "\n    CSAImageHeaderInfo:\n      EchoLinePosition:\n        vm = 1\n        vr = IS\n"
          "        syngodt = 6\n        nitems = 6\n        xx = 77\n        values:\n"
          "          0000 = 32      \n",
          "\n    CSASeriesHeaderInfo:\n"})
        EXPECT_TRUE(contains(r.out, part)) << part;
    EXPECT_FALSE(contains(r.out, "G0029-1010")) << "decoded, not shown in hexadecimal";
    EXPECT_FALSE(contains(r.out, "G0029-1020"));

    // The first tile lies (384 - 64) / 2 x 3.25 mm along row and column from the corner.
    r = info("--no-attributes --all-frames", {mosaic});
    EXPECT_EQ(count(r.out, "\n  image "), 35u);
    EXPECT_FALSE(contains(r.out, "attributes:"));
    const double expected[2][3] = {{-104, -144.868087, -62.685166},
                                   {-104, -144.479289, -59.106222}};
    size_t at = 0;
    for (const auto &tile : expected) {
        at = r.out.find("\n    position:", at + 1);
        ASSERT_NE(at, std::string::npos);
        double p[3];
        ASSERT_EQ(
            std::sscanf(r.out.c_str() + at, "\n    position: %lf %lf %lf", &p[0], &p[1], &p[2]), 3);
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(p[i], tile[i], 1e-3);
    }
    r = info("--attributes-only", {mosaic});
    EXPECT_FALSE(contains(r.out, "transfer syntax:") || contains(r.out, "pixels:") ||
                 contains(r.out, "image 1"));
    EXPECT_TRUE(contains(r.out, "\n    G0010-0010 = patient name: stc_test\n"));
    r = info("--no-decode --no-attributes", {mosaic});
    EXPECT_TRUE(contains(r.out, "\n  transfer syntax:") && !contains(r.out, "pixels:"));
    // A multi-frame file shows its first image; the CT's pixels run 0 to 1813 (pydicom).
    r = info("--no-attributes", {enhanced});
    EXPECT_TRUE(contains(r.out, "\n  image 1 of 6:\n") &&
                contains(r.out, "\n  (5 more images, one per frame or mosaic tile; --all-frames "
                                "lists them)\n") &&
                contains(r.out, "\n    pixel spacing:     3.375 x 3.375 mm (row, column)\n"))
        << r.out;
    for (const auto &[options, env] :
         {std::pair<std::string, std::string>{"--read-pixels", ""}, {"", "DICOM_DELAYED_READ=0"}})
        EXPECT_TRUE(contains(info("--no-attributes " + options, {ctI10}, env).out,
                             "\n    value range:       0 .. 1813\n"))
            << options << env;
}

QJsonObject pairs(const QJsonValue &bundle) // [name, value] pairs as an object
{
    QJsonObject o;
    for (const QJsonValue &p : bundle.toArray())
        o.insert(p.toArray().at(0).toString(), p.toArray().at(1));
    return o;
}

// pydicom's files (info_vs_pydicom.py --fixtures): Latin-1 texts with a CSA header, 32-bit YBR.
TEST(VxdicomInfoJson, OneValidDocumentWithAnObjectPerFileAndTheSameTextsAsTheTextForm)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    std::string log;
    if (!vxtest::havePythonModules({"pydicom", "numpy"}) ||
        python("info_vs_pydicom.py", {"--fixtures", dir.path().string()}, &log) != 0)
        GTEST_SKIP() << "pydicom and numpy are needed for the fixtures: " << log;
    const std::string wide = dir.file("wide.dcm"), texts = dir.file("texts.dcm");
    const std::string refusal =
        "32-bit YBR_FULL with 3 components is not supported: 32-bit colour is read as RGB only.";

    Outcome r = info("--attributes-only", {texts});
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char *part : {"\n    G0010-0010 = patient name: M\xC3\xBCller\n",
                             "\n    G0020-4000 = image comments: line one\\r\\nline two\\ttab\n",
                             "\n      Beta:\n", "\n          0000 = a\xC2\xB5\\x01\n"})
        EXPECT_TRUE(contains(r.out, part)) << part;
    const std::string gamma = "      Gamma:\n        vm = 1\n        vr = DS\n        syngodt = 6\n"
                              "        nitems = 0\n        xx = 77\n";
    EXPECT_TRUE(r.out.size() > gamma.size() && r.out.substr(r.out.size() - gamma.size()) == gamma)
        << r.out;
    r = info("--no-attributes", {wide, ctI10});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "reading " + wide + " failed: " + refusal + "\n");
    EXPECT_TRUE(contains(r.out, "\n  bits allocated:    32\n  ") &&
                contains(r.out, "\n  failed:            " + refusal + "\n"));
    EXPECT_EQ(count(r.out, "\n  image 1 of 1:\n"), 1u) << "the other file is still read";
    r = info("--attributes-only", {wide});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "reading " + wide + " failed: " + refusal + "\n");
    EXPECT_EQ(r.out, "");

    const std::string dicomDir = vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/DIRFILE");
    r = info("--json --all-frames", {mosaic, wide, texts, enhanced, dicomDir, "/nonexistent.dcm"});
    EXPECT_EQ(r.status, 1);
    QJsonParseError error;
    const QJsonArray files =
        QJsonDocument::fromJson(QByteArray::fromStdString(r.out), &error).array();
    EXPECT_EQ(error.error, QJsonParseError::NoError) << error.errorString().toStdString();
    ASSERT_EQ(files.size(), 6);

    // The mosaic's values and CSA bundles are compared with pydicom's by info_vs_pydicom.py.
    EXPECT_TRUE(files[0]["file"].toString().toStdString() == mosaic && files[0]["ok"].toBool());

    const QJsonObject w = files[1].toObject();
    EXPECT_FALSE(w["ok"].toBool());
    EXPECT_EQ(w["failures"].toArray(), QJsonArray({QString::fromStdString(refusal)}));
    EXPECT_EQ(w["layer"]["bitsAllocated"].toInt(), 32);
    EXPECT_FALSE(w.contains("images"));

    const QJsonObject t = pairs(files[2]["attributes"]);
    EXPECT_EQ(t["G0010-0010"].toString(), QString::fromUtf8("patient name: Müller"));
    EXPECT_EQ(t["G0020-4000"].toString(), QString("image comments: line one\r\nline two\ttab"));
    EXPECT_EQ(pairs(pairs(pairs(t["CSAImageHeaderInfo"])["Beta"])["values"])["0000"].toString(),
              QString("a\u00B5\x01"));

    const QJsonObject e = files[3].toObject();
    ASSERT_EQ(e["images"].toArray().size(), 6);
    EXPECT_EQ(e["imageCount"].toInt() * 10 + e["images"][5]["frame"].toInt(), 66);
    EXPECT_NEAR(e["images"][5]["sliceLocation"].toDouble() -
                    e["images"][0]["sliceLocation"].toDouble(),
                12.0, 1e-4);

    const QJsonObject d = files[4].toObject();
    EXPECT_TRUE(d["ok"].toBool() && d["layer"]["dicomDir"].toBool());
    EXPECT_EQ(d["imageCount"].toInt() + d["images"].toArray().size(), 0);

    const QJsonObject missing = files[5].toObject();
    EXPECT_FALSE(missing["ok"].toBool() || missing.contains("layer"));
    EXPECT_EQ(missing["failures"][0].toString().toStdString(), "No such file or directory");
}

} // namespace
