// The browser list as a model: columns and options, persistence of the
// criteria, the summary signal, image rows and model consistency.

#include "vxdicom/stacks/DicomListView.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/stacks/StacksTestSupport.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomListItem.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QAbstractItemModelTester>
#include <QHeaderView>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <mutex>

using stacktest::LoadedFiles;

namespace {

const char *kCtDir = "dcm_qa_ct/In/Philips/S21610/S2010";

std::string ctFile(const char *name)
{
    return vxtest::sharedPath(std::string(kCtDir) + "/" + name);
}

KcString storedCriteria()
{
    return VxSettingsMgr::getInstance()->getPreferences().dicomLoadOptions;
}

void storeCriteria(const char *text)
{
    VxPreferences prefs = VxSettingsMgr::getInstance()->getPreferences();
    prefs.dicomLoadOptions = text;
    VxSettingsMgr::getInstance()->setPreferences(prefs, false);
}

QStringList optionNames(const DicomListView &view)
{
    QStringList names;
    for (const DicomLoadOption *option : view.loadOptions())
        names << option->name.toQString();
    return names;
}

// Collects Qt's warnings (the model tester reports through them).
class QtWarnings
{
public:
    QtWarnings()
    {
        active = this;
        previous = qInstallMessageHandler(&QtWarnings::handler);
    }
    ~QtWarnings()
    {
        qInstallMessageHandler(previous);
        active = nullptr;
    }
    QStringList messages() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return seen;
    }

private:
    static void handler(QtMsgType type, const QMessageLogContext &, const QString &text)
    {
        if (type == QtDebugMsg || type == QtInfoMsg || !active)
            return;
        std::lock_guard<std::mutex> lock(active->mutex);
        active->seen << text;
    }
    static inline QtWarnings *active = nullptr;
    QtMessageHandler previous = nullptr;
    mutable std::mutex mutex;
    QStringList seen;
};

} // namespace

class ListView : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (vxtest::sharedDataDir().empty())
            GTEST_SKIP() << "../shared/data is not beside this checkout; real scanner files are "
                            "needed for this test";
    }
    stacktest::DefaultCriteria criteria;
};

TEST_F(ListView, InitializeWithoutImagesReadsNothing)
{
    storeCriteria("<32|19|8|31|instance number>");
    DicomListView view;
    QSignalSpy changed(&view, &DicomListView::listViewChanged);
    VxMessageCapture console;
    view.initialize({});
    EXPECT_TRUE(view.loadOptions().isEmpty());
    EXPECT_EQ(view.columnCount(), 1);
    EXPECT_EQ(changed.count(), 0);
    EXPECT_FALSE(console.contains("Using non default DICOM load options!"));
}

TEST_F(ListView, SummarySignalCountsStacksAndImages)
{
    LoadedFiles one({ctFile("I10")});
    DicomListView single;
    QSignalSpy singleSpy(&single, &DicomListView::listViewChanged);
    single.initialize(one.images());
    ASSERT_GE(singleSpy.count(), 1);
    EXPECT_EQ(singleSpy.last().at(0).toString(), "1 stack\n1 image");

    LoadedFiles dwi(stacktest::folderFiles("dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2"));
    DicomListView view;
    QSignalSpy spy(&view, &DicomListView::listViewChanged);
    view.initialize(dwi.images());
    ASSERT_GE(spy.count(), 1);
    EXPECT_EQ(spy.last().at(0).toString(), "7 stacks\n14 images");
}

TEST_F(ListView, CleanupKeepsFileNameLoadIndexAndSliceLocation)
{
    // With one image every column is obsolete; three are kept all the same.
    LoadedFiles one({ctFile("I10")});
    DicomListView view;
    view.initialize(one.images());
    EXPECT_EQ(stacktest::columnLabels(view),
              (QStringList{"image stack", "slice location", "file name", "load index"}));
    EXPECT_EQ(optionNames(view), (QStringList{"slice location", "file name", "load index"}));
    EXPECT_EQ(view.columnWidth(1), view.fontMetrics().horizontalAdvance("slice location") + 40);
}

TEST_F(ListView, ClearColumnsAndOptionsKeepsTheFirstTwoPositions)
{
    LoadedFiles files({ctFile("I10"), ctFile("I20")});
    DicomListView view;
    view.initialize(files.images());
    ASSERT_EQ(view.columnCount(), 5);
    view.clearColumnsAndOptions();
    EXPECT_TRUE(view.loadOptions().isEmpty());
    EXPECT_EQ(stacktest::columnLabels(view), (QStringList{"image stack", "instance number"}));

    // Rebuilding gives the kept column to the first option again.
    view.initializeColumns(true);
    EXPECT_EQ(stacktest::columnLabels(view),
              (QStringList{"image stack", "instance number", "slice location", "file name",
                           "load index"}));
    EXPECT_EQ(view.stackList().size(), 1);
}

TEST_F(ListView, OptionsAndColumnsAreAddedAndRemovedByName)
{
    LoadedFiles files({ctFile("I10"), ctFile("I20")});
    DicomListView view;
    view.initialize(files.images());
    const int before = view.loadOptions().size();

    view.addLoadOption(-1, -1, "7");
    view.addLoadOption(0x0020, 0x0013, "1");
    EXPECT_EQ(view.loadOptions().size(), before)
        << "pseudo-elements and known elements are ignored";

    view.addLoadOption(0x0018, 0x0050, " 2.5 ");
    view.addLoadOption(0x0008, 0x0060, "CT");
    ASSERT_EQ(view.loadOptions().size(), before + 2);
    const DicomLoadOption *thickness = view.loadOptions()[before];
    EXPECT_EQ(thickness->name, "slice thickness");
    EXPECT_EQ(thickness->value, DicomLoadOption::Ignore);
    EXPECT_EQ(thickness->options, 31) << "a numeric value allows every policy";
    EXPECT_EQ(view.loadOptions()[before + 1]->options, 3) << "a text allows ignore and constant";

    view.appendColumn(0x0018, 0x0050, "ignored label");
    view.appendColumn(0x0008, 0x0060, QString());
    view.appendColumn(0x0018, 0x0050, "again");
    EXPECT_EQ(view.columnCount(), 7) << "an existing label adds no column";
    EXPECT_EQ(view.headerItem()->text(5), "slice thickness") << "the dictionary names the column";
    EXPECT_EQ(view.getSortOrder(6), 1);

    DicomListItem *row = view.stackList()[0]->firstChild();
    EXPECT_EQ(row->text(5), "2.5");
    EXPECT_EQ(row->text(6), "CT");

    view.deleteColumn(5);
    EXPECT_EQ(view.headerItem()->text(5), "modality");
    EXPECT_EQ(view.loadOptions()[before]->name, "modality");
    EXPECT_EQ(view.stackList()[0]->firstChild()->text(5), "CT");

    view.removeLoadOption("modality");
    EXPECT_EQ(view.loadOptions().size(), before);
}

TEST_F(ListView, ImageRowsShowTheOptionOfTheirColumn)
{
    LoadedFiles files({ctFile("I20"), ctFile("I10")});
    DicomListView view;
    view.initialize(files.images());
    ASSERT_EQ(stacktest::columnLabels(view),
              (QStringList{"image stack", "instance number", "slice location", "file name",
                           "load index"}));
    ASSERT_EQ(view.stackList().size(), 1);
    DicomListItem *row = view.stackList()[0]->firstChild();
    EXPECT_EQ(row->image()->imageNumber, 1);
    EXPECT_EQ(row->text(0), "");
    EXPECT_EQ(row->text(1), "1");
    EXPECT_EQ(row->text(3), QString::fromStdString(ctFile("I10")));
    EXPECT_EQ(row->text(4), "1") << "I10 was handed in second";
    EXPECT_EQ(row->key(2, true), "00000");
    EXPECT_EQ(row->columnKey(1, true), "+00000000100001") << "instance number 1 + 100000";

    // Moving "load index" to the front changes what visual position 1 shows.
    // The move rebuilds the stacks: I10's row is a new one.
    view.header()->moveSection(4, 1);
    row = nullptr;
    for (int i = 0; i < view.stackList()[0]->childCount(); ++i)
        if (auto *r = static_cast<DicomListItem *>(view.stackList()[0]->child(i));
            r->image()->imageNumber == 1)
            row = r;
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->columnKey(1, true), "+00000000100001") << "load index 1";
    EXPECT_EQ(row->columnKey(2, true), "+00000000100001") << "instance number 1";
    EXPECT_EQ(row->columnKey(4, true), QString::fromStdString(ctFile("I10")))
        << "a text is its own key";

    DicomListItem orphan(files.files[0]->images[0]);
    EXPECT_EQ(orphan.text(1), "") << "outside a list view";

    // Take the last option away: its column is left without one.
    DicomLoadOption *dropped = view.loadOptions().last();
    view.loadOptions().remove(view.loadOptions().size() - 1);
    testing::internal::CaptureStdout();
    const QString beyond = row->text(4);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(beyond, "");
    EXPECT_EQ(printed, "Error: more columns than LoadOptions\n");
    delete dropped;
}

TEST_F(ListView, CriteriaAreStoredInVisualColumnOrder)
{
    LoadedFiles files({ctFile("I10"), ctFile("I20"), ctFile("I30")});
    {
        DicomListView view;
        view.initialize(files.images());
        view.loadOptions()[stacktest::optionIndex(view, "slice location")]->setValue(
            DicomLoadOption::Linear);
        view.header()->moveSection(3, 1); // "file name" first
        view.saveSettings();
    }
    EXPECT_EQ(storedCriteria(), "<-1|-1|1|3|file name><32|19|8|31|instance number>"
                                "<32|4161|16|31|slice location><-1|-1|1|23|load index>");

    // A new session reads the stored text, in that order.
    VxSettingsMgr::getInstance()->setStorageFile(VxSettingsMgr::getInstance()->storageFile());
    DicomListView view;
    VxMessageCapture console;
    view.initialize(files.images());
    EXPECT_TRUE(console.contains("Using non default DICOM load options!\n"));
    EXPECT_EQ(optionNames(view),
              (QStringList{"file name", "instance number", "slice location", "load index"}));
    EXPECT_EQ(view.loadOptions()[2]->value, DicomLoadOption::Linear);
    EXPECT_EQ(stacktest::stackSizes(view), std::vector<int>{3}) << "CT steps are linear";

    view.resetSettings();
    EXPECT_EQ(storedCriteria(), "");
    EXPECT_EQ(optionNames(view),
              (QStringList{"instance number", "slice location", "file name", "load index"}));
    EXPECT_EQ(view.loadOptions()[1]->value, DicomLoadOption::StrictlyMonotonic);
}

TEST_F(ListView, UnparseableStoredCriteriaAreDropped)
{
    storeCriteria("<32|19|8|31|a><not an option><1|2|3|x|y><32|4161|4|31|b>");
    LoadedFiles files({ctFile("I10"), ctFile("I20")});
    DicomListView view;
    view.initialize(files.images());
    EXPECT_EQ(optionNames(view), (QStringList{"instance number", "slice location"}))
        << "dictionary names replace the stored ones";
    EXPECT_EQ(view.loadOptions()[1]->value, DicomLoadOption::Monotonic);
}

TEST_F(ListView, ToleranceChangeRebuildsOnlyWhenItChanges)
{
    LoadedFiles files({ctFile("I10"), ctFile("I20"), ctFile("I30")});
    DicomListView view;
    view.initialize(files.images());
    QSignalSpy spy(&view, &DicomListView::listViewChanged);
    view.setUniformTolerance(0.02f);
    EXPECT_EQ(spy.count(), 0);
    view.setUniformTolerance(0.025f);
    EXPECT_EQ(spy.count(), 1);
    EXPECT_FLOAT_EQ(view.getUniformTolerance(), 0.025f);
    EXPECT_FLOAT_EQ(DicomStackItem::uniformTolerance, 0.025f) << "one tolerance for all stacks";
}

TEST_F(ListView, RemovingSelectedRowsDropsTheirImages)
{
    LoadedFiles files(stacktest::folderFiles(kCtDir));
    DicomListView view;
    QSignalSpy spy(&view, &DicomListView::listViewChanged);
    view.initialize(files.images());
    ASSERT_EQ(view.numImages(), 54);

    view.stackList()[0]->child(10)->setSelected(true);
    EXPECT_EQ(view.numSelectedImages(), 1);
    view.removeSelectedItems();
    EXPECT_EQ(view.imageList().size(), 53);
    EXPECT_EQ(view.numImages(), 53);
    EXPECT_EQ(spy.last().at(0).toString(), "1 stack\n53 images");

    view.stackList()[0]->setSelected(true);
    view.removeSelectedItems();
    EXPECT_EQ(view.imageList().size(), 0);
    EXPECT_EQ(spy.last().at(0).toString(), "0 stacks\n0 images");
}

TEST_F(ListView, ModelStaysConsistentThroughEveryRebuild)
{
    LoadedFiles files(stacktest::folderFiles("dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2"));
    DicomListView view;
    QtWarnings warnings;
    QAbstractItemModelTester tester(view.model(),
                                    QAbstractItemModelTester::FailureReportingMode::Warning);
    view.initialize(files.images());
    view.sortingOrderChanged(1);
    view.header()->moveSection(2, 1);
    view.setUniformTolerance(0.5f);
    view.deleteColumn(view.columnCount() - 1);
    view.stackList()[1]->setSelected(true);
    view.removeSelectedItems();
    view.removeEmptyStacks();
    view.resetSettings();
    view.clearColumnsAndOptions();
    view.cleanupAllStacks();
    // QTreeWidget's own model hands out a row's children under every column of
    // the row, which fails the tester's "second column has other children"
    // check for any QTreeWidget with children and two columns; every other
    // check must hold.
    QStringList failures = warnings.messages();
    failures.removeIf([](const QString &m) { return m.contains("childIndex != childIndex1"); });
    EXPECT_TRUE(failures.isEmpty()) << failures.join("\n").toStdString();
    EXPECT_EQ(view.topLevelItemCount(), 0);
}
