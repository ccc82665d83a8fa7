// Real files broken as met in the wild, loaded beside an intact series in both reading modes:
// each is named with its reason, the series loads as alone, no temporary file is left.

#include "tests/hostile/Hostile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

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
        for (bool delayed : {true, false}) {
            const LoadOutcome alone = loadFiles(series, delayed);
            ASSERT_EQ(alone.fields.size(), 1u) << alone.console;
            seriesField[delayed] = alone.fields[0];
        }
        EXPECT_EQ(seriesField[true].rfind("5 x 42 x 64, 2 bytes", 0), 0u) << seriesField[true];
        ASSERT_EQ(seriesField[true], seriesField[false]) << "samples differ by reading mode";
    }

    std::string write(const std::string &name, const Bytes &bytes)
    {
        return vxtest::writeFileBytes(dir.file(name), bytes), dir.file(name);
    }
    Bytes shared(const std::string &name)
    {
        return vxtest::readFileBytes(vxtest::sharedPath(name));
    }

    // Every kind of broken file made from real ones: (path, what its refusal says).
    std::vector<std::pair<std::string, std::string>> brokenFiles()
    {
        const Element pixels = findElement(source, 0x7FE0, 0x0010);
        const Bytes withSequence =
            insertedBefore(source, 0x0071, 0x0010, nestedSequences(3, false));
        Bytes shortPixels = withLength(source, 0x7FE0, 0x0010, pixels.length / 2);
        shortPixels.resize(pixels.value + pixels.length / 2);
        Bytes rleDeepTail = shared("dcm_qa_ts/In/4.dcm");
        append(rleDeepTail, nestedSequences(50000, true));
        const std::string extract = "cannot extract DICOM information from: ",
                          tooDeep = "sequences nested too deep to be read safely";
        std::vector<std::tuple<std::string, Bytes, std::string>> rows = {
            // "@": the file's path
            {"csa4g.dcm", withLength(source, 0x0029, 0x1010, 0xFFFFFFF0u), "premature end of file"},
            {"pixels_past_end.dcm",
             withLength(source, 0x7FE0, 0x0010, uint32_t(source.size() - pixels.value + 2)),
             "(7FE0,0010) pixel data are truncated"},
            {"name64k.dcm", withLength(source, 0x0010, 0x0010, 0xFFFE), extract},
            {"sequence4g.dcm", withLength(withSequence, 0x0071, 0x1001, 0xFFFFFFF0u), extract},
            {"open.dcm", insertedBefore(source, 0x0071, 0x0010, sequenceWithoutDelimiters()),
             extract + "@"},
            {"deep50000.dcm", insertedBefore(source, 0x0071, 0x0010, nestedSequences(50000, true)),
             tooDeep},
            {"rle_deep_tail.dcm", rleDeepTail, tooDeep},
            {"rows0.dcm", withUS(source, 0x0028, 0x0010, 0), "(0028,0010) rows is 0"},
            {"columns0.dcm", withUS(source, 0x0028, 0x0011, 0), "(0028,0011) columns is 0"},
            {"rows65535.dcm", withUS(source, 0x0028, 0x0010, 65535), "(7FE0,0010) pixel data hold"},
            {"columns65535.dcm", withUS(source, 0x0028, 0x0011, 65535),
             "(7FE0,0010) pixel data hold"},
            {"bits12.dcm", withUS(source, 0x0028, 0x0100, 12), "(0028,0100) bits allocated is 12"},
            {"samples2.dcm", withUS(withUS(source, 0x0028, 0x0010, 128), 0x0028, 0x0002, 2),
             "unsupported number of samples."},
            {"shortpixels.dcm", shortPixels, "(7FE0,0010) pixel data hold"},
            {"plain.dcm.gz", source, "cannot open: @"},
            {"noise.dcm.gz", Bytes(5000, 0x5A), "cannot open: @"},
            {"noise.dcm.Z", {0x1F, 0x9D, 0x90, 0xFF, 0xFF}, "cannot open: @"},
            {"empty.dcm", {}, extract + "@ (not a DICOM file"},
            {"notes.txt", {'h', 'i', '\n'}, extract + "@ (not a DICOM file"},
        };
        // Frames that decode to fewer rows than claimed, a broken JPEG codestream.
        Bytes jpeg = shared("dcm_qa_ts/In/5.dcm");
        const unsigned char soi[] = {0xFF, 0xD8, 0xFF};
        std::fill_n(std::search(jpeg.begin() + 1000, jpeg.end(), soi, soi + 3), 3, 0);
        rows.push_back({"badjpeg.dcm", jpeg, ""});
        rows.push_back({"cut1000.dcm", Bytes(source.begin(), source.begin() + 1000), ""});
        for (const std::string name : {"4.dcm", "7.dcm", "9.dcm"})
            rows.push_back({"taller_" + name,
                            withUS(shared("dcm_qa_ts/In/" + name), 0x0028, 0x0010, 400), ""});
        std::vector<std::pair<std::string, std::string>> files;
        for (const auto &[name, bytes, reason] : rows)
            files.push_back({write(name, bytes), reason});
        fs::create_directory(dir.file("folder.dcm"));
        fs::create_symlink(dir.file("nowhere.dcm"), dir.file("dangling.dcm"));
        for (const auto &[name, reason] :
             {std::pair<const char *, std::string>{"folder.dcm", extract + "@ (is a directory)"},
              {"dangling.dcm", "cannot open: @ (No such file or directory)"},
              {"missing.dcm", "cannot open: @ (No such file or directory)"}})
            files.push_back({dir.file(name), reason});
        for (auto &[name, reason] : files)
            if (const size_t at = reason.find('@'); at != std::string::npos)
                reason.replace(at, 1, name);
        return files;
    }

    vxtest::TempDir dir; // made before TMPDIR points at the watched folder
    WatchedTempDir temp;
    std::vector<std::string> series;
    Bytes source;
    std::string seriesField[2];
};

// Besides every kind, copies cut at every 97th byte: a cut inside an element is refused by
// name, one between elements before the pixels is read with a warning.
TEST_F(BrokenFiles, EveryKindOfBrokenFileAndEveryCutIsRefusedByNameAndTheSeriesStillLoads)
{
    const auto broken = brokenFiles();
    std::vector<std::string> names = series, cuts;
    for (const auto &b : broken)
        names.push_back(b.first);
    for (size_t n = 0; n < source.size(); n += 97)
        cuts.push_back(write("cut" + std::to_string(n) + ".dcm",
                             Bytes(source.begin(), source.begin() + long(n))));
    names.insert(names.end(), cuts.begin(), cuts.end());
    const size_t pixelStart = findElement(source, 0x7FE0, 0x0010).offset;
    for (bool delayed : {true, false}) {
        SCOPED_TRACE(delayed ? "header only" : "all pixels");
        const LoadOutcome mixed = loadFiles(names, delayed);
        for (const auto &[name, reason] : broken) {
            const std::string line = failureLine(mixed.console, name);
            EXPECT_TRUE(!line.empty() && line.find(reason) != std::string::npos)
                << name << ": \"" << reason << "\" expected in \"" << line << "\"";
        }
        int readWithoutImage = 0;
        for (size_t i = 0; i < cuts.size(); ++i) {
            if (!failureLine(mixed.console, cuts[i]).empty())
                continue;
            EXPECT_TRUE(readLine(mixed.console, cuts[i])) << cuts[i] << " is not reported";
            EXPECT_NE(mixed.console.find("Warning: " + cuts[i] + " holds no pixel data"),
                      std::string::npos);
            EXPECT_LT(i * 97, pixelStart) << cuts[i] << " read";
            ++readWithoutImage;
        }
        EXPECT_LT(readWithoutImage, 5) << "cuts are refused, with few exceptions";
        ASSERT_EQ(mixed.fields.size(), 1u) << mixed.console;
        EXPECT_EQ(mixed.fields[0], seriesField[delayed]);
        EXPECT_TRUE(temp.empty());
    }
}

// 1,000 levels are deep but valid: the file loads as its own, unchanged image.
TEST_F(BrokenFiles, SequencesNestedAThousandDeepLoad)
{
    const LoadOutcome plain = loadFiles({vxtest::sharedPath(kSource)}, true);
    for (bool undefined : {true, false}) {
        SCOPED_TRACE(undefined ? "undefined lengths" : "defined lengths");
        const std::string path =
            write(undefined ? "deep1000u.dcm" : "deep1000d.dcm",
                  insertedBefore(source, 0x0071, 0x0010, nestedSequences(1000, undefined)));
        std::vector<std::string> names = series;
        names.push_back(path);
        const LoadOutcome outcome = loadFiles(names, true);
        EXPECT_TRUE(readLine(outcome.console, path)) << outcome.console;
        std::vector<std::string> fields = outcome.fields,
                                 expected = {seriesField[true], plain.fields.at(0)};
        std::sort(fields.begin(), fields.end()), std::sort(expected.begin(), expected.end());
        EXPECT_EQ(fields, expected) << outcome.console;
    }
}

// The command line: the series' field is made, every broken file named, status 1 in either
// mode, also with the broken JPEG alone (found when the field is filled); TMPDIR stays empty.
TEST_F(BrokenFiles, CommandLineFailsOnEveryKindOfBrokenFileAndStillLoadsTheSeries)
{
    std::vector<std::string> broken, badPixels;
    for (const auto &b : brokenFiles()) // a folder is an input folder here
        if (!b.first.ends_with("folder.dcm"))
            (b.first.ends_with("badjpeg.dcm") ? badPixels : broken).push_back(b.first);
    broken.push_back(badPixels[0]);
    for (const auto &set : {broken, badPixels})
        for (const char *mode : {"", "DICOM_DELAYED_READ=0 "}) {
            SCOPED_TRACE(mode + std::to_string(set.size()));
            std::string command =
                "env TMPDIR=" + temp.dir.path().string() +
                " QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=" + dir.path().string() +
                " VXDICOM_SETTINGS_FILE=" + dir.file("cli.ini") + " " + mode + "timeout 300 " +
                VXDICOM_BINARY + " load -nodialog";
            std::vector<std::string> names = series;
            names.insert(names.end(), set.begin(), set.end());
            for (const std::string &name : names)
                command += " " + vxtest::shellQuote(name);
            const vxtest::CommandOutcome r = vxtest::runCapturing(command);
            EXPECT_EQ(r.status, 1) << r.err;
            for (const std::string &name : set)
                EXPECT_FALSE(failureLine(r.err, name).empty()) << name << ":\n" << r.err;
            EXPECT_EQ(r.out.find("failed"), std::string::npos) << r.out;
            EXPECT_EQ(r.out.find("field \""), r.out.rfind("field \"")) << "one field:\n" << r.out;
            EXPECT_NE(r.out.find(": 5 x 42 x 64 int16"), std::string::npos) << r.out;
            EXPECT_EQ((r.out + r.err).find("Sanitizer"), std::string::npos);
            EXPECT_EQ((r.out + r.err).find("runtime error"), std::string::npos);
            EXPECT_TRUE(temp.empty());
        }
}

} // namespace
