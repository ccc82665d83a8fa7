// Steering the stacks from the real import dialog: the side-by-side
// parameter view finds the element that tells volumes apart, "Add" makes it a
// column and criterion, the criteria dialog sets its policy.

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/core/VxPreferences.h"
#include "platform/data/VxField3.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/browser/DialogDriver.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/browser/DicomDialogView.h"
#include "vxdicom/browser/DicomMenuBar.h"
#include "vxdicom/browser/DicomParameterView.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomListItem.h"
#include "vxdicom/stacks/DicomListView.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomOptionDialog.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QButtonGroup>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTest>
#include <QTreeWidget>

#include <gtest/gtest.h>

using browsertest::rowPoint;

namespace {

std::vector<int> stackSizes(const DicomListView *list)
{
    std::vector<int> sizes;
    for (const DicomStackItem *stack : list->stackList())
        sizes.push_back(stack->childCount());
    return sizes;
}

QTreeWidgetItem *rowOfText(QTreeWidget *tree, int column, const QString &text)
{
    const auto found = tree->findItems(text, Qt::MatchExactly, column);
    return found.isEmpty() ? nullptr : found.first();
}

int sectionOf(const QTreeWidget *list, const QString &label)
{
    for (int s = 0; s < list->columnCount(); ++s)
        if (list->headerItem()->text(s) == label)
            return s;
    return -1;
}

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

} // namespace

// Philips fMRI: 3 volumes of 9 slices whose instance numbers interleave the
// volumes (1, 4, 7, ... is the first volume). Without the loader's volume
// split, the default criteria, sorted by instance number, cut them into
// stacks of one or two images.
TEST(DialogSteering, AnElementFoundSideBySideTurnsInterleavedSlicesIntoVolumes)
{
    VX_REQUIRE_SHARED_DATA();
    VxObjectPool::instance()->clear();
    const VxPreferences before = VxSettingsMgr::getInstance()->getPreferences();
    const auto outcome = browsertest::loadThroughDialog(
        vxtest::sharedDicomFiles("dcm_qa_philips/In"), [](DicomDialog &d) {
            DicomListView *list = d.view()->listView();
            // The loader splits such a series by itself; with that switched
            // off the criteria alone decide, as here.
            EXPECT_EQ(list->stackList().size(), 3);
            d.menuBar()->optionsItem(8)->trigger(); // "Split Repeated Positions into Volumes"
            EXPECT_EQ(list->stackList().size(), 19);
            browsertest::screenshot(&d, "steering-1-before");

            // Two images of different volumes side by side: the temporal
            // position differs, pixel data is not listed.
            list->clearSelection();
            list->stackList()[0]->child(0)->setSelected(true);
            list->stackList()[1]->child(0)->setSelected(true);
            browsertest::when(
                [] { return browsertest::visibleWindow<DicomParameterView>() != nullptr; },
                [] {
                    auto *view = browsertest::visibleWindow<DicomParameterView>();
                    QTreeWidget *rows = view->list();
                    EXPECT_EQ(rows->columnCount(), 4);
                    EXPECT_EQ(rowOfText(rows, 0, "7FE0:0010"), nullptr);
                    QTreeWidgetItem *temporal = rowOfText(rows, 1, "temporal position identifier");
                    ASSERT_NE(temporal, nullptr);
                    EXPECT_EQ(temporal->text(0), "0020:0100");
                    EXPECT_TRUE(static_cast<QxParameterListItem *>(temporal)->difference);
                    EXPECT_FALSE(view->addButton()->isEnabled());
                    QTest::mouseClick(rows->viewport(), Qt::LeftButton, {},
                                      rowPoint(rows, temporal));
                    EXPECT_TRUE(view->addButton()->isEnabled());
                    browsertest::screenshot(view, "steering-2-parameter-view");
                    QTest::mouseClick(view->addButton(), Qt::LeftButton);
                });
            browsertest::popupChoose(list->viewport(),
                                     rowPoint(list, list->stackList()[1]->child(0)),
                                     "DICOM Parameters");
            const int section = sectionOf(list, "temporal position identifier");
            ASSERT_GT(section, 0);
            const DicomLoadOption *option = list->loadOptions()[section - 1];
            EXPECT_EQ(option->value, DicomLoadOption::Ignore);
            EXPECT_EQ(option->options, 31) << "a numeric value allows every policy";

            // Sorted by the temporal position first, then made a constant criterion.
            dragSection(list, section, 1);
            EXPECT_EQ(list->header()->visualIndex(section), 1);
            EXPECT_EQ(stackSizes(list), (std::vector<int>{9, 9, 9})) << "rebuilt after the drag";
            QTest::mouseClick(d.criteriaButton(), Qt::LeftButton);
            auto *criteria = browsertest::visibleWindow<DicomOptionDialog>();
            ASSERT_NE(criteria, nullptr);
            QTreeWidgetItem *element =
                rowOfText(criteria->elementList(), 0, "temporal position identifier");
            QTest::mouseClick(criteria->elementList()->viewport(), Qt::LeftButton, {},
                              rowPoint(criteria->elementList(), element));
            const int page = criteria->elementList()->indexOfTopLevelItem(element);
            EXPECT_EQ(criteria->pages()->currentIndex(), page);
            criteria->policyButtons(page)->button(DicomLoadOption::Constant)->click();
            browsertest::screenshot(criteria, "steering-3-criteria");
            QTest::mouseClick(criteria->okButton(), Qt::LeftButton);
            EXPECT_EQ(option->value, DicomLoadOption::Constant);
            EXPECT_EQ(stackSizes(list), (std::vector<int>{9, 9, 9}));
            std::vector<int> first;
            for (int i = 0; i < list->stackList()[0]->childCount(); ++i)
                first.push_back(static_cast<DicomListItem *>(list->stackList()[0]->child(i))
                                    ->image()
                                    ->imageNumber);
            EXPECT_EQ(first, (std::vector<int>{1, 4, 7, 10, 13, 16, 19, 22, 25}));
            list->stackList()[0]->setExpanded(true);
            browsertest::screenshot(&d, "steering-4-after");

            d.menuBar()->optionsItem(6)->trigger(); // "Save Load Options"
            QTest::mouseClick(d.okButton(), Qt::LeftButton);
        });
    ASSERT_EQ(outcome.fields.size(), 3);
    for (const VxField3 *field : outcome.fields)
        EXPECT_EQ(field->lattice()->dim(2), 9);
    const std::string stored = VxSettingsMgr::getInstance()->getPreferences().dicomLoadOptions;
    EXPECT_EQ(stored.rfind("<32|256|2|31|temporal position identifier>", 0), 0u) << stored;
    VxSettingsMgr::getInstance()->setPreferences(before, false);
}

TEST(CriteriaDialog, ApplyFollowsWhatDiffersAndABadToleranceChangesNothing)
{
    VX_REQUIRE_SHARED_DATA();
    VxObjectPool::instance()->clear();
    const float tolerance = DicomStackItem::uniformTolerance;
    browsertest::loadThroughDialog(browsertest::twoSeries(), [](DicomDialog &d) {
        DicomListView *list = d.view()->listView();
        d.menuBar()->columnsItem(0)->trigger(); // "Stack Break Criteria..."
        QTest::mouseClick(d.criteriaButton(), Qt::LeftButton);
        int open = 0;
        for (QWidget *w : QApplication::topLevelWidgets())
            open += qobject_cast<DicomOptionDialog *>(w) && w->isVisible() ? 1 : 0;
        EXPECT_EQ(open, 1) << "a second request raises the open dialog";
        auto *criteria = browsertest::visibleWindow<DicomOptionDialog>();
        ASSERT_NE(criteria, nullptr);
        QLineEdit *edit = criteria->toleranceEdit();
        QPushButton *apply = criteria->applyButton();
        EXPECT_EQ(edit->text(), "2.0");
        EXPECT_FALSE(apply->isEnabled());

        // 2.0 -> 2.5 %: Apply, which sets 0.025 and rebuilds the stacks.
        edit->selectAll();
        QTest::keyClicks(edit, "2.5");
        EXPECT_TRUE(apply->isEnabled());
        QSignalSpy rebuilt(list, &DicomListView::listViewChanged);
        QTest::mouseClick(apply, Qt::LeftButton);
        EXPECT_FLOAT_EQ(list->getUniformTolerance(), 0.025f);
        EXPECT_GE(rebuilt.count(), 1);
        EXPECT_FALSE(apply->isEnabled());

        // Another policy enables Apply; choosing the current one again disables it.
        const int page = criteria->elementList()->indexOfTopLevelItem(
            rowOfText(criteria->elementList(), 0, "instance number"));
        QButtonGroup *policies = criteria->policyButtons(page);
        policies->button(DicomLoadOption::Monotonic)->click();
        EXPECT_TRUE(apply->isEnabled());
        policies->button(DicomLoadOption::StrictlyMonotonic)->click();
        EXPECT_FALSE(apply->isEnabled());

        // Not a number, negative, above 100 %: a message, and neither the
        // tolerance nor a changed policy is applied.
        policies->button(DicomLoadOption::Ignore)->click();
        for (const char *bad : {"abc", "-1", "150"}) {
            edit->selectAll();
            QTest::keyClicks(edit, bad);
            VxMessageCapture console;
            QTest::mouseClick(apply, Qt::LeftButton);
            EXPECT_TRUE(console.contains("Tolerance for uniformity: ")) << bad;
            EXPECT_TRUE(console.contains("Nothing was changed.")) << console.text();
            EXPECT_FLOAT_EQ(list->getUniformTolerance(), 0.025f);
            EXPECT_EQ(list->loadOptions()[page]->value, DicomLoadOption::StrictlyMonotonic);
            EXPECT_TRUE(apply->isEnabled());
        }

        // A column added while the dialog is open gets a page of its own.
        const int pages = criteria->pages()->count();
        list->addLoadOption(0x0018, 0x0050, "2.5");
        list->appendColumn(0x0018, 0x0050, "slice thickness");
        criteria = browsertest::visibleWindow<DicomOptionDialog>();
        ASSERT_NE(criteria, nullptr);
        EXPECT_EQ(criteria->pages()->count(), pages + 1);
        criteria->close();
        QTest::mouseClick(d.cancelButton(), Qt::LeftButton);
    });
    DicomStackItem::uniformTolerance = tolerance;
}

TEST(ParameterView, OneImageOrTwoMergedByTagWithoutPixelData)
{
    VX_REQUIRE_SHARED_DATA();
    VxDicomFile ct(vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10").c_str(), 0, 1);
    VxDicomFile mr(vxtest::sharedDicomFiles("dcm_qa_decubitus/In").front().c_str(), 1, 1);
    DicomListItem ctRow(ct.images[0]), mrRow(mr.images[0]);

    const DicomParameterView one(&ctRow, nullptr);
    QTreeWidget *rows = one.list();
    EXPECT_EQ(one.windowTitle().toStdString(), ct.fileName);
    ASSERT_EQ(rows->columnCount(), 3);
    EXPECT_EQ(rows->headerItem()->text(2), "Content");
    EXPECT_EQ(rowOfText(rows, 0, "0028:1052")->text(2), "-1024");
    for (int i = 0; i < rows->topLevelItemCount(); ++i)
        EXPECT_FALSE(static_cast<QxParameterListItem *>(rows->topLevelItem(i))->difference);

    const DicomParameterView two(&ctRow, &mrRow);
    rows = two.list();
    EXPECT_EQ(two.windowTitle().toStdString(), ct.fileName + "  :  " + mr.fileName);
    EXPECT_EQ(rows->headerItem()->text(3).toStdString(),
              "Content of " + mr.fileName.substr(mr.fileName.rfind('/') + 1));
    EXPECT_EQ(rowOfText(rows, 0, "7FE0:0010"), nullptr);
    const QTreeWidgetItem *fieldStrength = rowOfText(rows, 0, "0018:0087"); // MR only
    ASSERT_NE(fieldStrength, nullptr);
    EXPECT_EQ(fieldStrength->text(2), " ");
    EXPECT_EQ(fieldStrength->text(3), "3");
    const QTreeWidgetItem *kvp = rowOfText(rows, 0, "0018:0060"); // CT only
    EXPECT_EQ(kvp->text(2), "120");
    EXPECT_EQ(kvp->text(3), " ");
    EXPECT_TRUE(static_cast<const QxParameterListItem *>(kvp)->difference);
    QString previous;
    for (int i = 0; i < rows->topLevelItemCount(); ++i) {
        EXPECT_LT(previous, rows->topLevelItem(i)->text(0)) << "ascending tags, each once";
        previous = rows->topLevelItem(i)->text(0);
    }
}
