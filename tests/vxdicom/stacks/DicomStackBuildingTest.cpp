// Stack building: splitting a large examination, the slice-order question, stored criteria (one
// uniform stack per series, descending ones reverted on export: the geometry tests, through load).

#include "vxdicom/stacks/DicomListView.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/support/WidgetDriver.h"
#include "tests/vxdicom/stacks/StacksTestSupport.h"
#include "vxdicom/reader/VxDicomImageStack.h"

#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTimer>

using namespace stacktest;
using StackBuilding = stacktest::RealSeries;

namespace {
struct Exported : KcDArray<VxDicomImageStack *>
{
    ~Exported() { qDeleteAll(*this); }
};
} // namespace

TEST_F(StackBuilding, UnorderedStackAsksTheUserAndWithoutDisplayTakesTheDefault)
{
    // CT slices made 10, 30, 20 mm, "slice location" ignored: one unordered stack.
    LoadedFiles files({ctFile("I10"), ctFile("I20"), ctFile("I30")});
    for (size_t i = 0; i < 3; ++i)
        files.image(i)->sliceLocation = std::vector<float>{10, 30, 20}[i];
    DicomListView view;
    view.initialize(files.images());
    view.loadOptions()[optionIndex(view, "slice location")]->setValue(DicomLoadOption::Ignore);
    view.updateImageStacks();
    ASSERT_EQ(stackSizes(view), std::vector<int>{3});
    VxWarningDialog::setDisplayOverride(1);
    const QPointer<QTimer> driver =
        uitest::whenShown<DicomStackDialog>([](DicomStackDialog &dialog) {
            EXPECT_EQ(dialog.findChild<QLineEdit *>("startLocation")->text(), "30")
                << "the stack's largest location";
            dialog.findChild<QLineEdit *>("increment")->setText("0.5");
            dialog.okButton()->click();
        });
    Exported shown;
    EXPECT_TRUE(view.exportImageStacks(shown, 0));
    delete driver.data();
    VxWarningDialog::setDisplayOverride(-1);
    EXPECT_EQ(ofImages(view.stackList()[0], &VxDicomImage::sliceLocation),
              (std::vector<float>{30, 30.5, 31}));
    view.stackList()[0]->relocateChildItems(10, 10);
    view.stackList()[0]->lastChild()->image()->sliceLocation = 15;
    VxMessageCapture console;
    Exported out;
    ASSERT_TRUE(uitest::runOnWorker([&] { EXPECT_TRUE(view.exportImageStacks(out, 0)); }));
    EXPECT_TRUE(console.contains("WARNING: Image locations are not monotonically ordered. They "
                                 "must be adjusted. start location [mm]: 20, increment in mm: 1\n"
                                 "-> OK (no display; default answer)"))
        << console.text();
    EXPECT_EQ(ofImages(view.stackList()[0], &VxDicomImage::sliceLocation),
              (std::vector<float>{20, 21, 22}));
}

// Stored criteria come back in order with the dictionary's names; a reset empties them.
TEST_F(StackBuilding, StoredCriteriaAreReadInTheirOrderAndWhatDoesNotParseIsDropped)
{
    LoadedFiles files({ctFile("I10"), ctFile("I20"), ctFile("I30")});
    stacktest::storeCriteria("<-1|-1|1|3|file name><junk><1|2|3|x|y><32|4161|16|31|z>");
    DicomListView view;
    VxMessageCapture console;
    view.initialize(files.images());
    EXPECT_TRUE(console.contains("Using non default DICOM load options!\n"));
    const auto names = [&view] {
        std::vector<std::string> list;
        for (const auto *option : view.loadOptions())
            list.push_back(option->name);
        return list;
    };
    EXPECT_EQ(names(), (std::vector<std::string>{"file name", "slice location"}));
    EXPECT_EQ(view.loadOptions()[1]->value, DicomLoadOption::Linear);
    EXPECT_EQ(stackSizes(view), std::vector<int>{3}) << "CT steps are linear";
    view.resetSettings();
    EXPECT_EQ(VxSettingsMgr::getInstance()->getPreferences().dicomLoadOptions, "");
    EXPECT_EQ(names(), (std::vector<std::string>{"instance number", "slice location", "file name",
                                                 "load index"}));
}

TEST(StackBuildingLargeFolder, ManySeriesGiveTheStacksTheirSeriesImplyInSeriesOrder)
{
    // An examination written by pydicom (many_series.py), series in UID order.
    VX_REQUIRE(vxtest::havePythonModules({"pydicom", "numpy"}), "pydicom and numpy");
    stacktest::storeCriteria("");
    vxtest::TempDir dir;
    const int split = 300, plain = 20, perSeries = 40; // as passed to the script
    ASSERT_EQ(
        vxtest::runPython(VX_TEST_DIR "/many_series.py", {dir.path().string(), "300", "20", "40"}),
        0);
    std::vector<std::string> paths = vxtest::namesIn(dir.path().string());
    for (std::string &name : paths)
        name = dir.file(name);
    LoadedFiles files(paths);
    ASSERT_EQ(files.size(), 2 * split + 6 + plain * perSeries);
    std::vector<float> fractions;
    VxWorkArea::instance()->setObserver([&](const std::string &status, float fraction) {
        if (status == "building stacks...")
            fractions.push_back(fraction);
    });
    DicomListView view;
    int ticksWhileBuilding = 0;
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout,
                     [&] { ticksWhileBuilding += view.isBuildingStacks(); });
    tick.start(1);
    view.initialize(files.images());
    VxWorkArea::instance()->setObserver(nullptr);
    EXPECT_GT(ticksWhileBuilding, 0) << "the event loop did not run while the stacks were built";
    ASSERT_GE(fractions.size(), 3u) << "no progress was reported while the stacks were built";
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()) && fractions.back() == 1.f);

    using Stack = std::vector<std::pair<int, float>>; // (instance, slice location)
    std::vector<Stack> expected;
    for (int j = 0; j < split / 2; ++j) // zigzag: turns after every second image
        expected.push_back({{2 * j + 1, float(j)}, {2 * j + 2, float(j) + 1000.f}});
    expected.push_back({{1, 0.f}}); // pairs: a repeated instance number breaks
    for (int k = 1; k + 1 < split; k += 2)
        expected.push_back({{k / 2 + 1, 0.5f * float(k)}, {(k + 1) / 2 + 1, 0.5f * float(k + 1)}});
    expected.push_back({{split / 2, 0.5f * float(split - 1)}});
    // Six acquisition numbers are no split into two volumes: order of appearance.
    expected.push_back({{1, 0.f}, {2, 3.f}, {3, 6.f}});
    expected.push_back({{4, 0.f}, {5, 3.f}, {6, 6.f}});
    for (int s = 0; s < plain; ++s) {
        expected.emplace_back();
        for (int k = 0; k < perSeries; ++k)
            expected.back().push_back({k + 1, 3.f * float(k)});
    }
    ASSERT_EQ(size_t(view.stackList().size()), expected.size());
    for (size_t s = 0; s < expected.size(); ++s) {
        Stack built;
        for (const int n : instanceNumbers(view.stackList()[int(s)]))
            built.push_back({n, ofImages(view.stackList()[int(s)],
                                         &VxDicomImage::sliceLocation)[built.size()]});
        ASSERT_EQ(built, expected[s]) << "stack " << s;
    }
    EXPECT_TRUE(view.stackList()[split + 2]->info().contains(
        "volume 2 of 2 of its series (told apart by order of appearance)"));
}
