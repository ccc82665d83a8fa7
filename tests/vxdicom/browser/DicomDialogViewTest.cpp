// What a user does inside the real import dialog, shown offscreen on the
// program's thread layout: sorting by a column, the stack and image panes,
// the popup menus, the preview and help.

#include "vxdicom/browser/DicomDialogView.h"

#include "platform/gui/VxHelpBrowser.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/vxdicom/browser/DialogDriver.h"
#include "vxdicom/browser/DicomMenuBar.h"
#include "vxdicom/browser/QxDicomImageView.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTextBrowser>
#include <QTextEdit>

#include <numeric>

using browsertest::instanceNumbers;
using browsertest::popupChoose;
using browsertest::rowPoint;
using browsertest::sectionOf;
using Strings = std::vector<std::string>;
using DialogView = browsertest::RealSeries;

namespace {
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

void steps(DicomDialog &d, DicomListView *list)
{
    // A click on a header reverses its column and rebuilds the stacks.
    const int section = sectionOf(list, "instance number");
    std::vector<int> ascending(54);
    std::iota(ascending.begin(), ascending.end(), 1);
    ASSERT_EQ(instanceNumbers(list->stackList()[0]), ascending);
    QTest::mouseClick(list->header()->viewport(), Qt::LeftButton, {}, sectionCentre(list, section));
    EXPECT_EQ(instanceNumbers(list->stackList()[0]),
              std::vector<int>(ascending.rbegin(), ascending.rend()));
    EXPECT_EQ(list->header()->sortIndicatorOrder(), Qt::DescendingOrder);
    QTest::mouseClick(list->header()->viewport(), Qt::LeftButton, {}, sectionCentre(list, section));
    EXPECT_EQ(instanceNumbers(list->stackList()[0]), ascending);

    // The panes: the Philips CT as dcm2niix sees it, then an image of the T1.
    QTextEdit *stackPane = d.view()->stackInfoArea();
    QTextEdit *imagePane = d.view()->dicomInfoArea();
    EXPECT_EQ(imagePane->toPlainText(), "2 stacks\n89 images");
    DicomStackItem *ct = list->stackList()[0];
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rowPoint(list, ct));
    expectFacts(stackPane->toPlainText(),
                {"54 images", "size: 512 x 512 x 54",
                 "voxel size: 0.482422 x 0.482422 x 2.37081 mm",
                 "slice spacing: 2.37081 mm, uniform", "modality: CT",
                 "orientation: axial, tilted by 18.5 degrees", "patient name: HEAD",
                 "next stack broke off: width is differing"});
    auto *t1 = static_cast<DicomListItem *>(list->stackList()[1]->child(3));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rowPoint(list, t1));
    expectFacts(stackPane->toPlainText(),
                {"35 images", "orientation: sagittal", "next stack: none"});
    expectFacts(imagePane->toPlainText(), {"file: " + t1->image()->file->fileName,
                                           "patient name: HFS", "image size: 256 x 256"});

    // An image row: "Image Preview" shows that very image; a double click too.
    const Strings rowMenu = {"DICOM Parameters", "Image Preview", "Remove Image"};
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

    // Two image rows removed, then a whole stack; the header removes a column.
    list->clearSelection();
    ct->child(1)->setSelected(true);
    ct->child(2)->setSelected(true);
    EXPECT_EQ(popupChoose(list->viewport(), rowPoint(list, ct->child(2)), "Remove Image"),
              (Strings{"DICOM Parameters", "Remove Image"}));
    EXPECT_EQ(list->numImages(), 87);
    EXPECT_EQ(list->stackList()[0]->childCount(), 52);
    EXPECT_EQ(popupChoose(list->viewport(), rowPoint(list, list->stackList()[0]), "Remove Image"),
              rowMenu);
    ASSERT_EQ(list->stackList().size(), 1);
    EXPECT_EQ(list->stackList()[0]->childCount(), 35);
    EXPECT_EQ(imagePane->toPlainText(), "1 stack\n35 images");
    EXPECT_EQ(popupChoose(list->header()->viewport(),
                          sectionCentre(list, sectionOf(list, "file name")), "Remove Column"),
              Strings{"Remove Column"});
    EXPECT_EQ(sectionOf(list, "file name"), -1);

    // Help, with a display: the page and its picture.
    VxWarningDialog::setDisplayOverride(1);
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
}
} // namespace

TEST_F(DialogView, SortPanesPreviewRemovalAndHelpAsAUserDrivesThem)
{
    const auto outcome =
        browsertest::loadThroughDialog(browsertest::twoSeries(), [](DicomDialog &d) {
            steps(d, d.view()->listView());
            for (QWidget *w : QApplication::topLevelWidgets())
                if (w != &d && w->isVisible())
                    w->close();
            QTest::mouseClick(d.cancelButton(), Qt::LeftButton);
        });
    EXPECT_TRUE(outcome.returned && outcome.cancelled);
}
