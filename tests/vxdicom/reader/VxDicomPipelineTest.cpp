// The reader entry with the import dialog replaced by one whose answers the
// test sets; the helper thread that faults in the far end of a new volume.

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "platform/gui/ThreadNegotiator.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/DicomImportDialog.h"
#include "vxdicom/reader/VolumePrefault.h"
#include "vxdicom/reader/VxDicom.h"

#include <functional>
#include <map>
#include <thread>

using namespace readertest;

namespace {

// The import dialog, replaced by one whose answers the test sets: one stack
// per Series Number, labelled "S<number>".
struct
{
    int execs = 0, exports = 0;
    KcString caption;
    std::function<void()> beforeHandingBack;
} answers;

class FakeImportDialog : public ForkedObject, public DicomImportDialog
{
public:
    int exec() override
    {
        ++answers.execs;
        build();
        return dialogResult = 1;
    }
    void setCaption(const QString &c) override { answers.caption = c.toStdString(); }
    void setImages(const KcDArray<VxDicomImage *> *list) override { images = list; }
    void setStacks(KcDArray<VxDicomImageStack *> *list) override { stacks = list; }
    int result() const override { return dialogResult; }
    bool exportImageStacks() override
    {
        ++answers.exports;
        build();
        return true;
    }
    bool getAsTimeSeries() const override { return false; }

private:
    void build()
    {
        std::map<int, KcDArray<VxDicomImage *>> bySeries;
        for (VxDicomImage *image : *images) {
            const char *s = dicom::dicomGetById(image->file->data, 0x0020, 0x0011);
            bySeries[s ? std::atoi(s) : 0].append(image);
        }
        for (auto &[series, list] : bySeries) {
            stacks->append(stackOf(list).release());
            stacks->last()->label = KcString::format("S%d", series);
        }
        if (answers.beforeHandingBack)
            answers.beforeHandingBack();
    }
    const KcDArray<VxDicomImage *> *images = nullptr;
    KcDArray<VxDicomImageStack *> *stacks = nullptr;
    int dialogResult = 0;
};

// Registers the fake dialog for its lifetime, with fresh answers.
class FakeDialog
{
public:
    FakeDialog() : previous(dicomDialogNegotiatorFactory())
    {
        answers = {};
        setDicomDialogNegotiatorFactory([]() -> std::unique_ptr<ThreadNegotiator> {
            struct Negotiator : ThreadNegotiator
            {
                ForkedObject *create() override { return new FakeImportDialog; }
            };
            return std::make_unique<Negotiator>();
        });
    }
    ~FakeDialog() { setDicomDialogNegotiatorFactory(previous); }

private:
    DicomDialogNegotiatorFactory previous;
};

} // namespace

// Silent or dialog mode as the environment says, one field per stack, and a
// file gone before its pixels are read, which fails the call while the other
// stacks load.
TEST(DicomReaderPipeline, ModeAndFailureDecideWhatIsLoaded)
{
    VX_REQUIRE_SHARED_DATA();
    VxObjectPool::instance()->clear();
    vxtest::TempDir dir;
    std::vector<std::string> names;
    for (const int s : {1, 2}) {
        makeSeries(dir.file(std::to_string(s)),
                   {"--modality", "MR", "--rows", s == 1 ? "8" : "5", "--columns",
                    s == 1 ? "6" : "7", "--slices", s == 1 ? "3" : "2", "--series-number",
                    std::to_string(s)});
        for (const std::string &f : filesIn(dir.file(std::to_string(s))))
            names.push_back(f);
    }
    std::vector<const char *> argv;
    for (const std::string &n : names)
        argv.push_back(n.c_str());
    KcDArray<VxField3 *> fields;
    std::string console;
    const auto load = [&](int showDialog) {
        fields.clear();
        VxMessageCapture capture;
        const int rc =
            vxReadDicom(static_cast<int>(argv.size()), argv.data(), fields, showDialog, true);
        console = capture.text();
        return rc;
    };
    EXPECT_EQ(vxReadDicom(0, argv.data()), 0) << "no names";
    {
        FakeDialog fake;
        EXPECT_EQ(load(0), 1);
        EXPECT_EQ(answers.exports, 1);
        EXPECT_EQ(answers.execs, 0);
        EXPECT_EQ(answers.caption, "DICOM Loader");
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
        EXPECT_EQ(load(1), 1);
        EXPECT_EQ(answers.execs, c.dialog ? 1 : 0);
        EXPECT_EQ(answers.exports, c.dialog ? 0 : 1);
        EXPECT_EQ(fields.size(), 2);
    }
    VxObjectPool::instance()->clear();
    FakeDialog fake;
    const std::string gone = dir.file("gone.dcm");
    fs::copy_file(vxtest::sharedDicomFiles(kEnhanced6)[0], gone);
    argv.push_back(gone.c_str());
    answers.beforeHandingBack = [&] { fs::remove(gone); };
    EXPECT_EQ(load(0), 0);
    EXPECT_EQ(fields.size(), 2);
    EXPECT_NE(console.find("reading " + gone + " failed: cannot open: " + gone), std::string::npos)
        << console;
    EXPECT_FALSE(VxWorkArea::instance()->isShowingProgress());
    VxObjectPool::instance()->clear();
}

// The prefault helper never changes a byte the reading loop wrote, wherever
// the two meet; it ends when asked, or by itself once it reaches the reader.
TEST(VolumePrefault, NeverChangesAByteAndEndsWhenStoppedOrDone)
{
    const auto pattern = [](size_t i) {
        return static_cast<unsigned char>((i * 2654435761u) >> 13);
    };
    // 200 slices, not a whole number of pages, on a 2 MiB boundary as volumes are.
    const size_t slice = 512 * 512 * 2 + 6, bytes = slice * 200;
    void *p = nullptr;
    ASSERT_EQ(posix_memalign(&p, size_t(2) << 20, bytes), 0);
    const std::unique_ptr<unsigned char, decltype(&std::free)> volume(
        static_cast<unsigned char *>(p), &std::free);
    const auto changed = [&] {
        size_t n = 0;
        for (size_t i = 0; i < bytes; ++i)
            n += volume.get()[i] != pattern(i);
        return n;
    };
    {
        VolumePrefault prefault(volume.get(), bytes, 0);
        for (size_t i = 0; i < bytes; ++i) {
            volume.get()[i] = pattern(i);
            if ((i + 1) % slice == 0)
                prefault.readerAt(i + 1);
        }
        prefault.stop();
        prefault.stop(); // a second stop is harmless
    }
    EXPECT_EQ(changed(), 0u);
    {
        // The reader stays at the front: the helper comes down to it and ends.
        VolumePrefault prefault(volume.get(), bytes, 0);
        while (!prefault.finished())
            std::this_thread::yield();
        EXPECT_LT(prefault.populatedFrom(), bytes / 2);
    }
    EXPECT_EQ(changed(), 0u);
    VolumePrefault below(volume.get(), bytes); // under the default minimum size
    EXPECT_EQ(below.populatedFrom(), bytes);
    EXPECT_FALSE(below.finished()) << "no thread was started";
    VolumePrefault none(nullptr, bytes, 0);
    EXPECT_FALSE(none.finished());
}
