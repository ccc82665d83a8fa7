// The load through the real import dialog, on the program's thread layout:
// vxReadDicom on a worker thread, the dialog on the GUI thread, the test
// pressing the buttons. Every way out of the dialog must return.

#include "platform/core/VxPreferences.h"
#include "platform/data/VxField3.h"
#include "tests/vxdicom/browser/DialogDriver.h"
#include "vxdicom/browser/DicomMenuBar.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>

using browsertest::loadThroughDialog;
using DialogFlow = browsertest::RealSeries;

namespace {
// The first dimension of each field (512 for the CT, 35 for the sagittal T1)
// or, with `extent`, the x extent of the one field.
std::vector<float> sizes(const browsertest::LoadOutcome &outcome, bool extent = false)
{
    EXPECT_TRUE(outcome.returned && outcome.result == 1 && !outcome.cancelled);
    std::vector<float> out;
    for (const VxField3 *f : outcome.fields) {
        float box[6] = {};
        f->lattice()->getBoundingBox(box);
        out.push_back(extent ? box[1] - box[0] : float(f->lattice()->dim(0)));
    }
    VxObjectPool::instance()->clear();
    return out;
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
    EXPECT_EQ(sizes(selected), std::vector<float>{35});
    const auto all = loadThroughDialog(browsertest::twoSeries(),
                                       [](DicomDialog &d) { QTest::keyClick(&d, Qt::Key_Return); });
    EXPECT_EQ(sizes(all), (std::vector<float>{512, 35}));

    // A single image beside a series: "Only uniform stacks" leaves it out.
    std::vector<std::string> files = vxtest::sharedDicomFiles("dcm_qa_decubitus/In");
    files.push_back(vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10"));
    const auto uniform = loadThroughDialog(files, [](DicomDialog &d) {
        QCheckBox *box = d.view()->onlyUniformBox();
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
        EXPECT_EQ(d.loadSummaryLabel()->text(), "OK loads 1 of 2 stacks");
        QTest::mouseClick(d.okButton(), Qt::LeftButton);
    });
    EXPECT_EQ(sizes(uniform), std::vector<float>{35});
}

TEST_F(DialogFlow, CancelEscapeAndClosingLoadNothingAndReturn)
{
    const std::vector<std::pair<const char *, std::function<void(DicomDialog &)>>> ways = {
        {"Cancel", [](DicomDialog &d) { QTest::mouseClick(d.cancelButton(), Qt::LeftButton); }},
        {"Esc", [](DicomDialog &d) { QTest::keyClick(&d, Qt::Key_Escape); }},
        {"closing the window", [](DicomDialog &d) { d.close(); }},
    };
    for (const auto &[way, act] : ways) {
        const auto outcome = loadThroughDialog(browsertest::twoSeries(), act);
        ASSERT_TRUE(outcome.returned) << way;
        EXPECT_EQ(outcome.result, 1) << way;
        EXPECT_TRUE(outcome.cancelled) << way;
        EXPECT_EQ(VxObjectPool::instance()->size(), 0) << way;
        EXPECT_EQ(browsertest::visibleWindow<DicomDialog>(), nullptr) << way;
    }
}

TEST_F(DialogFlow, UnitsOfTheMenuReachTheFieldAndAreStored)
{
    VxSettingsMgr *settings = VxSettingsMgr::getInstance();
    const VxPreferences before = settings->getPreferences();
    const auto series = vxtest::sharedDicomFiles("dcm_qa_decubitus/In"); // 35 x 4.8 mm
    const auto mm = loadThroughDialog(series, [](DicomDialog &d) {
        EXPECT_TRUE(d.menuBar()->unitsItem(1)->isChecked()) << "cm by default";
        d.menuBar()->unitsItem(0)->trigger();
        QTest::keyClick(&d, Qt::Key_Return);
    });
    EXPECT_NEAR(sizes(mm, true).at(0), 163.2f, 0.01f);
    EXPECT_FLOAT_EQ(settings->getPreferences().lengthUnit, 0.001f) << "stored for the next load";
    settings->setPreferences(before, false);
}
