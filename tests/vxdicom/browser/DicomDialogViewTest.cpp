// What a user does inside the real import dialog, shown offscreen on the
// program's thread layout: sorting by a column, the stack and image panes,
// the popup menus, the preview, help, and the criteria hooks.

#include "vxdicom/browser/DicomDialogView.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/gui/VxHelpBrowser.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/browser/DialogDriver.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/browser/DicomMenuBar.h"
#include "vxdicom/browser/QxDicomImageView.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomListItem.h"
#include "vxdicom/stacks/DicomListView.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QTest>
#include <QTextBrowser>
#include <QTextEdit>

#include <gtest/gtest.h>

#include <algorithm>

using browsertest::loadThroughDialog;
using browsertest::menuTexts;
using Strings = std::vector<std::string>;

namespace {

class DialogView : public ::testing::Test
{
protected:
    void SetUp() override
    {
        VX_REQUIRE_SHARED_DATA();
        VxObjectPool::instance()->clear();
    }
    void TearDown() override { VxObjectPool::instance()->clear(); }

    // Loads the two series, runs `steps` in the shown dialog, then cancels.
    void inDialog(const std::function<void(DicomDialog &)> &steps)
    {
        const auto outcome = loadThroughDialog(browsertest::twoSeries(), [&](DicomDialog &d) {
            steps(d);
            for (QWidget *w : QApplication::topLevelWidgets())
                if (w != &d && w->isVisible())
                    w->close();
            QTest::mouseClick(d.cancelButton(), Qt::LeftButton);
        });
        ASSERT_TRUE(outcome.returned);
        EXPECT_TRUE(outcome.cancelled);
    }
};

std::vector<int> instanceNumbers(const DicomStackItem *stack)
{
    std::vector<int> numbers;
    for (int i = 0; i < stack->childCount(); ++i)
        numbers.push_back(
            static_cast<const DicomListItem *>(stack->child(i))->image()->imageNumber);
    return numbers;
}

int sectionOf(const DicomListView *list, const char *label)
{
    for (int s = 0; s < list->columnCount(); ++s)
        if (list->headerItem()->text(s) == QLatin1String(label))
            return s;
    return -1;
}

QPoint sectionCentre(const DicomListView *list, int section)
{
    const QHeaderView *h = list->header();
    return {h->sectionViewportPosition(section) + h->sectionSize(section) / 2, h->height() / 2};
}

} // namespace

TEST_F(DialogView, HeaderClicksReverseTheColumnAndRebuildTheStacks)
{
    inDialog([](DicomDialog &d) {
        DicomListView *list = d.view()->listView();
        const int section = sectionOf(list, "instance number");
        ASSERT_GT(section, 0);
        const std::vector<int> ascending = instanceNumbers(list->stackList()[0]);
        ASSERT_EQ(ascending.size(), 54u);
        ASSERT_TRUE(std::is_sorted(ascending.begin(), ascending.end()));

        QTest::mouseClick(list->header()->viewport(), Qt::LeftButton, {},
                          sectionCentre(list, section));
        const std::vector<int> descending = instanceNumbers(list->stackList()[0]);
        EXPECT_EQ(descending, std::vector<int>(ascending.rbegin(), ascending.rend()));
        EXPECT_EQ(list->header()->sortIndicatorSection(), section);
        EXPECT_EQ(list->header()->sortIndicatorOrder(), Qt::DescendingOrder);
        EXPECT_EQ(list->stackList().size(), 2);

        QTest::mouseClick(list->header()->viewport(), Qt::LeftButton, {},
                          sectionCentre(list, section));
        EXPECT_EQ(instanceNumbers(list->stackList()[0]), ascending);
        EXPECT_EQ(list->header()->sortIndicatorOrder(), Qt::AscendingOrder);
    });
}

TEST_F(DialogView, SelectionFillsTheStackAndImagePanes)
{
    inDialog([](DicomDialog &d) {
        DicomListView *list = d.view()->listView();
        QTextEdit *stackPane = d.view()->stackInfoArea();
        QTextEdit *imagePane = d.view()->dicomInfoArea();
        EXPECT_EQ(imagePane->toPlainText(), "2 stacks\n89 images");
        EXPECT_EQ(stackPane->toPlainText().trimmed(), "");

        DicomStackItem *ct = list->stackList()[0];
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, browsertest::rowPoint(list, ct));
        const std::string ctText = stackPane->toPlainText().toStdString();
        // The facts of the Philips CT (dcm2niix: 0.482422 x 0.482422 x 2.37081
        // mm, gantry tilt 18.5 degrees).
        for (const char *fact :
             {"54 images", "size: 512 x 512 x 54", "voxel size: 0.482422 x 0.482422 x 2.37081 mm",
              "slice spacing: 2.37081 mm, uniform", "modality: CT",
              "orientation: axial, tilted by 18.5 degrees", "patient name: HEAD",
              "next stack broke off: width is differing"})
            EXPECT_NE(ctText.find(fact), std::string::npos) << fact << "\n" << ctText;

        DicomStackItem *t1 = list->stackList()[1];
        QTreeWidgetItem *image = t1->child(3);
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, browsertest::rowPoint(list, image));
        const std::string t1Text = stackPane->toPlainText().toStdString();
        for (const char *fact : {"35 images", "orientation: sagittal", "next stack: none"})
            EXPECT_NE(t1Text.find(fact), std::string::npos) << fact << "\n" << t1Text;
        const auto *row = static_cast<DicomListItem *>(image);
        const std::string imageText = imagePane->toPlainText().toStdString();
        for (const std::string &fact :
             {std::string("file: ") + row->image()->file->fileName.c_str(),
              std::string("patient name: HFS"), std::string("image size: 256 x 256")})
            EXPECT_NE(imageText.find(fact), std::string::npos) << fact << "\n" << imageText;
    });
}

TEST_F(DialogView, PopupMenusActOnTheRowsAndColumnsClicked)
{
    inDialog([](DicomDialog &d) {
        DicomListView *list = d.view()->listView();
        DicomStackItem *ct = list->stackList()[0];
        const Strings rowMenu = {"DICOM Parameters", "Image Preview", "Remove Image"};

        // An image row: the image menu; "Image Preview" opens the preview of
        // that very image, rescaled and windowed as the file says.
        auto *image = static_cast<DicomListItem *>(ct->child(10));
        Strings texts;
        browsertest::whenPopupOpens([&](QMenu &menu) {
            texts = menuTexts(menu);
            browsertest::triggerMenuItem(menu, "Image Preview");
        });
        browsertest::rightClick(list->viewport(), browsertest::rowPoint(list, image));
        EXPECT_EQ(texts, rowMenu);
        auto *preview = browsertest::visibleWindow<QxDicomImageView>();
        ASSERT_NE(preview, nullptr);
        EXPECT_EQ(preview->windowTitle().toStdString(), image->image()->file->fileName.c_str());
        EXPECT_EQ(preview->pictureLabel()->pixmap().size(), QSize(512, 512));
        preview->close();

        // A double click on an image row does the same.
        browsertest::doubleClick(list->viewport(), browsertest::rowPoint(list, ct->child(20)));
        ASSERT_NE(browsertest::visibleWindow<QxDicomImageView>(), nullptr);
        browsertest::visibleWindow<QxDicomImageView>()->close();

        // Two image rows: only the side-by-side parameters and removal.
        list->clearSelection();
        ct->child(1)->setSelected(true);
        ct->child(2)->setSelected(true);
        bool parametersEnabled = false;
        browsertest::whenPopupOpens([&](QMenu &menu) {
            texts = menuTexts(menu);
            parametersEnabled = menu.actions().first()->isEnabled();
            browsertest::triggerMenuItem(menu, "Remove Image");
        });
        browsertest::rightClick(list->viewport(), browsertest::rowPoint(list, ct->child(2)));
        EXPECT_EQ(texts, (Strings{"DICOM Parameters", "Remove Image"}));
        EXPECT_TRUE(parametersEnabled);
        EXPECT_EQ(list->numImages(), 87);
        ASSERT_EQ(list->stackList().size(), 2);
        EXPECT_EQ(list->stackList()[0]->childCount(), 52);

        // A stack row: its menu removes the whole stack, and the stacks are
        // built again.
        browsertest::whenPopupOpens([&](QMenu &menu) {
            texts = menuTexts(menu);
            browsertest::triggerMenuItem(menu, "Remove Image");
        });
        browsertest::rightClick(list->viewport(),
                                browsertest::rowPoint(list, list->stackList()[0]));
        EXPECT_EQ(texts, rowMenu);
        ASSERT_EQ(list->stackList().size(), 1);
        EXPECT_EQ(list->stackList()[0]->childCount(), 35);
        EXPECT_EQ(d.view()->dicomInfoArea()->toPlainText().left(17), "1 stack\n35 images");

        // The header: "Remove Column" on the column clicked.
        const int section = sectionOf(list, "file name");
        ASSERT_GT(section, 0);
        browsertest::whenPopupOpens([&](QMenu &menu) {
            texts = menuTexts(menu);
            browsertest::triggerMenuItem(menu, "Remove Column");
        });
        browsertest::rightClick(list->header()->viewport(), sectionCentre(list, section));
        EXPECT_EQ(texts, Strings{"Remove Column"});
        EXPECT_EQ(sectionOf(list, "file name"), -1);
        EXPECT_EQ(list->stackList()[0]->childCount(), 35);
    });
}

TEST_F(DialogView, HelpOpensThePageAndTheCriteriaHooksAnswer)
{
    inDialog([](DicomDialog &d) {
        {
            VxMessageCapture console;
            QTest::mouseClick(d.criteriaButton(), Qt::LeftButton);
            d.menuBar()->columnsItem(0)->trigger(); // "Stack Break Criteria..."
            d.menuBar()->columnsItem(1)->trigger(); // "Add Column..."
            const std::string text = console.text();
            auto count = [&text](const std::string &needle) {
                int n = 0;
                for (size_t at = text.find(needle); at != std::string::npos;
                     at = text.find(needle, at + 1))
                    ++n;
                return n;
            };
            EXPECT_EQ(count("DICOM Stack Break Criteria: The stack break criteria dialog is not "
                            "available yet.\n"),
                      2)
                << text;
            EXPECT_EQ(count("DICOM Parameters: The parameter view is not available yet.\n"), 1)
                << text;
        }

        // With a display, Help shows the page in the help window over the dialog.
        VxWarningDialog::setDisplayOverride(1);
        QAction *help = nullptr;
        for (QAction *a : d.menuBar()->actions())
            if (a->menu() && a->text() == "&Help")
                help = a->menu()->actions().first();
        ASSERT_NE(help, nullptr);
        help->trigger();
        VxWarningDialog::setDisplayOverride(-1);
        QTextBrowser *window = VxHelpBrowser::window();
        ASSERT_NE(window, nullptr);
        EXPECT_TRUE(window->isVisible());
        EXPECT_TRUE(window->source().path().endsWith("/VxFileFormat_DICOM.html"));
        EXPECT_EQ(window->documentTitle(), "DICOM Loader");
        EXPECT_TRUE(window->toPlainText().contains("strictly monot."));
        const QVariant resource = window->document()->resource(QTextDocument::ImageResource,
                                                               QUrl("images/dicom-loader.png"));
        const QImage picture = resource.typeId() == QMetaType::QImage ? resource.value<QImage>()
                               : resource.typeId() == QMetaType::QPixmap
                                   ? resource.value<QPixmap>().toImage()
                                   : QImage::fromData(resource.toByteArray());
        EXPECT_FALSE(picture.isNull()) << "the picture of the dialog is missing";
        window->close();
    });
}
