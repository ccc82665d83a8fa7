// The load through the real import dialog, on the program's thread layout:
// vxReadDicom on a worker thread, the dialog on the GUI thread, the test
// pressing the buttons. Every way out of the dialog must return.

#include "platform/core/VxObjectPool.h"
#include "platform/core/VxPreferences.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/browser/DialogDriver.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/browser/DicomDialogView.h"
#include "vxdicom/browser/DicomMenuBar.h"
#include "vxdicom/stacks/DicomListView.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <mutex>

using browsertest::loadThroughDialog;

namespace {

class DialogFlow : public ::testing::Test
{
protected:
    void SetUp() override
    {
        VX_REQUIRE_SHARED_DATA();
        VxObjectPool::instance()->clear();
    }
    void TearDown() override { VxObjectPool::instance()->clear(); }
};

// The first dimension of each field: 512 for the CT, 35 for the sagittal T1.
std::vector<int> widths(const browsertest::LoadOutcome &outcome)
{
    EXPECT_TRUE(outcome.returned && outcome.result == 1 && !outcome.cancelled);
    std::vector<int> w;
    for (const VxField3 *f : outcome.fields)
        w.push_back(f->lattice()->dim(0));
    return w;
}

// The x extent of the sagittal T1 (35 slices, 4.8 mm apart) in the field's unit.
float sagittalExtent(const browsertest::LoadOutcome &outcome)
{
    float box[6] = {};
    if (outcome.fields.size() == 1)
        outcome.fields[0]->lattice()->getBoundingBox(box);
    return box[1] - box[0];
}

} // namespace

TEST_F(DialogFlow, OkLoadsTheSelectedStacksOrAllAndSaysHowMany)
{
    std::vector<QString> said;
    const auto selected = loadThroughDialog(browsertest::twoSeries(), [&](DicomDialog &d) {
        DicomListView *list = d.view()->listView();
        ASSERT_EQ(list->stackList().size(), 2);
        said.push_back(d.loadSummaryLabel()->text());
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                          browsertest::rowPoint(list, list->stackList()[1]));
        said.push_back(d.loadSummaryLabel()->text());
        QTest::mouseClick(d.okButton(), Qt::LeftButton);
    });
    EXPECT_EQ(said, (std::vector<QString>{"OK loads all 2 stacks",
                                          "OK loads 1 of 2 stacks: the selected one"}));
    EXPECT_EQ(widths(selected), std::vector<int>{35});
    VxObjectPool::instance()->clear();

    const auto all = loadThroughDialog(browsertest::twoSeries(),
                                       [](DicomDialog &d) { QTest::keyClick(&d, Qt::Key_Return); });
    EXPECT_EQ(widths(all), (std::vector<int>{512, 35}));
    VxObjectPool::instance()->clear();

    // A single image beside a series: "Only uniform stacks" leaves it out.
    std::vector<std::string> files = vxtest::sharedDicomFiles("dcm_qa_decubitus/In");
    files.push_back(vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10"));
    const auto uniform = loadThroughDialog(files, [](DicomDialog &d) {
        QCheckBox *box = d.view()->onlyUniformBox();
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
        EXPECT_EQ(d.loadSummaryLabel()->text(), "OK loads 1 of 2 stacks");
        QTest::mouseClick(d.okButton(), Qt::LeftButton);
    });
    EXPECT_EQ(widths(uniform), std::vector<int>{35});
}

TEST_F(DialogFlow, CancelEscapeAndClosingLoadNothingAndReturn)
{
    const std::vector<std::pair<const char *, std::function<void(DicomDialog &)>>> ways = {
        {"Cancel", [](DicomDialog &d) { QTest::mouseClick(d.cancelButton(), Qt::LeftButton); }},
        {"Esc", [](DicomDialog &d) { QTest::keyClick(&d, Qt::Key_Escape); }},
        {"closing the window", [](DicomDialog &d) { d.close(); }},
    };
    for (const auto &[way, act] : ways) {
        SCOPED_TRACE(way);
        const auto outcome = loadThroughDialog(browsertest::twoSeries(), act);
        ASSERT_TRUE(outcome.returned);
        EXPECT_EQ(outcome.result, 1);
        EXPECT_TRUE(outcome.cancelled);
        EXPECT_EQ(VxObjectPool::instance()->size(), 0);
        EXPECT_EQ(browsertest::visibleWindow<DicomDialog>(), nullptr);
    }
}

TEST_F(DialogFlow, UnitsOfTheMenuReachTheFieldAndAreKeptUnlessASetUpFixesThem)
{
    VxSettingsMgr *settings = VxSettingsMgr::getInstance();
    const VxPreferences before = settings->getPreferences();
    const auto series = vxtest::sharedDicomFiles("dcm_qa_decubitus/In");
    // From the default cm to mm: 163.2 mm, stored; the next dialog starts there.
    const auto mm = loadThroughDialog(series, [](DicomDialog &d) {
        EXPECT_TRUE(d.menuBar()->unitsItem(1)->isChecked());
        d.menuBar()->unitsItem(0)->trigger();
        QTest::keyClick(&d, Qt::Key_Return);
    });
    EXPECT_NEAR(sagittalExtent(mm), 163.2f, 0.01f);
    EXPECT_FLOAT_EQ(settings->getPreferences().lengthUnit, 0.001f);
    VxObjectPool::instance()->clear();
    const auto cm = loadThroughDialog(series, [](DicomDialog &d) {
        EXPECT_TRUE(d.menuBar()->unitsItem(0)->isChecked());
        d.menuBar()->unitsItem(1)->trigger();
        QTest::keyClick(&d, Qt::Key_Return);
    });
    EXPECT_NEAR(sagittalExtent(cm), 16.32f, 0.001f);
    VxObjectPool::instance()->clear();

    // The stereotaxis set-up (with its dialog: "1" would load silently):
    // millimetres whatever is stored, parameters attached, the uniform and
    // time-series choices fixed.
    const vxtest::ScopedEnv stereotaxis("ZENTA_MHT_STEREOTAXIS", "0");
    const auto fixed = loadThroughDialog(series, [](DicomDialog &d) {
        const DicomMenuBar *menu = d.menuBar();
        EXPECT_TRUE(menu->unitsItem(0)->isChecked() && !menu->unitsItem(1)->isEnabled());
        EXPECT_TRUE(menu->optionsItem(1)->isChecked() && !menu->optionsItem(1)->isEnabled());
        EXPECT_FALSE(menu->optionsItem(2)->isChecked() || menu->optionsItem(2)->isEnabled());
        EXPECT_FALSE(menu->optionsItem(5)->isEnabled());
        QTest::keyClick(&d, Qt::Key_Return);
    });
    EXPECT_NEAR(sagittalExtent(fixed), 163.2f, 0.01f);
    EXPECT_FLOAT_EQ(settings->getPreferences().lengthUnit, 0.01f);
    settings->setPreferences(before, false);
}

TEST(DialogFlowLargeFolder, WindowKeepsItsEventLoopAndShowsProgressWhileStacksAreBuilt)
{
    // Two thousand small files written by pydicom (621 stacks): while the
    // dialog sorts them and builds the stacks on the GUI thread, a timer of
    // that thread still fires and the work area reports the progress.
    if (!vxtest::havePythonModules({"pydicom", "numpy"}))
        GTEST_SKIP() << "pydicom and numpy are needed to write the examination";
    vxtest::TempDir dir;
    const std::string script = std::string(VX_BROWSER_TEST_DIR) + "/../stacks/many_series.py";
    ASSERT_EQ(vxtest::runCommand("/usr/bin/python3 " + vxtest::shellQuote(script) + " " +
                                 vxtest::shellQuote(dir.path().string()) + " 600 20 40"),
              0);
    std::vector<std::string> paths;
    for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
        paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    ASSERT_EQ(paths.size(), 2000u);
    VxObjectPool::instance()->clear();

    std::mutex reported;
    std::vector<float> fractions;
    VxWorkArea::instance()->setObserver([&](const std::string &status, float fraction) {
        const std::lock_guard<std::mutex> lock(reported);
        if (status == "building stacks...")
            fractions.push_back(fraction);
    });
    int ticksWhileBuilding = 0;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    tick.setInterval(1);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        for (QWidget *w : QApplication::allWidgets())
            if (auto *list = qobject_cast<DicomListView *>(w); list && list->isBuildingStacks()) {
                ++ticksWhileBuilding;
                return;
            }
    });
    tick.start();
    int stacks = 0;
    const auto outcome = loadThroughDialog(paths, [&](DicomDialog &d) {
        stacks = d.view()->listView()->stackList().size();
        QTest::mouseClick(d.cancelButton(), Qt::LeftButton);
    });
    tick.stop();
    VxWorkArea::instance()->setObserver(nullptr);

    EXPECT_TRUE(outcome.returned && outcome.cancelled);
    EXPECT_EQ(stacks, 300 + 301 + 20);
    EXPECT_GT(ticksWhileBuilding, 0) << "the event loop did not run while the stacks were built";
    const std::lock_guard<std::mutex> lock(reported);
    ASSERT_GE(fractions.size(), 3u) << "no progress was reported while the stacks were built";
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_GT(fractions[fractions.size() / 2], 0.f);
    EXPECT_LT(fractions[fractions.size() / 2], 1.f);
    EXPECT_EQ(fractions.back(), 1.f);
    VxObjectPool::instance()->clear();
}
