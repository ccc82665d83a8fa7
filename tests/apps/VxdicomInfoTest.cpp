// vxdicom info as the module stores a file: image records, attribute
// parameters with the decoded CSA headers, failures of the module's read,
// the options and the JSON form. (The layer's section and the frame decoding
// are covered in VxdicomCliTest.cpp; every shared file against pydicom and
// gdcmdump in info_vs_pydicom.py.)

#include "tests/support/TestSupport.h"

#include <cstdio>
#include <set>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <memory>

namespace {

using Outcome = vxtest::CommandOutcome;
using vxtest::shellQuote;

// Runs vxdicom with the arguments; `environment` goes in front ("NAME=VALUE ...").
Outcome run(const std::string &arguments, const std::string &environment = std::string())
{
    return vxtest::runCapturing("env -u DICOM_DELAYED_READ -u DICOM_EPS_ORIENTATION " +
                                environment + " " + shellQuote(VXDICOM_BINARY) + " " + arguments);
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

size_t count(const std::string &text, const std::string &part)
{
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

// Siemens TrioTim EPI mosaic, explicit VR little endian, with both CSA headers.
std::string siemensMosaic()
{
    return vxtest::sharedPath(
        "dcm_qa/In/Orientation/ax/axasc35/MR.1.3.12.2.1107.5.2.32.35131.2014031012493950715786673");
}

// Siemens XA10 enhanced MR: 6 frames, Spacing Between Slices 2.4, geometry in
// the functional groups only.
std::string enhancedSixFrames()
{
    return vxtest::sharedPath("dcm_qa_enh/In/Siemens/XA10/6_1.dcm");
}

/// The files of info_fixtures.py, written by pydicom into a temporary folder.
class Fixtures
{
public:
    Fixtures()
    {
        if (!vxtest::havePythonModules({"pydicom", "numpy"}))
            return;
        std::string output;
        written =
            vxtest::runCommand(std::string(VX_PYTHON) + " " +
                                   shellQuote(std::string(VX_APPS_TEST_DIR) + "/info_fixtures.py") +
                                   " " + shellQuote(dir.path().string()),
                               &output, true) == 0;
    }
    bool ok() const { return written; }
    std::string file(const char *name) const { return dir.file(name); }

private:
    vxtest::TempDir dir;
    bool written = false;
};

#define REQUIRE_FIXTURES(f)                                                                        \
    do {                                                                                           \
        if (!(f).ok())                                                                             \
            GTEST_SKIP() << "pydicom and numpy for /usr/bin/python3 are needed to write the "      \
                            "fixtures (python3-pydicom, python3-numpy)";                           \
    } while (0)

TEST(VxdicomInfoRecord, SiemensMosaicShowsItsImageRecordAndDecodedCsaHeaders)
{
    VX_REQUIRE_SHARED_DATA();
    Outcome r = run("info " + shellQuote(siemensMosaic()));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    // Values as gdcmdump prints them: Pixel Spacing 3.25\3.25, Image Position
    // -624\-661.82658862211\-6.5255017698948, Image Orientation
    // 1\-1e-016\0\1e-016\0.99415096409965\-0.1079993545339 (the column
    // direction is 0.108 from the nearest axis, so oblique), 35 images in the
    // mosaic (0019,100A), Spacing Between Slices 3.6000000030835.
    // The 384 x 384 frame holds 6 x 6 tiles of 64 x 64. The first tile lies
    // (384 - 64) / 2 x 3.25 = 520 mm along the row and the column direction
    // from the mosaic's corner: -624 + 520 = -104, -661.82658862 + 520 x
    // 0.99415096 = -144.868087, -6.52550177 - 520 x 0.10799935 = -62.685166.
    // The second lies 3.6 mm further along the CSA slice normal (0, 0.108,
    // 0.99415): -104, -144.479289, -59.106222.
    EXPECT_TRUE(contains(r.out, "\n  image 1 of 35:\n    size:              64 x 64\n"));
    r = run("info --no-attributes --all-frames " + shellQuote(siemensMosaic()));
    EXPECT_EQ(count(r.out, "\n  image "), 35u);
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
    r = run("info " + shellQuote(siemensMosaic()));
    EXPECT_TRUE(contains(r.out, "\n    bits stored:       12\n    high bit:          11\n"));
    EXPECT_TRUE(contains(r.out, "\n    pixel spacing:     3.25 x 3.25 mm (row, column)\n"));
    EXPECT_TRUE(contains(r.out, "\n    slice thickness:   3 mm\n"));
    EXPECT_TRUE(contains(r.out, "\n    row direction:     1 -1e-16 0\n"));
    EXPECT_TRUE(contains(r.out, "\n    oblique:           yes\n"));
    EXPECT_TRUE(contains(r.out, "\n    value range:       not known (pixels not read with the "
                                "header)\n"));
    EXPECT_TRUE(contains(r.out, "\n    G0010-0010 = patient name: stc_test\n"));
    EXPECT_TRUE(contains(r.out, "\n    G0018-0088 = spacing between slices: 3.6000000030835\n"));
    // Private elements the dictionary does not know carry their VR.
    EXPECT_TRUE(contains(r.out, "\n    G0019-100A =  [US]: 35\n"));
    // nibabel's CSA parser: the image header's first tag is EchoLinePosition
    // (IS, vm 1, syngodt 6, 6 items, first item "32" padded with blanks).
    EXPECT_TRUE(contains(r.out, "\n    CSAImageHeaderInfo:\n      EchoLinePosition:\n"
                                "        vm = 1\n        vr = IS\n        syngodt = 6\n"
                                "        nitems = 6\n        xx = 77\n        values:\n"
                                "          0000 = 32      \n"));
    EXPECT_TRUE(contains(r.out, "\n    CSASeriesHeaderInfo:\n"));
    // The decoded headers replace their hexadecimal parameters.
    EXPECT_FALSE(contains(r.out, "G0029-1010"));
    EXPECT_FALSE(contains(r.out, "G0029-1020"));
}

TEST(VxdicomInfoRecord, MultiFrameFilesShowTheFirstImageUnlessEveryFrameIsAsked)
{
    VX_REQUIRE_SHARED_DATA();
    Outcome r = run("info --no-attributes " + shellQuote(enhancedSixFrames()));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(count(r.out, "\n  image "), 1u);
    EXPECT_TRUE(contains(r.out, "\n  image 1 of 6:\n"));
    EXPECT_TRUE(contains(
        r.out, "\n  (5 more images, one per frame or mosaic tile; --all-frames lists them)\n"));
    // The geometry comes from the functional groups (gdcmdump: Pixel Spacing
    // 3.375\3.375 in the shared groups).
    EXPECT_TRUE(contains(r.out, "\n    pixel spacing:     3.375 x 3.375 mm (row, column)\n"));

    r = run("info --no-attributes --all-frames " + shellQuote(enhancedSixFrames()));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(count(r.out, "\n  image "), 6u);
    EXPECT_FALSE(contains(r.out, "more images"));
    // Each frame has its own Plane Position: six different positions.
    std::set<std::string> positions;
    for (size_t at = r.out.find("\n    position:"); at != std::string::npos;
         at = r.out.find("\n    position:", at + 1))
        positions.insert(r.out.substr(at, r.out.find('\n', at + 1) - at));
    EXPECT_EQ(positions.size(), 6u);
}

TEST(VxdicomInfoRecord, ValueRangesAreKnownWhenPixelsAreReadWithTheHeader)
{
    VX_REQUIRE_SHARED_DATA();
    // pydicom: pixel_array of the Philips CT slice I10 runs from 0 to 1813.
    const std::string file = vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10");
    for (const auto &[options, environment] :
         {std::pair<std::string, std::string>{"--read-pixels", ""},
          std::pair<std::string, std::string>{"", "DICOM_DELAYED_READ=0"}}) {
        const Outcome r =
            run("info --no-attributes " + options + " " + shellQuote(file), environment);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(contains(r.out, "\n    value range:       0 .. 1813\n"))
            << options << environment;
    }
}

TEST(VxdicomInfoRecord, TextsAreShownOnOneLineAndNotUtf8BytesAsLatin1)
{
    const Fixtures fixtures;
    REQUIRE_FIXTURES(fixtures);
    const Outcome r = run("info --attributes-only " + shellQuote(fixtures.file("texts.dcm")));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "\n    G0010-0010 = patient name: M\xC3\xBCller\n"));
    EXPECT_TRUE(
        contains(r.out, "\n    G0020-4000 = image comments: line one\\r\\nline two\\ttab\n"));
    EXPECT_TRUE(contains(r.out, "\n      Beta:\n"));
    EXPECT_TRUE(contains(r.out, "\n          0000 = a\xC2\xB5\\x01\n"));
    // A tag without items has no "values" bundle; it is the last entry here.
    const std::string gamma = "      Gamma:\n        vm = 1\n        vr = DS\n        syngodt = 6\n"
                              "        nitems = 0\n        xx = 77\n";
    EXPECT_TRUE(r.out.size() >= gamma.size() &&
                r.out.compare(r.out.size() - gamma.size(), gamma.size(), gamma) == 0)
        << r.out;
}

TEST(VxdicomInfoFailures, AnImageTheModuleRefusesIsReportedAndTheOtherFilesStillRead)
{
    VX_REQUIRE_SHARED_DATA();
    const Fixtures fixtures;
    REQUIRE_FIXTURES(fixtures);
    const std::string wide = fixtures.file("wide.dcm");
    const std::string good = vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10");
    const Outcome r = run("info --no-attributes " + shellQuote(wide) + " " + shellQuote(good));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "reading " + wide +
                         " failed: 32-bit YBR_FULL with 3 components is not supported: 32-bit "
                         "colour is read as RGB only.\n");
    // The layer reads the 32-bit file; the image record refuses it.
    EXPECT_TRUE(contains(r.out, wide + "\n  transfer syntax:"));
    EXPECT_TRUE(contains(r.out, "\n  bits allocated:    32\n"));
    EXPECT_TRUE(contains(r.out, "\n  failed:            32-bit YBR_FULL with 3 components is not "
                                "supported: 32-bit colour is read as RGB only.\n"));
    EXPECT_TRUE(contains(r.out, "\n" + good + "\n"));
    EXPECT_EQ(count(r.out, "\n  image 1 of 1:\n"), 1u);

    // Without the layer's section the module's own read reports it.
    const Outcome a = run("info --attributes-only " + shellQuote(wide));
    EXPECT_EQ(a.status, 1);
    EXPECT_EQ(a.err, "reading " + wide +
                         " failed: 32-bit YBR_FULL with 3 components is not supported: 32-bit "
                         "colour is read as RGB only.\n");
    EXPECT_EQ(a.out, "");
}

TEST(VxdicomInfoOptions, OptionsChooseTheSections)
{
    VX_REQUIRE_SHARED_DATA();
    const std::string file = shellQuote(siemensMosaic());
    Outcome r = run("info --no-attributes " + file);
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(contains(r.out, "\n  transfer syntax:"));
    EXPECT_TRUE(contains(r.out, "\n  pixels:            1 frame decoded\n"));
    EXPECT_TRUE(contains(r.out, "\n  image 1 of 35:\n"));
    EXPECT_FALSE(contains(r.out, "attributes:"));
    EXPECT_FALSE(contains(r.out, "G0010-0010"));

    r = run("info --attributes-only " + file);
    EXPECT_EQ(r.status, 0);
    EXPECT_FALSE(contains(r.out, "transfer syntax:"));
    EXPECT_FALSE(contains(r.out, "pixels:"));
    EXPECT_FALSE(contains(r.out, "image 1 of 1"));
    EXPECT_TRUE(contains(r.out, "\n  attributes:        "));
    EXPECT_TRUE(contains(r.out, "\n    G0010-0010 = patient name: stc_test\n"));

    r = run("info --no-decode --no-attributes " + file);
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(contains(r.out, "\n  transfer syntax:"));
    EXPECT_FALSE(contains(r.out, "pixels:"));

    r = run("info --no-attributes --attributes-only " + file);
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "exclude each other"));
    EXPECT_EQ(r.out, "");

    r = run("info --help");
    for (const char *option : {"--all-frames", "--no-attributes", "--attributes-only",
                               "--no-decode", "--read-pixels", "--json"})
        EXPECT_TRUE(contains(r.out, std::string("\n  ") + option + " ")) << option;
}

TEST(VxdicomInfoOptions, ConsoleMessagesOfTheReadBelongToTheFile)
{
    VX_REQUIRE_SHARED_DATA();
    // An RLE file with Planar Configuration 0: the image record warns.
    const std::string file = vxtest::sharedPath("dcm_qa_ts/In/4.dcm");
    const Outcome r = run("info --no-attributes " + shellQuote(file));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(contains(
        r.out,
        "\n  message:           WARNING: forcing planarConfig=1 for RLE compressed images\n"));
    EXPECT_TRUE(contains(r.out, "\n    planar config:     1\n"));
}

QJsonArray parseJson(const std::string &text)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(text), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError)
        << error.errorString().toStdString() << " at " << error.offset;
    EXPECT_TRUE(doc.isArray());
    return doc.array();
}

// The [name, value] pairs of a bundle as an object (the names in these
// files are unique).
QJsonObject pairs(const QJsonValue &bundle)
{
    QJsonObject o;
    for (const QJsonValue &p : bundle.toArray())
        o.insert(p.toArray().at(0).toString(), p.toArray().at(1));
    return o;
}

TEST(VxdicomInfoJson, OneValidDocumentWithAnObjectPerFile)
{
    VX_REQUIRE_SHARED_DATA();
    const Fixtures fixtures;
    REQUIRE_FIXTURES(fixtures);
    const std::string dicomDir = vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/DIRFILE");
    const Outcome r = run(
        "info --json --all-frames " + shellQuote(siemensMosaic()) + " " +
        shellQuote(fixtures.file("wide.dcm")) + " " + shellQuote(fixtures.file("texts.dcm")) + " " +
        shellQuote(enhancedSixFrames()) + " " + shellQuote(dicomDir) + " /nonexistent.dcm");
    EXPECT_EQ(r.status, 1);
    const QJsonArray files = parseJson(r.out);
    ASSERT_EQ(files.size(), 6);

    const QJsonObject mosaic = files[0].toObject();
    EXPECT_EQ(mosaic["file"].toString().toStdString(), siemensMosaic());
    EXPECT_TRUE(mosaic["ok"].toBool());
    EXPECT_EQ(mosaic["layer"]["rows"].toInt(), 384);
    EXPECT_EQ(mosaic["imageCount"].toInt(), 35);
    const QJsonObject image = mosaic["images"][0].toObject();
    EXPECT_EQ(image["width"].toInt(), 64);
    EXPECT_EQ(image["bitsStored"].toInt(), 12);
    EXPECT_DOUBLE_EQ(image["pixelSpacing"][0].toDouble(), 3.25);
    EXPECT_DOUBLE_EQ(image["pixelSpacing"][1].toDouble(), 3.25);
    EXPECT_TRUE(image["hasPosition"].toBool());
    EXPECT_NEAR(image["position"][1].toDouble(), -144.868087, 1e-4); // the first tile
    EXPECT_NEAR(image["columnDirection"][2].toDouble(), -0.1079993545339, 1e-6);
    EXPECT_TRUE(image["oblique"].toBool());
    EXPECT_TRUE(image["valueRange"].isNull());
    const QJsonObject attributes = pairs(mosaic["attributes"]);
    EXPECT_EQ(attributes["G0010-0010"].toString().toStdString(), "patient name: stc_test");
    const QJsonObject csa = pairs(attributes["CSAImageHeaderInfo"]);
    const QJsonObject echo = pairs(csa["EchoLinePosition"]);
    EXPECT_EQ(echo["vm"].toInt(), 1);
    EXPECT_EQ(echo["vr"].toString().toStdString(), "IS");
    EXPECT_EQ(pairs(echo["values"])["0000"].toString().toStdString(), "32      ");

    const QJsonObject wide = files[1].toObject();
    EXPECT_FALSE(wide["ok"].toBool());
    ASSERT_EQ(wide["failures"].toArray().size(), 1);
    EXPECT_EQ(
        wide["failures"][0].toString().toStdString(),
        "32-bit YBR_FULL with 3 components is not supported: 32-bit colour is read as RGB only.");
    EXPECT_EQ(wide["layer"]["bitsAllocated"].toInt(), 32);
    EXPECT_FALSE(wide.contains("images"));

    const QJsonObject texts = files[2].toObject();
    const QJsonObject textAttributes = pairs(texts["attributes"]);
    EXPECT_EQ(textAttributes["G0010-0010"].toString(), QString::fromUtf8("patient name: Müller"));
    EXPECT_EQ(textAttributes["G0020-4000"].toString(),
              QString("image comments: line one\r\nline two\ttab"));
    const QJsonObject beta = pairs(pairs(textAttributes["CSAImageHeaderInfo"])["Beta"]);
    EXPECT_EQ(pairs(beta["values"])["0000"].toString(), QString("a\u00B5\x01"));

    const QJsonObject enhanced = files[3].toObject();
    EXPECT_EQ(enhanced["imageCount"].toInt(), 6);
    ASSERT_EQ(enhanced["images"].toArray().size(), 6);
    EXPECT_EQ(enhanced["images"][5]["frame"].toInt(), 6);
    // Six frames placed by their functional groups, 2.4 mm apart.
    EXPECT_NEAR(enhanced["images"][5]["sliceLocation"].toDouble() -
                    enhanced["images"][0]["sliceLocation"].toDouble(),
                12.0, 1e-4);

    const QJsonObject dir = files[4].toObject();
    EXPECT_TRUE(dir["ok"].toBool());
    EXPECT_TRUE(dir["layer"]["dicomDir"].toBool());
    EXPECT_EQ(dir["imageCount"].toInt(), 0);
    EXPECT_EQ(dir["images"].toArray().size(), 0);

    const QJsonObject missing = files[5].toObject();
    EXPECT_FALSE(missing["ok"].toBool());
    EXPECT_EQ(missing["failures"][0].toString().toStdString(), "No such file or directory");
    EXPECT_FALSE(missing.contains("layer"));
}

} // namespace
