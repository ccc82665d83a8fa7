// Steering the stacks from the real import dialog: the side-by-side
// parameter view finds the element that tells volumes apart, "Add" makes it a
// column and criterion, the criteria dialog sets its policy, a drag sorts by it.

#include "platform/core/VxMessage.h"
#include "platform/core/VxPreferences.h"
#include "platform/data/VxField3.h"
#include "tests/vxdicom/browser/DialogDriver.h"
#include "vxdicom/browser/DicomMenuBar.h"
#include "vxdicom/browser/DicomParameterView.h"
#include "vxdicom/stacks/DicomOptionDialog.h"

#include <QButtonGroup>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>

using browsertest::rowOfText;
using browsertest::rowPoint;
using browsertest::stackSizes;
using browsertest::visibleWindow;
using DialogSteering = browsertest::RealSeries;

namespace {

// Drags a header section to the left edge of the section at `position`.
void dragSection(QTreeWidget *list, int section, int position)
{
    QHeaderView *h = list->header();
    QWidget *port = h->viewport();
    const int y = h->height() / 2;
    const QPoint from(h->sectionViewportPosition(section) + h->sectionSize(section) / 2, y);
    const QPoint to(h->sectionViewportPosition(h->logicalIndex(position)) + 2, y);
    QTest::mousePress(port, Qt::LeftButton, {}, from);
    QTest::mouseMove(port, from + QPoint(QApplication::startDragDistance() + 2, 0));
    QTest::mouseMove(port, to);
    QTest::mouseRelease(port, Qt::LeftButton, {}, to);
}

void typeInto(QLineEdit *edit, const char *text)
{
    edit->selectAll();
    QTest::keyClicks(edit, text);
}

// The side-by-side view of two images of different volumes: the temporal
// position differs, pixel data is not listed; "Add" makes it a column.
void addTheDifferingElement()
{
    auto *view = visibleWindow<DicomParameterView>();
    QTreeWidget *rows = view->list();
    EXPECT_EQ(rowOfText(rows, 0, "7FE0:0010"), nullptr) << "no pixel data";
    QTreeWidgetItem *temporal = rowOfText(rows, 1, "temporal position identifier");
    ASSERT_NE(temporal, nullptr);
    EXPECT_EQ(temporal->text(0), "0020:0100");
    EXPECT_TRUE(static_cast<QxParameterListItem *>(temporal)->difference);
    EXPECT_FALSE(view->addButton()->isEnabled());
    QTest::mouseClick(rows->viewport(), Qt::LeftButton, {}, rowPoint(rows, temporal));
    EXPECT_TRUE(view->addButton()->isEnabled());
    browsertest::screenshot(view, "steering-2-parameter-view");
    QTest::mouseClick(view->addButton(), Qt::LeftButton);
}

void steer(DicomDialog &d)
{
    DicomListView *list = d.view()->listView();
    EXPECT_EQ(list->stackList().size(), 3) << "the loader splits such a series by itself";
    d.menuBar()->optionsItem(8)->trigger(); // "Split Repeated Positions into Volumes" off
    ASSERT_EQ(list->stackList().size(), 19) << "the criteria alone cut it into ones and twos";
    browsertest::screenshot(&d, "steering-1-before");
    list->clearSelection();
    list->stackList()[0]->child(0)->setSelected(true);
    list->stackList()[1]->child(0)->setSelected(true);
    browsertest::when([] { return visibleWindow<DicomParameterView>() != nullptr; },
                      addTheDifferingElement);
    browsertest::popupChoose(list->viewport(), rowPoint(list, list->stackList()[1]->child(0)),
                             "DICOM Parameters");
    const int section = browsertest::sectionOf(list, "temporal position identifier");
    ASSERT_GT(section, 0);
    const DicomLoadOption *option = list->loadOptions()[section - 1];
    EXPECT_EQ(option->value, DicomLoadOption::Ignore);
    EXPECT_EQ(option->options, 31) << "a numeric value allows every policy";

    // The criteria dialog; a second request raises the open one.
    d.menuBar()->columnsItem(0)->trigger(); // "Stack Break Criteria..."
    QTest::mouseClick(d.criteriaButton(), Qt::LeftButton);
    const auto tops = QApplication::topLevelWidgets();
    EXPECT_EQ(std::count_if(tops.begin(), tops.end(),
                            [](QWidget *w) {
                                return qobject_cast<DicomOptionDialog *>(w) && w->isVisible();
                            }),
              1);
    auto *criteria = visibleWindow<DicomOptionDialog>();
    ASSERT_NE(criteria, nullptr);
    QLineEdit *edit = criteria->toleranceEdit();
    QPushButton *apply = criteria->applyButton();
    EXPECT_EQ(edit->text(), "2.0");
    EXPECT_FALSE(apply->isEnabled());
    QTreeWidgetItem *element =
        rowOfText(criteria->elementList(), 0, "temporal position identifier");
    QTest::mouseClick(criteria->elementList()->viewport(), Qt::LeftButton, {},
                      rowPoint(criteria->elementList(), element));
    const int page = criteria->elementList()->indexOfTopLevelItem(element);
    EXPECT_EQ(criteria->pages()->currentIndex(), page);
    QButtonGroup *policies = criteria->policyButtons(page);
    policies->button(DicomLoadOption::Constant)->click();
    EXPECT_TRUE(apply->isEnabled());

    // Not a number, negative, above 100 %: a message, and nothing is applied.
    for (const char *bad : {"abc", "-1", "150"}) {
        typeInto(edit, bad);
        VxMessageCapture console;
        QTest::mouseClick(apply, Qt::LeftButton);
        EXPECT_TRUE(console.contains("Tolerance for uniformity: ")) << bad;
        EXPECT_TRUE(console.contains("Nothing was changed.")) << console.text();
        EXPECT_FLOAT_EQ(list->getUniformTolerance(), 0.02f);
        EXPECT_EQ(option->value, DicomLoadOption::Ignore);
        EXPECT_EQ(list->stackList().size(), 19);
    }
    // The same tolerance and "constant": Apply rebuilds the stacks with the
    // new criterion, which breaks between any two neighbours.
    typeInto(edit, "2.0");
    QTest::mouseClick(apply, Qt::LeftButton);
    EXPECT_EQ(option->value, DicomLoadOption::Constant);
    EXPECT_EQ(stackSizes(*list), std::vector<int>(27, 1));
    EXPECT_FALSE(apply->isEnabled());
    typeInto(edit, "2.5");
    QTest::mouseClick(apply, Qt::LeftButton);
    EXPECT_FLOAT_EQ(list->getUniformTolerance(), 0.025f);
    browsertest::screenshot(criteria, "steering-3-criteria");
    criteria->close();

    // Sorted by the temporal position first: the three volumes.
    dragSection(list, section, 1);
    EXPECT_EQ(list->header()->visualIndex(section), 1);
    EXPECT_EQ(stackSizes(*list), (std::vector<int>{9, 9, 9}));
    EXPECT_EQ(browsertest::instanceNumbers(list->stackList()[0]),
              (std::vector<int>{1, 4, 7, 10, 13, 16, 19, 22, 25}));
    list->stackList()[0]->setExpanded(true);
    browsertest::screenshot(&d, "steering-4-after");
    d.menuBar()->optionsItem(6)->trigger(); // "Save Load Options"
    QTest::mouseClick(d.okButton(), Qt::LeftButton);
}

} // namespace

// Philips fMRI: 3 volumes of 9 slices whose instance numbers interleave the
// volumes (1, 4, 7, ... is the first volume).
TEST_F(DialogSteering, AnElementFoundSideBySideTurnsInterleavedSlicesIntoVolumes)
{
    const VxPreferences before = VxSettingsMgr::getInstance()->getPreferences();
    const float tolerance = DicomStackItem::uniformTolerance;
    const auto outcome =
        browsertest::loadThroughDialog(vxtest::sharedDicomFiles("dcm_qa_philips/In"), steer);
    DicomStackItem::uniformTolerance = tolerance;
    ASSERT_EQ(outcome.fields.size(), 3);
    for (const VxField3 *field : outcome.fields)
        EXPECT_EQ(field->lattice()->dim(2), 9);
    const std::string stored = VxSettingsMgr::getInstance()->getPreferences().dicomLoadOptions;
    EXPECT_EQ(stored.rfind("<32|256|2|31|temporal position identifier>", 0), 0u) << stored;
    VxSettingsMgr::getInstance()->setPreferences(before, false);
}
