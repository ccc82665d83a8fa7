// The load through the real import dialog, on the program's thread layout:
// vxReadDicom on a worker thread, the dialog on the GUI thread, the test
// pressing the buttons. Every way out of the dialog must return.

#include "platform/core/VxObjectPool.h"
#include "platform/core/VxPreferences.h"
#include "platform/data/VxField3.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/browser/DialogDriver.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/browser/DicomDialogView.h"
#include "vxdicom/browser/DicomMenuBar.h"
#include "vxdicom/stacks/DicomListView.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

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

// Clicks a stack row as a user does (scrolled into view first).
void clickStack(DicomListView *list, int index, Qt::KeyboardModifiers modifiers = {})
{
    QTest::mouseClick(list->viewport(), Qt::LeftButton, modifiers,
                      browsertest::rowPoint(list, list->stackList()[index]));
}

std::vector<int> depths(const KcDArray<VxField3 *> &fields)
{
    std::vector<int> d;
    for (const VxField3 *f : fields)
        d.push_back(f->lattice()->dims()[2]);
    return d;
}

} // namespace

TEST_F(DialogFlow, OkLoadsTheSelectedStackOnly)
{
    QString before, after;
    const auto outcome = loadThroughDialog(browsertest::twoSeries(), [&](DicomDialog &dialog) {
        DicomListView *list = dialog.view()->listView();
        ASSERT_EQ(list->stackList().size(), 2);
        before = dialog.loadSummaryLabel()->text();
        clickStack(list, 1); // the sagittal T1, 35 slices
        after = dialog.loadSummaryLabel()->text();
        QTest::mouseClick(dialog.okButton(), Qt::LeftButton);
    });
    ASSERT_TRUE(outcome.returned);
    EXPECT_EQ(outcome.result, 1);
    EXPECT_FALSE(outcome.cancelled);
    EXPECT_EQ(before, "OK loads all 2 stacks");
    EXPECT_EQ(after, "OK loads 1 of 2 stacks: the selected one");
    ASSERT_EQ(outcome.fields.size(), 1);
    EXPECT_EQ(depths(outcome.fields), (std::vector<int>{256})); // sagittal: 35 x 256 x 256
    EXPECT_EQ(outcome.fields[0]->lattice()->dims()[0], 35);
}

TEST_F(DialogFlow, OkWithoutSelectionLoadsEveryStackAndTheUniformChoiceFilters)
{
    const auto all = loadThroughDialog(browsertest::twoSeries(), [](DicomDialog &dialog) {
        QTest::keyClick(&dialog, Qt::Key_Return);
    });
    ASSERT_TRUE(all.returned);
    EXPECT_EQ(all.fields.size(), 2);
    VxObjectPool::instance()->clear();

    // A single image next to a series: "Only uniform stacks" leaves it out.
    std::vector<std::string> files = vxtest::sharedDicomFiles("dcm_qa_decubitus/In");
    files.push_back(vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10"));
    const auto uniform = loadThroughDialog(files, [](DicomDialog &dialog) {
        EXPECT_EQ(dialog.view()->listView()->stackList().size(), 2);
        QCheckBox *box = dialog.view()->onlyUniformBox();
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2)); // its box
        EXPECT_EQ(dialog.loadSummaryLabel()->text(), "OK loads 1 of 2 stacks");
        QTest::mouseClick(dialog.okButton(), Qt::LeftButton);
    });
    ASSERT_TRUE(uniform.returned);
    ASSERT_EQ(uniform.fields.size(), 1);
    EXPECT_EQ(uniform.fields[0]->lattice()->dims()[0], 35);
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
        const auto outcome = loadThroughDialog(browsertest::twoSeries(), [&](DicomDialog &d) {
            clickStack(d.view()->listView(), 0); // a choice made, then dropped
            act(d);
        });
        ASSERT_TRUE(outcome.returned);
        EXPECT_EQ(outcome.result, 1);
        EXPECT_TRUE(outcome.cancelled);
        EXPECT_EQ(outcome.fields.size(), 0);
        EXPECT_EQ(VxObjectPool::instance()->size(), 0);
        EXPECT_EQ(browsertest::visibleWindow<DicomDialog>(), nullptr);
    }
}

namespace {

// The x extent of the sagittal T1 (35 slices, 4.8 mm apart) in the field's unit.
float sagittalExtent(const KcDArray<VxField3 *> &fields)
{
    if (fields.size() != 1)
        return -1;
    float box[6];
    fields[0]->lattice()->getBoundingBox(box);
    return box[1] - box[0];
}

std::vector<std::string> sagittalT1()
{
    return vxtest::sharedDicomFiles("dcm_qa_decubitus/In");
}

} // namespace

TEST_F(DialogFlow, UnitsOfTheMenuReachTheFieldAndAreKeptUnlessASetUpFixesThem)
{
    VxSettingsMgr *settings = VxSettingsMgr::getInstance();
    const VxPreferences before = settings->getPreferences();

    // "mm" in the Units menu: the field is in millimetres (163.2 mm), and the
    // choice is stored.
    const auto mm = loadThroughDialog(sagittalT1(), [](DicomDialog &d) {
        EXPECT_TRUE(d.menuBar()->unitsItem(1)->isChecked()); // the default: cm
        d.menuBar()->unitsItem(0)->trigger();
        QTest::keyClick(&d, Qt::Key_Return);
    });
    EXPECT_NEAR(sagittalExtent(mm.fields), 163.2f, 0.01f);
    EXPECT_FLOAT_EQ(settings->getPreferences().lengthUnit, 0.001f);
    VxObjectPool::instance()->clear();

    // The next dialog starts with it; "cm" goes back to 16.32 cm.
    const auto cm = loadThroughDialog(sagittalT1(), [](DicomDialog &d) {
        EXPECT_TRUE(d.menuBar()->unitsItem(0)->isChecked());
        EXPECT_FALSE(d.menuBar()->unitsItem(1)->isChecked());
        d.menuBar()->unitsItem(1)->trigger();
        QTest::keyClick(&d, Qt::Key_Return);
    });
    EXPECT_NEAR(sagittalExtent(cm.fields), 16.32f, 0.001f);
    EXPECT_FLOAT_EQ(settings->getPreferences().lengthUnit, 0.01f);
    VxObjectPool::instance()->clear();

    // The stereotaxis set-up works in millimetres whatever is stored, with
    // parameters attached and the uniform and time-series choices fixed.
    const vxtest::ScopedEnv stereotaxis("ZENTA_MHT_STEREOTAXIS", "1");
    const auto fixed = loadThroughDialog(sagittalT1(), [](DicomDialog &d) {
        DicomMenuBar *menu = d.menuBar();
        EXPECT_TRUE(menu->unitsItem(0)->isChecked());
        EXPECT_FALSE(menu->unitsItem(1)->isEnabled());
        EXPECT_TRUE(menu->optionsItem(1)->isChecked()); // Attach Parameters
        EXPECT_FALSE(menu->optionsItem(1)->isEnabled());
        EXPECT_FALSE(menu->optionsItem(2)->isChecked()); // Force Uniform Coordinates
        EXPECT_FALSE(menu->optionsItem(2)->isEnabled());
        EXPECT_FALSE(menu->optionsItem(5)->isEnabled()); // As Time Series
        QTest::keyClick(&d, Qt::Key_Return);
    });
    EXPECT_NEAR(sagittalExtent(fixed.fields), 163.2f, 0.01f);
    EXPECT_FLOAT_EQ(settings->getPreferences().lengthUnit, 0.01f);
    settings->setPreferences(before, false);
}
