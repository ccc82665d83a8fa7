// The reader entry with the import dialog's answers set by the test: dialog
// or silent mode, cancelling, failures, time series; and the helper thread
// that faults in the far end of a new volume.

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/VolumePrefault.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/reader/VxDynamicDicomSeriesCtrl.h"

#include <cstdio>
#include <fstream>
#include <thread>

using namespace readertest;

namespace {

class DicomReaderPipeline : public ::testing::Test
{
protected:
    void SetUp() override { VxObjectPool::instance()->clear(); }
    void TearDown() override
    {
        VxObjectPool::instance()->clear();
        useDynamicSeriesCtrl = false;
    }
    // Small MR series of different sizes (rows 8, 5, 6 of 6, 7, 3 columns).
    std::vector<std::string> makeSeriesFiles(int count)
    {
        const char *sizes[][3] = {{"8", "6", "3"}, {"5", "7", "2"}, {"6", "3", "2"}};
        std::vector<std::string> names;
        for (int s = 0; s < count; ++s) {
            const std::string d = dir.file("series " + std::to_string(s + 1));
            makeSeries(d, {"--modality", "MR", "--rows", sizes[s][0], "--columns", sizes[s][1],
                           "--slices", sizes[s][2], "--series-number", std::to_string(s + 1)});
            for (const std::string &f : filesIn(d))
                names.push_back(f);
        }
        return names;
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
    std::string console;
};

} // namespace

TEST_F(DicomReaderPipeline, DialogOrSilentModeMakesOneFieldPerStack)
{
    KcDArray<VxField3 *> fields;
    const char *onlyOption[] = {"-nodialog"};
    EXPECT_EQ(vxReadDicom(1, onlyOption), 0) << "no names";
    EXPECT_EQ(vxReadDicom(1, nullptr, fields, 0, false), 0);

    const std::vector<std::string> names = makeSeriesFiles(2);
    {
        FakeDialog fake;
        EXPECT_EQ(load(names, fields, 0), 1);
        EXPECT_EQ(fake.config().exportCount, 1);
        EXPECT_EQ(fake.config().execCount, 0);
        EXPECT_EQ(fake.config().caption, "DICOM Loader");
        ASSERT_EQ(fields.size(), 2);
        EXPECT_EQ(fields[0]->lattice()->dim(0), 6);
        EXPECT_EQ(fields[0]->lattice()->dim(2), 3);
        EXPECT_EQ(fields[1]->lattice()->dim(0), 7);
        EXPECT_EQ(VxObjectPool::instance()->size(), 2);
        EXPECT_NE(console.find("creating 2 stacks of DICOM images\n"), std::string::npos)
            << console;
        // Namesakes: the second stack has the first one's name and another label.
        EXPECT_EQ(fields[0]->label(), "Synthetic^Series");
        EXPECT_EQ(fields[1]->label(), "S2");
    }
    {
        // -nodialog as the last name means silent and is not read as a file.
        FakeDialog fake;
        std::vector<const char *> argv;
        for (const std::string &n : names)
            argv.push_back(n.c_str());
        argv.push_back("-nodialog");
        VxMessageCapture capture;
        EXPECT_EQ(vxReadDicom(static_cast<int>(argv.size()), argv.data()), 1);
        EXPECT_EQ(fake.config().exportCount, 1);
        EXPECT_EQ(capture.text().find("-nodialog"), std::string::npos);
        EXPECT_EQ(vxReadDicom(static_cast<int>(argv.size()) - 1, argv.data()), 1);
        EXPECT_EQ(fake.config().execCount, 1) << "without -nodialog the dialog runs";
    }
    const struct
    {
        const char *mht, *ziehm;
        bool dialog;
    } cases[] = {{nullptr, nullptr, true},
                 {"1", nullptr, false},
                 {"0", "1", true}, // stereotaxis set to 0 decides alone
                 {nullptr, "1", false},
                 {nullptr, "yes", true}};
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.mht ? c.mht : "-") + " " + (c.ziehm ? c.ziehm : "-"));
        ScopedEnv mht("ZENTA_MHT_STEREOTAXIS", c.mht), ziehm("ZENTA_ZIEHM_RECONSTRUCTION", c.ziehm);
        FakeDialog fake;
        fields.clear();
        EXPECT_EQ(load(names, fields, 1, false), 1);
        EXPECT_EQ(fake.config().execCount, c.dialog ? 1 : 0);
        EXPECT_EQ(fake.config().exportCount, c.dialog ? 0 : 1);
        EXPECT_EQ(fields.size(), 2);
    }
    VxObjectPool::instance()->clear();
    FakeDialog fake;
    fake.config().execResult = 0;
    fields.clear();
    EXPECT_EQ(load(names, fields, 1), 1) << "a cancelled dialog is no failure";
    EXPECT_EQ(fields.size(), 0);
    EXPECT_EQ(VxObjectPool::instance()->size(), 0);
    EXPECT_EQ(console.find("creating"), std::string::npos);
    EXPECT_EQ(load({dir.file("absent.dcm")}, fields, 1), 1) << "no images, no dialog";
    EXPECT_EQ(fake.config().execCount, 1);
}

TEST_F(DicomReaderPipeline, FileGoneBeforeItsPixelsFailsTheCallButOtherStacksLoad)
{
    VX_REQUIRE_SHARED_DATA();
    std::vector<std::string> names = makeSeriesFiles(2);
    const std::string gone = dir.file("gone.dcm");
    fs::copy_file(vxtest::sharedDicomFiles(kEnhanced6)[0], gone);
    names.push_back(gone);
    FakeDialog fake;
    fake.config().beforeHandingBack = [&] { fs::remove(gone); };
    KcDArray<VxField3 *> fields;
    EXPECT_EQ(load(names, fields, 0), 0);
    EXPECT_EQ(fields.size(), 2);
    EXPECT_NE(console.find("reading " + gone + " failed: cannot open: " + gone), std::string::npos)
        << console;
    EXPECT_FALSE(VxWorkArea::instance()->isShowingProgress());
}

// Stacks loaded as a time series become one control with a step per stack,
// saved as one load command; the next load without that choice, or a
// cancelled one, makes no control.
TEST_F(DicomReaderPipeline, TimeSeriesIsOneControlUntilTheNextLoad)
{
    const std::vector<std::string> names = makeSeriesFiles(3);
    KcDArray<VxField3 *> fields;
    {
        FakeDialog fake;
        fake.config().asTimeSeries = true;
        ASSERT_EQ(load(names, fields, 0), 1);
    }
    EXPECT_TRUE(timeSteps.isEmpty()) << "handed over to the control";
    ASSERT_EQ(VxObjectPool::instance()->size(), 1) << "no field of its own in the pool";
    auto *ctrl = dynamic_cast<VxDynamicDicomSeriesCtrl *>(VxObjectPool::instance()->objects()[0]);
    ASSERT_TRUE(ctrl);
    EXPECT_EQ(ctrl->label(), "TimeSeriesCtrl");
    ASSERT_EQ(ctrl->nSteps(), 3);
    ASSERT_EQ(fields.size(), 3);
    for (int s = 0; s < 3; ++s) {
        ASSERT_EQ(ctrl->step(s).size(), 1);
        EXPECT_EQ(ctrl->step(s)[0], fields[s]) << "steps in stack order";
    }
    EXPECT_EQ(ctrl->currentStep(), 0);
    std::string expected = "load -dicom";
    for (const std::string &n : names)
        expected += " \"" + n + "\"";
    const std::string saved = dir.file("session.tcl");
    FILE *f = std::fopen(saved.c_str(), "w");
    EXPECT_EQ(ctrl->saveCreation(f, "/data", 0), 0);
    std::fclose(f);
    std::ifstream in(saved);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), expected + "\n");
    EXPECT_EQ(ctrl->saveCreation(nullptr, "/data", 0), 0);

    VxObjectPool::instance()->clear();
    {
        FakeDialog fake;
        fields.clear();
        ASSERT_EQ(load(names, fields, 0), 1);
        EXPECT_FALSE(useDynamicSeriesCtrl);
        EXPECT_EQ(VxObjectPool::instance()->size(), 3);
        EXPECT_EQ(VxObjectPool::instance()->find("TimeSeriesCtrl"), nullptr);
    }
    VxObjectPool::instance()->clear();
    FakeDialog fake;
    fake.config().execResult = 0;
    fields.clear();
    EXPECT_EQ(load(names, fields, 1), 1);
    EXPECT_EQ(VxObjectPool::instance()->size(), 0);
}

// ------------------------------------------------------------- prefault

namespace {

unsigned char pattern(size_t i)
{
    return static_cast<unsigned char>((i * 2654435761u) >> 13);
}

// A 2 MiB aligned volume of `bytes` holding the pattern where `filled`.
struct Volume
{
    explicit Volume(size_t bytes, bool filled) : bytes(bytes)
    {
        EXPECT_EQ(posix_memalign(&p, size_t(2) << 20, bytes), 0);
        for (size_t i = 0; filled && i < bytes; ++i)
            data()[i] = pattern(i);
    }
    ~Volume() { std::free(p); }
    unsigned char *data() { return static_cast<unsigned char *>(p); }
    size_t changed()
    {
        size_t wrong = 0;
        for (size_t i = 0; i < bytes; ++i)
            wrong += data()[i] != pattern(i);
        return wrong;
    }
    void *p = nullptr;
    size_t bytes;
};

} // namespace

// The helper never changes a byte the reading loop wrote, wherever the two
// meet; it ends when asked, or by itself once it reaches the reader.
TEST(VolumePrefault, NeverChangesAByteAndEndsWhenStoppedOrDone)
{
    // Filled slice by slice, front to back; not a whole number of pages.
    const size_t slice = 512 * 512 * 2 + 6, slices = 200;
    Volume written(slice * slices, false);
    {
        VolumePrefault prefault(written.data(), written.bytes, 0);
        for (size_t k = 0; k < slices; ++k) {
            for (size_t i = 0; i < slice; ++i)
                written.data()[k * slice + i] = pattern(k * slice + i);
            prefault.readerAt((k + 1) * slice);
        }
        prefault.stop();
        prefault.stop(); // a second stop is harmless
    }
    EXPECT_EQ(written.changed(), 0u);

    Volume still(size_t(48) << 20, true);
    {
        VolumePrefault prefault(still.data(), still.bytes, 0);
        while (!prefault.finished())
            std::this_thread::yield();
        EXPECT_LT(prefault.populatedFrom(), still.bytes / 2);
    }
    EXPECT_EQ(still.changed(), 0u);
    {
        VolumePrefault stopped(still.data(), still.bytes, 0);
        stopped.stop();
    }
    VolumePrefault below(still.data(), still.bytes); // under the default minimum
    EXPECT_EQ(below.populatedFrom(), still.bytes);
    EXPECT_FALSE(below.finished()) << "no thread was started";
    VolumePrefault none(nullptr, still.bytes, 0);
    EXPECT_FALSE(none.finished());
}
