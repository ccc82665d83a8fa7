// The reading loop and the reader entry: per-file lines, the summary,
// progress and interruption, DICOMDIR expansion and the dialog decisions.

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <mutex>

namespace fs = std::filesystem;
using namespace readertest;

namespace {

const char *const kGeDwi = "dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2";
const char *const kEnhanced6 = "dcm_qa_enh/In/Siemens/XA10";

struct LoopResult
{
    std::string console;
    KcDArray<KcString> names;
    KcDArray<VxDicomFile *> files;
    KcDArray<VxDicomImage *> images;
    std::vector<std::pair<std::string, float>> progress;
    bool showingAfter = false;

    ~LoopResult()
    {
        for (VxDicomFile *f : files)
            delete f;
    }
};

// Runs readDicomFiles on the names and records console and work area.
// `interruptAt` names the status at which the user interrupts.
void readLoop(LoopResult &out, const std::vector<std::string> &names, int delayed, bool verbose,
              const std::string &interruptAt = "")
{
    for (const std::string &n : names)
        out.names.append(n);
    std::mutex m;
    VxWorkArea *work = VxWorkArea::instance();
    work->setObserver([&](const std::string &status, float fraction) {
        std::lock_guard<std::mutex> lock(m);
        out.progress.emplace_back(status, fraction);
        if (!interruptAt.empty() && status == interruptAt)
            work->interrupt();
    });
    {
        VxMessageCapture capture;
        readDicomFiles(out.names, delayed, verbose, out.files, out.images);
        out.console = capture.text();
    }
    work->setObserver(nullptr);
    out.showingAfter = work->isShowingProgress();
}

std::vector<std::string> geFiles(int n)
{
    std::vector<std::string> all = vxtest::sharedDicomFiles(kGeDwi);
    all.resize(std::min<size_t>(all.size(), static_cast<size_t>(n)));
    return all;
}

} // namespace

TEST(DicomReadLoop, PrintsOneLinePerFileAndTheSummary)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    std::vector<std::string> names = geFiles(3);
    const std::string missing = dir.file("missing.dcm");
    const std::string readme = vxtest::sharedPath("dcm_qa_ge/README.md");
    names.insert(names.begin() + 1, missing);
    names.push_back(readme);

    LoopResult r;
    readLoop(r, names, 1, true);
    const std::vector<std::string> expected = {
        "+ " + names[0],
        "reading " + missing + " failed: cannot open: " + missing + " (No such file or directory)",
        "+ " + names[2],
        "+ " + names[3],
        "reading " + readme + " failed: cannot extract DICOM information from: " + readme +
            " (not a DICOM file)",
        "3 headers loaded from 5 files",
    };
    EXPECT_EQ(lines(r.console), expected);
    ASSERT_EQ(r.files.size(), 3);
    EXPECT_EQ(r.images.size(), 3);
    // The load index is the position in the name list, failed names included.
    EXPECT_EQ(r.files[0]->index, 0);
    EXPECT_EQ(r.files[1]->index, 2);
    EXPECT_EQ(r.files[2]->index, 3);
    EXPECT_TRUE(r.progress.empty()) << "five names show no progress";
}

TEST(DicomReadLoop, SummaryCountsHeadersOrImagesWithPlurals)
{
    VX_REQUIRE_SHARED_DATA();
    const std::string multi = vxtest::sharedDicomFiles(kEnhanced6)[0];
    const struct
    {
        std::vector<std::string> names;
        int delayed;
        const char *summary;
    } cases[] = {
        {geFiles(1), 1, "1 header loaded from 1 file"},
        {geFiles(1), 0, "1 image loaded from 1 file"},
        {geFiles(2), 0, "2 images loaded from 2 files"},
        {{multi}, 1, "6 headers loaded from 1 file"},
        {{multi}, 0, "6 images loaded from 1 file"},
        {{vxtest::sharedPath("dcm_qa_ge/README.md")}, 1, "0 headers loaded from 1 file"},
    };
    for (const auto &c : cases) {
        LoopResult r;
        readLoop(r, c.names, c.delayed, true);
        const std::vector<std::string> got = lines(r.console);
        ASSERT_FALSE(got.empty());
        EXPECT_EQ(got.back(), c.summary);
        if (!r.images.isEmpty()) {
            EXPECT_EQ(r.images[0]->hasPixels(), c.delayed == 0) << c.summary;
        }
    }
}

TEST(DicomReadLoop, QuietLoopReportsOnlyFailures)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    std::vector<std::string> names = geFiles(2);
    names.push_back(dir.file("gone"));
    LoopResult r;
    readLoop(r, names, 1, false);
    EXPECT_EQ(lines(r.console),
              std::vector<std::string>{"reading " + names[2] + " failed: cannot open: " + names[2] +
                                       " (No such file or directory)"});
    EXPECT_EQ(r.images.size(), 2);
}

TEST(DicomReadLoop, ProgressStartsAtTenFiles)
{
    VX_REQUIRE_SHARED_DATA();
    LoopResult nine;
    readLoop(nine, geFiles(9), 1, false);
    EXPECT_TRUE(nine.progress.empty());

    LoopResult ten;
    readLoop(ten, geFiles(10), 1, false);
    ASSERT_FALSE(ten.progress.empty());
    EXPECT_EQ(ten.progress.front().first, "loading files...");
    std::vector<std::string> counts;
    for (const auto &p : ten.progress)
        if (p.first != "loading files..." && (counts.empty() || counts.back() != p.first))
            counts.push_back(p.first);
    const std::vector<std::string> expected = {
        "  1. of 10.", "  2. of 10.", "  3. of 10.", "  4. of 10.", "  5. of 10.",
        "  6. of 10.", "  7. of 10.", "  8. of 10.", "  9. of 10.", " 10. of 10."};
    EXPECT_EQ(counts, expected);
    // The fraction is set to i/n before the status "i+1. of n.".
    // Each count is shown with the fraction i/n of the files done before it.
    std::vector<float> atCount;
    std::string previous;
    for (const auto &p : ten.progress) {
        if (p.first != previous && p.first.find(". of ") != std::string::npos)
            atCount.push_back(p.second);
        previous = p.first;
    }
    ASSERT_EQ(atCount.size(), 10u);
    for (int i = 0; i < 10; ++i)
        EXPECT_FLOAT_EQ(atCount[static_cast<size_t>(i)], i / 10.0f);
    EXPECT_FALSE(ten.showingAfter) << "the progress display ends with the loop";
}

TEST(DicomReadLoop, InterruptStopsReadingAndKeepsWhatWasRead)
{
    VX_REQUIRE_SHARED_DATA();
    LoopResult r;
    readLoop(r, geFiles(12), 1, true, "  3. of 12.");
    EXPECT_EQ(r.files.size(), 3);
    EXPECT_EQ(r.images.size(), 3);
    ASSERT_FALSE(r.progress.empty());
    EXPECT_EQ(r.progress.back().first, "interrupted.");
    const std::vector<std::string> got = lines(r.console);
    ASSERT_EQ(got.size(), 4u);
    EXPECT_EQ(got.back(), "3 headers loaded from 12 files");
    EXPECT_FALSE(r.showingAfter);
}

TEST(DicomReadLoop, DicomDirAddsItsFilesAndSwitchesProgressOn)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::haveProgram("dcmmkdir"))
        GTEST_SKIP() << "dcmmkdir (dcmtk) is not installed";
    vxtest::TempDir dir;
    fs::create_directory(dir.path() / "IMAGES");
    const std::vector<std::string> sources = geFiles(3);
    for (size_t k = 0; k < sources.size(); ++k)
        fs::copy_file(sources[k], dir.path() / "IMAGES" / ("IM" + std::to_string(k + 1)));
    std::string out;
    const int rc = vxtest::runCommand("cd '" + dir.path().string() +
                                          "' && dcmmkdir --general-purpose --invent -q +r IMAGES",
                                      &out, true);
    ASSERT_EQ(rc, 0) << out;
    const std::string dicomdir = dir.file("DICOMDIR");
    ASSERT_TRUE(fs::exists(dicomdir));

    LoopResult r;
    readLoop(r, {dicomdir}, 1, true);
    ASSERT_FALSE(r.progress.empty()) << "a DICOMDIR switches progress on with one name";
    EXPECT_EQ(r.progress.front().first, "processing DICOMDIR...");
    ASSERT_EQ(r.names.size(), 4);
    EXPECT_EQ(r.files.size(), 3) << "the DICOMDIR itself is not kept";
    EXPECT_EQ(r.images.size(), 3);
    for (int k = 1; k < 4; ++k)
        EXPECT_EQ(fs::path(r.names[k].c_str()).parent_path().filename(), "IMAGES");
    EXPECT_EQ(lines(r.console).back(), "3 headers loaded from 4 files");
}

TEST(DicomReaderEntry, NoNamesReturnZero)
{
    const char *onlyOption[] = {"-nodialog"};
    EXPECT_EQ(vxReadDicom(1, onlyOption), 0);
    const char *none[] = {nullptr};
    EXPECT_EQ(vxReadDicom(0, none), 0);
    KcDArray<VxField3 *> fields;
    EXPECT_EQ(vxReadDicom(1, nullptr, fields, 0, false), 0);
    EXPECT_EQ(vxReadDicom(1, none, fields, 0, false), 0);
}

class DicomReaderPipeline : public ::testing::Test
{
protected:
    void SetUp() override { VxObjectPool::instance()->clear(); }
    void TearDown() override { VxObjectPool::instance()->clear(); }

    // Two small MR series of different sizes, written by make_series.py.
    void makeTwoSeries()
    {
        makeSeries(dir.file("s1"), {"--modality", "MR", "--rows", "8", "--columns", "6", "--slices",
                                    "3", "--series-number", "1"});
        makeSeries(dir.file("s2"), {"--modality", "MR", "--rows", "5", "--columns", "7", "--slices",
                                    "2", "--series-number", "2"});
        for (const char *s : {"s1", "s2"})
            for (const std::string &f : filesIn(dir.file(s)))
                names.push_back(f);
    }
    int load(const std::vector<std::string> &list, KcDArray<VxField3 *> &fields, int showDialog,
             bool verbose = true)
    {
        std::vector<const char *> argv;
        for (const std::string &n : list)
            argv.push_back(n.c_str());
        VxMessageCapture capture;
        const int rc =
            vxReadDicom(static_cast<int>(argv.size()), argv.data(), fields, showDialog, verbose);
        console = capture.text();
        return rc;
    }

    vxtest::TempDir dir;
    std::vector<std::string> names;
    std::string console;
};

TEST_F(DicomReaderPipeline, SilentLoadMakesOneFieldPerStack)
{
    makeTwoSeries();
    FakeDialog fake;
    KcDArray<VxField3 *> fields;
    EXPECT_EQ(load(names, fields, 0), 1);
    EXPECT_EQ(fake.config().exportCount, 1);
    EXPECT_EQ(fake.config().execCount, 0);
    EXPECT_EQ(fake.config().caption, "DICOM Loader");
    ASSERT_EQ(fields.size(), 2);
    EXPECT_EQ(fields[0]->lattice()->dim(0), 6);
    EXPECT_EQ(fields[0]->lattice()->dim(2), 3);
    EXPECT_EQ(fields[1]->lattice()->dim(0), 7);
    EXPECT_EQ(VxObjectPool::instance()->size(), 2);
    EXPECT_NE(console.find("creating 2 stacks of DICOM images\n"), std::string::npos) << console;
    // Namesakes: the second stack has the first one's name and another label.
    EXPECT_EQ(fields[0]->label(), "Synthetic^Series");
    EXPECT_EQ(fields[1]->label(), "S2");
}

TEST_F(DicomReaderPipeline, LastNameNodialogMeansSilent)
{
    makeTwoSeries();
    FakeDialog fake;
    std::vector<const char *> argv;
    for (const std::string &n : names)
        argv.push_back(n.c_str());
    argv.push_back("-nodialog");
    VxMessageCapture capture;
    EXPECT_EQ(vxReadDicom(static_cast<int>(argv.size()), argv.data()), 1);
    EXPECT_EQ(fake.config().exportCount, 1);
    EXPECT_EQ(fake.config().execCount, 0);
    EXPECT_EQ(VxObjectPool::instance()->size(), 2);
    EXPECT_EQ(capture.text().find("-nodialog"), std::string::npos)
        << "the option is not read as a file";

    VxObjectPool::instance()->clear();
    argv.pop_back();
    EXPECT_EQ(vxReadDicom(static_cast<int>(argv.size()), argv.data()), 1);
    EXPECT_EQ(fake.config().execCount, 1) << "without -nodialog the dialog runs";
}

TEST_F(DicomReaderPipeline, EnvironmentChoosesBetweenDialogAndSilentMode)
{
    makeTwoSeries();
    const struct
    {
        const char *mht, *ziehm;
        bool dialog;
        const char *why;
    } cases[] = {
        {nullptr, nullptr, true, "nothing set: the dialog"},
        {"1", nullptr, false, "stereotaxis 1: silent"},
        {"0", "1", true, "stereotaxis set to 0 decides alone"},
        {nullptr, "1", false, "reconstruction 1: silent"},
        {nullptr, "yes", true, "reconstruction other than 1: the dialog"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        ScopedEnv mht("ZENTA_MHT_STEREOTAXIS", c.mht);
        ScopedEnv ziehm("ZENTA_ZIEHM_RECONSTRUCTION", c.ziehm);
        FakeDialog fake;
        KcDArray<VxField3 *> fields;
        EXPECT_EQ(load(names, fields, 1, false), 1);
        EXPECT_EQ(fake.config().execCount, c.dialog ? 1 : 0);
        EXPECT_EQ(fake.config().exportCount, c.dialog ? 0 : 1);
        EXPECT_EQ(fields.size(), 2);
        VxObjectPool::instance()->clear();
    }
}

TEST_F(DicomReaderPipeline, CancelledDialogCreatesNothingAndSucceeds)
{
    makeTwoSeries();
    FakeDialog fake;
    fake.config().execResult = 0;
    KcDArray<VxField3 *> fields;
    EXPECT_EQ(load(names, fields, 1), 1);
    EXPECT_EQ(fields.size(), 0);
    EXPECT_EQ(VxObjectPool::instance()->size(), 0);
    EXPECT_EQ(console.find("creating"), std::string::npos);
}

TEST_F(DicomReaderPipeline, NoImagesMeansNoDialogAndSuccess)
{
    FakeDialog fake;
    KcDArray<VxField3 *> fields;
    EXPECT_EQ(load({dir.file("absent.dcm")}, fields, 1), 1);
    EXPECT_EQ(fake.config().execCount + fake.config().exportCount, 0);
    EXPECT_EQ(fields.size(), 0);
}

TEST_F(DicomReaderPipeline, ShearedStackIsReportedAndLoaded)
{
    VX_REQUIRE_SHARED_DATA();
    FakeDialog fake;
    KcDArray<VxField3 *> fields;
    std::vector<std::string> ct = vxtest::sharedDicomFiles("dcm_qa_ct/In/Philips/S21610/S2010");
    ct.erase(
        std::remove_if(ct.begin(), ct.end(),
                       [](const std::string &f) { return f.find("DIRFILE") != std::string::npos; }),
        ct.end());
    EXPECT_EQ(load(ct, fields, 0), 1);
    ASSERT_EQ(fields.size(), 1);
    EXPECT_NE(console.find("stack HEAD is sheared by -18.5 degrees!\n"), std::string::npos);
    EXPECT_NE(console.find("creating 1 stack of DICOM images\n"), std::string::npos);
    EXPECT_EQ(fields[0]->lattice()->dim(2), 54);
}

TEST_F(DicomReaderPipeline, FailedFieldMakesTheCallFailButOtherStacksLoad)
{
    VX_REQUIRE_SHARED_DATA();
    makeTwoSeries();
    // A third series whose file is gone when its pixels are read (after the
    // headers, while the stacks are chosen).
    const std::string gone = dir.file("gone.dcm");
    std::filesystem::copy_file(vxtest::sharedDicomFiles(kEnhanced6)[0], gone);
    names.push_back(gone);
    FakeDialog fake;
    fake.config().adjust = [&](KcDArray<VxDicomImageStack *> &) { std::filesystem::remove(gone); };
    KcDArray<VxField3 *> fields;
    EXPECT_EQ(load(names, fields, 0), 0);
    EXPECT_EQ(fields.size(), 2);
    EXPECT_NE(console.find("reading " + gone + " failed: cannot open: " + gone), std::string::npos)
        << console;
}
