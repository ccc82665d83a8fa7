// What a user does inside the real import dialog, shown offscreen on the
// program's thread layout: sorting by a column, the stack and image panes,
// the popup menus, the preview and help.

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
#include <QPushButton>
#include <QTest>
#include <QTextBrowser>
#include <QTextEdit>

#include <gtest/gtest.h>

#include <algorithm>

using browsertest::popupChoose;
using browsertest::rowPoint;
using Strings = std::vector<std::string>;

namespace {

// Loads the two series, runs `steps` in the shown dialog, closes what they
// opened and cancels.
void inDialog(const std::function<void(DicomDialog &, DicomListView *)> &steps)
{
    VxObjectPool::instance()->clear();
    const auto outcome =
        browsertest::loadThroughDialog(browsertest::twoSeries(), [&](DicomDialog &d) {
            steps(d, d.view()->listView());
            for (QWidget *w : QApplication::topLevelWidgets())
                if (w != &d && w->isVisible())
                    w->close();
            QTest::mouseClick(d.cancelButton(), Qt::LeftButton);
        });
    EXPECT_TRUE(outcome.returned && outcome.cancelled);
}

std::vector<int> instanceNumbers(const DicomStackItem *stack)
{
    std::vector<int> numbers;
    for (int i = 0; i < stack->childCount(); ++i)
        numbers.push_back(static_cast<DicomListItem *>(stack->child(i))->image()->imageNumber);
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

void expectFacts(const QString &text, const Strings &facts)
{
    for (const std::string &fact : facts)
        EXPECT_TRUE(text.contains(QString::fromStdString(fact))) << fact << "\n"
                                                                 << text.toStdString();
}

} // namespace

TEST(DialogView, HeaderClicksReverseTheColumnAndRebuildTheStacks)
{
    VX_REQUIRE_SHARED_DATA();
    inDialog([](DicomDialog &, DicomListView *list) {
        const int section = sectionOf(list, "instance number");
        const std::vector<int> ascending = instanceNumbers(list->stackList()[0]);
        ASSERT_EQ(ascending.size(), 54u);
        ASSERT_TRUE(std::is_sorted(ascending.begin(), ascending.end()));
        QTest::mouseClick(list->header()->viewport(), Qt::LeftButton, {},
                          sectionCentre(list, section));
        EXPECT_EQ(instanceNumbers(list->stackList()[0]),
                  std::vector<int>(ascending.rbegin(), ascending.rend()));
        EXPECT_EQ(list->header()->sortIndicatorSection(), section);
        EXPECT_EQ(list->header()->sortIndicatorOrder(), Qt::DescendingOrder);
        EXPECT_EQ(list->stackList().size(), 2);
        QTest::mouseClick(list->header()->viewport(), Qt::LeftButton, {},
                          sectionCentre(list, section));
        EXPECT_EQ(instanceNumbers(list->stackList()[0]), ascending);
        EXPECT_EQ(list->header()->sortIndicatorOrder(), Qt::AscendingOrder);
    });
}

TEST(DialogView, SelectionFillsTheStackAndImagePanes)
{
    VX_REQUIRE_SHARED_DATA();
    inDialog([](DicomDialog &d, DicomListView *list) {
        QTextEdit *stackPane = d.view()->stackInfoArea();
        QTextEdit *imagePane = d.view()->dicomInfoArea();
        EXPECT_EQ(imagePane->toPlainText(), "2 stacks\n89 images");
        EXPECT_EQ(stackPane->toPlainText().trimmed(), "");

        // The Philips CT as dcm2niix sees it: 0.482422 x 0.482422 x 2.37081 mm,
        // gantry tilt 18.5 degrees.
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                          rowPoint(list, list->stackList()[0]));
        expectFacts(stackPane->toPlainText(),
                    {"54 images", "size: 512 x 512 x 54",
                     "voxel size: 0.482422 x 0.482422 x 2.37081 mm",
                     "slice spacing: 2.37081 mm, uniform", "modality: CT",
                     "orientation: axial, tilted by 18.5 degrees", "patient name: HEAD",
                     "next stack broke off: width is differing"});

        auto *image = static_cast<DicomListItem *>(list->stackList()[1]->child(3));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rowPoint(list, image));
        expectFacts(stackPane->toPlainText(),
                    {"35 images", "orientation: sagittal", "next stack: none"});
        expectFacts(imagePane->toPlainText(), {"file: " + image->image()->file->fileName,
                                               "patient name: HFS", "image size: 256 x 256"});
    });
}

TEST(DialogView, PopupMenusActOnTheRowsAndColumnsClicked)
{
    VX_REQUIRE_SHARED_DATA();
    inDialog([](DicomDialog &d, DicomListView *list) {
        DicomStackItem *ct = list->stackList()[0];
        const Strings rowMenu = {"DICOM Parameters", "Image Preview", "Remove Image"};

        // An image row: "Image Preview" shows that very image; a double click
        // does the same.
        auto *image = static_cast<DicomListItem *>(ct->child(10));
        EXPECT_EQ(popupChoose(list->viewport(), rowPoint(list, image), "Image Preview"), rowMenu);
        auto *preview = browsertest::visibleWindow<QxDicomImageView>();
        ASSERT_NE(preview, nullptr);
        EXPECT_EQ(preview->windowTitle().toStdString(), image->image()->file->fileName);
        EXPECT_EQ(preview->pictureLabel()->pixmap().size(), QSize(512, 512));
        preview->close();
        browsertest::doubleClick(list->viewport(), rowPoint(list, ct->child(20)));
        ASSERT_NE(browsertest::visibleWindow<QxDicomImageView>(), nullptr);
        browsertest::visibleWindow<QxDicomImageView>()->close();

        // Two image rows: the side-by-side parameters and removal.
        list->clearSelection();
        ct->child(1)->setSelected(true);
        ct->child(2)->setSelected(true);
        EXPECT_EQ(popupChoose(list->viewport(), rowPoint(list, ct->child(2)), "Remove Image"),
                  (Strings{"DICOM Parameters", "Remove Image"}));
        EXPECT_EQ(list->numImages(), 87);
        EXPECT_EQ(list->stackList()[0]->childCount(), 52);

        // A stack row removes the whole stack; the stacks are built again.
        EXPECT_EQ(
            popupChoose(list->viewport(), rowPoint(list, list->stackList()[0]), "Remove Image"),
            rowMenu);
        ASSERT_EQ(list->stackList().size(), 1);
        EXPECT_EQ(list->stackList()[0]->childCount(), 35);
        EXPECT_EQ(d.view()->dicomInfoArea()->toPlainText(), "1 stack\n35 images");

        // The header: "Remove Column" removes the column clicked.
        EXPECT_EQ(popupChoose(list->header()->viewport(),
                              sectionCentre(list, sectionOf(list, "file name")), "Remove Column"),
                  Strings{"Remove Column"});
        EXPECT_EQ(sectionOf(list, "file name"), -1);
        EXPECT_EQ(list->stackList()[0]->childCount(), 35);
    });
}

TEST(DialogView, HelpOpensThePageWithItsPicture)
{
    VX_REQUIRE_SHARED_DATA();
    inDialog([](DicomDialog &d, DicomListView *) {
        VxWarningDialog::setDisplayOverride(1); // with a display: the help window
        QAction *help = d.menuBar()->actions().last()->menu()->actions().first();
        ASSERT_EQ(help->text(), "&Help");
        help->trigger();
        VxWarningDialog::setDisplayOverride(-1);
        QTextBrowser *window = VxHelpBrowser::window();
        ASSERT_TRUE(window && window->isVisible());
        EXPECT_TRUE(window->source().path().endsWith("/VxFileFormat_DICOM.html"));
        EXPECT_TRUE(window->toPlainText().contains("strictly monot."));
        const QVariant picture =
            window->loadResource(QTextDocument::ImageResource, QUrl("images/dicom-loader.png"));
        EXPECT_FALSE(QImage::fromData(picture.toByteArray()).isNull()) << "picture missing";
    });
}
