// Real scanner files broken in the ways the reader meets in the wild, each
// loaded together with an intact series through the reader's pipeline, header
// only and with all pixels at once: every broken file is reported by name,
// the series still gives exactly the field it gives alone, and no temporary
// file is left behind. Nothing may crash, hang or read out of bounds (CI runs
// this suite under AddressSanitizer and UndefinedBehaviorSanitizer).

#include "tests/hostile/BrokenFiles.h"
#include "tests/hostile/HostileLoad.h"
#include "tests/support/TestSupport.h"

#include "vxdicom/reader/VxDicomFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

namespace fs = std::filesystem;
using namespace hostile;

namespace {

class BrokenFiles : public ::testing::Test
{
protected:
    void SetUp() override
    {
        VX_REQUIRE_SHARED_DATA();
        series = vxtest::sharedDicomFiles(kSeriesDir);
        ASSERT_EQ(series.size(), 5u);
        source = vxtest::readFileBytes(vxtest::sharedPath(kSource));
        ASSERT_GT(source.size(), 100000u);
        for (bool delayed : {true, false}) {
            LoadOutcome alone = loadFiles(series, delayed);
            ASSERT_EQ(alone.fields.size(), 1u) << alone.console;
            seriesField[delayed] = alone.fields[0];
        }
        ASSERT_EQ(seriesField[true].dims[0], 5);
        ASSERT_EQ(seriesField[true].dims[1], 42);
        ASSERT_EQ(seriesField[true].dims[2], 64);
        ASSERT_EQ(seriesField[true], seriesField[false]);
    }

    std::string write(const std::string &name, const Bytes &bytes)
    {
        const std::string path = dir.file(name);
        vxtest::writeFileBytes(path, bytes);
        return path;
    }

    // Loads the series with the broken files, header only and with every
    // pixel at once. Each broken file must be named in a failure line that
    // holds `reason`; the series must give the field it gives alone (and
    // nothing else); no temporary file may be left.
    void expectRefusedBesideTheSeries(const std::vector<std::string> &broken,
                                      const std::string &reason, const std::string &what)
    {
        std::vector<std::string> names = series;
        names.insert(names.end(), broken.begin(), broken.end());
        for (bool delayed : {true, false}) {
            SCOPED_TRACE(what + (delayed ? " (header only)" : " (all pixels)"));
            const LoadOutcome mixed = loadFiles(names, delayed);
            for (const std::string &name : broken) {
                const std::string line = failureLine(mixed.console, name);
                EXPECT_FALSE(line.empty()) << name << " is not reported:\n" << mixed.console;
                EXPECT_NE(line.find(reason), std::string::npos)
                    << "expected \"" << reason << "\" in: " << line;
            }
            ASSERT_EQ(mixed.fields.size(), 1u) << mixed.console;
            EXPECT_EQ(mixed.fields[0], seriesField[delayed]) << mixed.console;
            EXPECT_TRUE(temp.leftovers().empty()) << temp.leftovers().front();
        }
    }

    vxtest::TempDir dir; // made before TMPDIR is pointed at the watched folder
    WatchedTempDir temp;
    std::vector<std::string> series;
    Bytes source;
    FieldFacts seriesField[2];
};

// Cuts at 0, 97, 194, ... bytes. A cut inside an element or the pixel data is
// refused by name; a cut that falls exactly between two elements before the
// pixel data leaves a valid data set without an image, which is read with a
// warning that names it and gives nothing.
TEST_F(BrokenFiles, CopiesCutAtEvery97thByteAreRefusedByNameAndTheSeriesStillLoads)
{
    const size_t pixelStart = findElement(source, 0x7FE0, 0x0010).offset;
    std::vector<std::string> cut;
    std::vector<size_t> at;
    for (size_t n = 0; n < source.size(); n += 97) {
        cut.push_back(write("cut" + std::to_string(n) + ".dcm",
                            Bytes(source.begin(), source.begin() + long(n))));
        at.push_back(n);
    }
    std::vector<std::string> names = series;
    names.insert(names.end(), cut.begin(), cut.end());
    for (bool delayed : {true, false}) {
        SCOPED_TRACE(delayed ? "header only" : "all pixels");
        const LoadOutcome mixed = loadFiles(names, delayed);
        int readWithoutImage = 0;
        for (size_t i = 0; i < cut.size(); ++i) {
            if (!failureLine(mixed.console, cut[i]).empty())
                continue;
            EXPECT_TRUE(readLine(mixed.console, cut[i])) << cut[i] << " is not reported";
            EXPECT_NE(mixed.console.find("Warning: " + cut[i] + " holds no pixel data"),
                      std::string::npos)
                << cut[i];
            EXPECT_LT(at[i], pixelStart) << cut[i] << " cut inside the pixel data was read";
            ++readWithoutImage;
        }
        EXPECT_LT(readWithoutImage, 5) << "cuts are refused, with few exceptions";
        ASSERT_EQ(mixed.fields.size(), 1u);
        EXPECT_EQ(mixed.fields[0], seriesField[delayed]);
        EXPECT_TRUE(temp.leftovers().empty());
    }
}

TEST_F(BrokenFiles, LengthsPastTheEndAreRefusedByName)
{
    const Element pixels = findElement(source, 0x7FE0, 0x0010);
    const uint32_t pastEnd = uint32_t(source.size() - pixels.value + 2);
    // A private sequence of defined length whose length then claims more.
    Bytes withSequence = insertedBefore(source, 0x0071, 0x0010, nestedSequences(3, false));
    const struct
    {
        const char *name;
        const char *what;
        Bytes bytes;
        const char *reason;
    } cases[] = {
        {"csa4g", "(0029,1010) CSA header claiming 4 GB",
         withLength(source, 0x0029, 0x1010, 0xFFFFFFF0u), "premature end of file"},
        {"pixels_past_end", "(7FE0,0010) pixel data 2 bytes longer than the file",
         withLength(source, 0x7FE0, 0x0010, pastEnd), "(7FE0,0010) pixel data are truncated"},
        {"name64k", "(0010,0010) patient name of 65534 bytes",
         withLength(source, 0x0010, 0x0010, 0xFFFE), "cannot extract DICOM information from: "},
        {"sequence4g", "(0071,1001) sequence claiming 4 GB",
         withLength(withSequence, 0x0071, 0x1001, 0xFFFFFFF0u),
         "cannot extract DICOM information from: "},
    };
    for (const auto &c : cases) {
        const std::string path = write(std::string(c.name) + ".dcm", c.bytes);
        expectRefusedBesideTheSeries({path}, c.reason, c.what);
    }
}

TEST_F(BrokenFiles, UndefinedLengthSequenceWithoutDelimitersIsRefusedByName)
{
    const std::string path =
        write("open.dcm", insertedBefore(source, 0x0071, 0x0010, sequenceWithoutDelimiters()));
    expectRefusedBesideTheSeries({path}, "cannot extract DICOM information from: " + path,
                                 "sequence and item without delimiters");
}

// 1,000 levels are deep but valid: the file loads as its own field. Far
// deeper nesting (a few bytes a level) is refused before the parser's
// recursion can exhaust the stack, also after the pixel data of a compressed
// file, which only the decoder parses.
TEST_F(BrokenFiles, SequencesNestedThousandsDeepLoadOrAreRefusedWithoutExhaustingTheStack)
{
    for (bool undefined : {true, false}) {
        SCOPED_TRACE(undefined ? "undefined lengths" : "defined lengths");
        const std::string path =
            write(undefined ? "deep1000u.dcm" : "deep1000d.dcm",
                  insertedBefore(source, 0x0071, 0x0010, nestedSequences(1000, undefined)));
        std::vector<std::string> names = series;
        names.push_back(path);
        const LoadOutcome outcome = loadFiles(names, true);
        EXPECT_TRUE(readLine(outcome.console, path)) << outcome.console;
        ASSERT_EQ(outcome.fields.size(), 2u) << outcome.console;
        const bool seriesFirst = outcome.fields[0] == seriesField[true];
        EXPECT_EQ(outcome.fields[seriesFirst ? 0 : 1], seriesField[true]);
        const FieldFacts &deepField = outcome.fields[seriesFirst ? 1 : 0];
        const LoadOutcome plain = loadFiles({vxtest::sharedPath(kSource)}, true);
        ASSERT_EQ(plain.fields.size(), 1u);
        EXPECT_EQ(deepField, plain.fields[0]) << "the sequence changes nothing of the image";
    }
    const std::string deep = write(
        "deep50000.dcm", insertedBefore(source, 0x0071, 0x0010, nestedSequences(50000, true)));
    expectRefusedBesideTheSeries({deep}, "sequences nested too deep to be read safely",
                                 "50,000 levels");

    // Behind the pixel data of an RLE file: the header parse stops before
    // it; the decoder reads the whole data set when the pixels are needed.
    Bytes behind = vxtest::readFileBytes(vxtest::sharedPath("dcm_qa_ts/In/4.dcm"));
    const Bytes trailing = nestedSequences(50000, true);
    behind.insert(behind.end(), trailing.begin(), trailing.end());
    const std::string rlePath = write("rle_deep_tail.dcm", behind);
    expectRefusedBesideTheSeries({rlePath}, "sequences nested too deep to be read safely",
                                 "50,000 levels behind RLE pixel data");
}

TEST_F(BrokenFiles, ImageDescriptionsThatDoNotFitThePixelsAreRefusedByName)
{
    const Element rows = findElement(source, 0x0028, 0x0010);
    ASSERT_EQ(read16(source, rows.value), 256);
    // Half the rows: the pixel data then hold twice what 16-bit samples need,
    // room for a two-sample image of the same size.
    const Bytes halfRows = withUS(source, 0x0028, 0x0010, 128);
    const Element pixels = findElement(source, 0x7FE0, 0x0010);
    Bytes shortPixels = withLength(source, 0x7FE0, 0x0010, pixels.length / 2);
    shortPixels.resize(pixels.value + pixels.length / 2);
    const struct
    {
        const char *name;
        Bytes bytes;
        const char *reason;
    } cases[] = {
        {"rows0", withUS(source, 0x0028, 0x0010, 0), "(0028,0010) rows is 0"},
        {"columns0", withUS(source, 0x0028, 0x0011, 0), "(0028,0011) columns is 0"},
        {"rows65535", withUS(source, 0x0028, 0x0010, 65535), "(7FE0,0010) pixel data hold"},
        {"columns65535", withUS(source, 0x0028, 0x0011, 65535), "(7FE0,0010) pixel data hold"},
        {"bits12", withUS(source, 0x0028, 0x0100, 12), "(0028,0100) bits allocated is 12"},
        {"samples2", withUS(halfRows, 0x0028, 0x0002, 2), "unsupported number of samples."},
        {"shortpixels", shortPixels, "(7FE0,0010) pixel data hold"},
    };
    std::vector<std::string> all;
    for (const auto &c : cases) {
        const std::string path = write(std::string(c.name) + ".dcm", c.bytes);
        all.push_back(path);
        expectRefusedBesideTheSeries({path}, c.reason, c.name);
    }
    expectRefusedBesideTheSeries(all, "", "all of them in one load");
}

// Compressed pixel data that decode to fewer rows than the header claims:
// the header is fine, so the file is refused when its pixels are decoded.
TEST_F(BrokenFiles, CompressedFramesShorterThanTheImageAreRefusedByName)
{
    for (const char *name : {"4.dcm", "7.dcm", "9.dcm"}) {
        const Bytes file =
            vxtest::readFileBytes(vxtest::sharedPath(std::string("dcm_qa_ts/In/") + name));
        ASSERT_EQ(read16(file, findElement(file, 0x0028, 0x0010).value), 384);
        const std::string path =
            write(std::string("taller_") + name, withUS(file, 0x0028, 0x0010, 400));
        expectRefusedBesideTheSeries({path}, "", std::string("400 rows claimed in ") + name);
    }
}

TEST_F(BrokenFiles, NamesThatAreNoDicomFilesAreRefusedByName)
{
    const std::string plainGz = write("plain.dcm.gz", source);
    const std::string noise = write("noise.dcm.gz", Bytes(5000, 0x5A));
    const std::string compressNoise = write("noise.dcm.Z", Bytes{0x1F, 0x9D, 0x90, 0xFF, 0xFF});
    const std::string empty = write("empty.dcm", {});
    const std::string text = write("notes.txt", Bytes{'h', 'e', 'l', 'l', 'o', '\n'});
    const std::string folder = dir.file("folder.dcm");
    fs::create_directory(folder);
    const std::string dangling = dir.file("dangling.dcm");
    fs::create_symlink(dir.file("nowhere.dcm"), dangling);
    const std::string missing = dir.file("missing.dcm");

    const struct
    {
        std::string name;
        std::string reason;
    } cases[] = {
        {plainGz, "cannot open: " + plainGz},
        {noise, "cannot open: " + noise},
        {compressNoise, "cannot open: " + compressNoise},
        {empty, "cannot extract DICOM information from: " + empty + " (not a DICOM file"},
        {text, "cannot extract DICOM information from: " + text + " (not a DICOM file"},
        {folder, "cannot extract DICOM information from: " + folder + " (is a directory)"},
        {dangling, "cannot open: " + dangling + " (No such file or directory)"},
        {missing, "cannot open: " + missing + " (No such file or directory)"},
    };
    std::vector<std::string> all;
    for (const auto &c : cases) {
        expectRefusedBesideTheSeries({c.name}, c.reason, c.name);
        all.push_back(c.name);
    }
    expectRefusedBesideTheSeries(all, "", "all of them in one load");
}

// The same through the command line, as users run it, every kind of broken
// file in one load: the series' field is made and listed, each broken file
// is named, the program ends normally, and TMPDIR stays empty.
TEST_F(BrokenFiles, CommandLineLoadsTheSeriesBesideEveryKindOfBrokenFile)
{
    std::vector<std::string> broken = {
        write("cut1000.dcm", Bytes(source.begin(), source.begin() + 1000)),
        write("cut_pixels.dcm", Bytes(source.begin(), source.end() - 1000)),
        write("csa4g.dcm", withLength(source, 0x0029, 0x1010, 0xFFFFFFF0u)),
        write("open.dcm", insertedBefore(source, 0x0071, 0x0010, sequenceWithoutDelimiters())),
        write("deep.dcm", insertedBefore(source, 0x0071, 0x0010, nestedSequences(50000, true))),
        write("rows0.dcm", withUS(source, 0x0028, 0x0010, 0)),
        write("bits12.dcm", withUS(source, 0x0028, 0x0100, 12)),
        write("plain.dcm.gz", source),
        write("empty.dcm", {}),
    };
    const std::string dangling = dir.file("dangling.dcm");
    fs::create_symlink(dir.file("nowhere.dcm"), dangling);
    broken.push_back(dangling);

    std::string command = "env TMPDIR=" + temp.path() +
                          " QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=" + dir.path().string() +
                          " VXDICOM_SETTINGS_FILE=" + dir.file("cli.ini") + " timeout 300 " +
                          VXDICOM_BINARY + " load -nodialog";
    for (const std::string &name : series)
        command += " '" + name + "'";
    for (const std::string &name : broken)
        command += " '" + name + "'";
    std::string out;
    const int status = vxtest::runCommand(command, &out, true);
    // The series loads, and the broken files fail the command.
    EXPECT_EQ(status, 1) << out;
    for (const std::string &name : broken)
        EXPECT_FALSE(failureLine(out, name).empty()) << name << " is not reported:\n" << out;
    int fields = 0;
    for (size_t at = out.find("\nfield \""); at != std::string::npos;
         at = out.find("\nfield \"", at + 1))
        ++fields;
    EXPECT_EQ(fields, 1) << out;
    EXPECT_NE(out.find(": 5 x 42 x 64 int16"), std::string::npos) << out;
    EXPECT_EQ(out.find("Sanitizer"), std::string::npos) << out;
    EXPECT_EQ(out.find("runtime error"), std::string::npos) << out;
    EXPECT_TRUE(temp.leftovers().empty());
}

} // namespace
