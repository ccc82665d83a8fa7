// The import dialog shown offscreen, vxReadDicom on a worker thread, the test clicking and typing.

#include "vxdicom/browser/DicomDialog.h"
#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/gui/VxHelpBrowser.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/support/WidgetDriver.h"
#include "tests/vxdicom/stacks/StacksTestSupport.h"
#include "vxdicom/browser/DicomDialogView.h"
#include "vxdicom/browser/DicomMenuBar.h"
#include "vxdicom/browser/DicomParameterView.h"
#include "vxdicom/browser/QxDicomImageView.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/stacks/DicomOptionDialog.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTextBrowser>
#include <QTextEdit>
#include <QTimer>

#include <algorithm>

using namespace stacktest;
using Strings = std::vector<std::string>;

namespace {

using namespace uitest;

struct LoadOutcome // the fields are owned by the object pool
{
    bool returned = false, cancelled = false;
    int result = -1;
    KcDArray<VxField3 *> fields;
};

/// vxReadDicom on a worker thread as the program runs it; `drive` gets the shown dialog.
LoadOutcome loadThroughDialog(const std::vector<std::string> &files,
                              const std::function<void(DicomDialog &)> &drive)
{
    registerDicomImportDialog();
    auto driven = std::make_shared<bool>(false);
    const QPointer<QTimer> waiting =
        when([driven] { return !*driven && visibleWindow<DicomDialog>(); },
             [driven, drive] {
                 *driven = true;
                 drive(*visibleWindow<DicomDialog>());
             });
    // Owned by the worker too, which may outlive a test that gave up on it.
    auto state = std::make_shared<LoadOutcome>();
    state->returned = runOnWorker([state, files] {
        std::vector<const char *> argv;
        for (const std::string &n : files)
            argv.push_back(n.c_str());
        state->result = vxReadDicom(int(argv.size()), argv.data(), state->fields, 1, false);
        state->cancelled = dicomImportCancelled;
    });
    delete waiting.data();
    EXPECT_TRUE(*driven) << "the dialog was not shown";
    return state->returned ? *state : LoadOutcome();
}

/// The Philips CT (54 axial slices; its DICOMDIR left out) and the Siemens sagittal T1 (35).
std::vector<std::string> twoSeries()
{
    std::vector<std::string> files = vxtest::sharedDicomFiles("dcm_qa_ct/In"),
                             t1 = vxtest::sharedDicomFiles("dcm_qa_decubitus/In");
    std::erase_if(files,
                  [](const std::string &f) { return f.find("DIRFILE") != std::string::npos; });
    files.insert(files.end(), t1.begin(), t1.end());
    return files;
}

QPoint sectionCentre(const DicomListView *list, int section)
{
    const QHeaderView *h = list->header();
    return {h->sectionViewportPosition(section) + h->sectionSize(section) / 2, h->height() / 2};
}

// The first dimension of each field (512 for the CT, 35 for the T1), or its x extent.
std::vector<float> sizes(const LoadOutcome &outcome, bool extent = false)
{
    EXPECT_TRUE(outcome.returned && outcome.result == 1 && !outcome.cancelled);
    std::vector<float> out;
    for (const VxField3 *f : outcome.fields) {
        float box[6] = {};
        f->lattice()->getBoundingBox(box);
        out.push_back(extent ? box[1] - box[0] : float(f->lattice()->dim(0)));
    }
    return out;
}

using DialogFlow = RealSeries;
using DialogSteering = RealSeries;

TEST_F(DialogFlow, OkLoadsTheSelectedStacksOrAllInTheChosenUnitAndSaysHowMany)
{
    const auto selected = loadThroughDialog(twoSeries(), [&](DicomDialog &d) {
        DicomListView *list = d.view()->listView();
        ASSERT_EQ(list->stackList().size(), 2);
        EXPECT_EQ(d.loadSummaryLabel()->text(), "OK loads all 2 stacks");
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                          rowPoint(list, list->stackList()[1]));
        EXPECT_EQ(d.loadSummaryLabel()->text(), "OK loads 1 of 2 stacks: the selected one");
        QTest::mouseClick(d.okButton(), Qt::LeftButton);
    });
    EXPECT_EQ(sizes(selected), std::vector<float>{35});
    VxSettingsMgr *settings = VxSettingsMgr::getInstance();
    const VxPreferences before = settings->getPreferences();
    const auto all = loadThroughDialog(twoSeries(), [](DicomDialog &d) {
        d.menuBar()->unitsItem(0)->trigger();
        QTest::keyClick(&d, Qt::Key_Return);
    });
    EXPECT_EQ(sizes(all), (std::vector<float>{512, 35}));
    EXPECT_NEAR(sizes(all, true).at(1), 163.2f, 0.01f);
    EXPECT_FLOAT_EQ(settings->getPreferences().lengthUnit, 0.001f) << "stored for the next load";
    settings->setPreferences(before, false);

    // A single image beside a series: "Only uniform stacks" leaves it out.
    std::vector<std::string> files = vxtest::sharedDicomFiles("dcm_qa_decubitus/In");
    files.push_back(ctFile("I10"));
    const auto uniform = loadThroughDialog(files, [](DicomDialog &d) {
        QCheckBox *box = d.view()->onlyUniformBox();
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
        EXPECT_EQ(d.loadSummaryLabel()->text(), "OK loads 1 of 2 stacks");
        QTest::mouseClick(d.okButton(), Qt::LeftButton);
    });
    EXPECT_EQ(sizes(uniform), std::vector<float>{35});
}

void steps(DicomDialog &d, DicomListView *list)
{
    ASSERT_EQ(instanceNumbers(list->stackList()[0]).front(), 1);
    QTest::mouseClick(list->header()->viewport(), Qt::LeftButton, {},
                      sectionCentre(list, optionIndex(*list, "instance number") + 1));
    const std::vector<int> reversed = instanceNumbers(list->stackList()[0]);
    EXPECT_TRUE(reversed.size() == 54 && std::is_sorted(reversed.rbegin(), reversed.rend()));

    QTextEdit *imagePane = d.view()->dicomInfoArea();
    EXPECT_EQ(imagePane->toPlainText(), "2 stacks\n89 images");
    DicomStackItem *ct = list->stackList()[0];
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rowPoint(list, ct));
    const QString facts = d.view()->stackInfoArea()->toPlainText();
    for (const char *fact :
         {"size: 512 x 512 x 54", "voxel size: 0.482422 x 0.482422 x 2.37081 mm",
          "slice spacing: 2.37081 mm, uniform", "orientation: axial, tilted by 18.5 degrees",
          "patient name: HEAD", "next stack broke off: width is differing"})
        EXPECT_TRUE(facts.contains(fact)) << fact << "\n" << facts.toStdString();

    auto *image = static_cast<DicomListItem *>(ct->child(10));
    EXPECT_EQ(popupChoose(list->viewport(), rowPoint(list, image), "Image Preview"),
              (Strings{"DICOM Parameters", "Image Preview", "Remove Image"}));
    auto *preview = visibleWindow<QxDicomImageView>();
    ASSERT_NE(preview, nullptr);
    EXPECT_EQ(preview->windowTitle().toStdString(), image->image()->file->fileName);
    const QImage grey =
        preview->pictureLabel()->pixmap().toImage().convertToFormat(QImage::Format_Grayscale8);
    const auto [dark, bright] =
        std::minmax_element(grey.constBits(), grey.constBits() + grey.sizeInBytes());
    EXPECT_TRUE(grey.size() == QSize(512, 512) && *dark == 0 && *bright == 255)
        << "the CT's window (40/80 HU) maps air to black and plastic to white";
    preview->close();

    list->clearSelection();
    ct->child(1)->setSelected(true);
    ct->child(2)->setSelected(true);
    EXPECT_EQ(popupChoose(list->viewport(), rowPoint(list, ct->child(2)), "Remove Image"),
              (Strings{"DICOM Parameters", "Remove Image"}));
    EXPECT_EQ(list->numImages(), 87);
    popupChoose(list->viewport(), rowPoint(list, list->stackList()[0]), "Remove Image");
    ASSERT_EQ(stackSizes(*list), std::vector<int>{35});
    EXPECT_EQ(imagePane->toPlainText(), "1 stack\n35 images");

    VxWarningDialog::setDisplayOverride(1);
    d.menuBar()->actions().last()->menu()->actions().first()->trigger();
    VxWarningDialog::setDisplayOverride(-1);
    QTextBrowser *window = VxHelpBrowser::window();
    ASSERT_TRUE(window && window->isVisible());
    EXPECT_TRUE(window->source().path().endsWith("/VxFileFormat_DICOM.html"));
}

// Cancel after sorting, the panes, a preview, removals and the help; Escape; closing.
TEST_F(DialogFlow, CancelEscapeAndClosingLoadNothingAndReturn)
{
    const std::vector<std::pair<const char *, std::function<void(DicomDialog &)>>> ways = {
        {"Cancel",
         [](DicomDialog &d) {
             steps(d, d.view()->listView());
             for (QWidget *w : QApplication::topLevelWidgets())
                 if (w != &d && w->isVisible())
                     w->close();
             QTest::mouseClick(d.cancelButton(), Qt::LeftButton);
         }},
        {"Esc", [](DicomDialog &d) { QTest::keyClick(&d, Qt::Key_Escape); }},
        {"closing the window", [](DicomDialog &d) { d.close(); }},
    };
    for (const auto &[way, act] : ways) {
        const auto outcome = loadThroughDialog(twoSeries(), act);
        EXPECT_TRUE(outcome.returned && outcome.result == 1 && outcome.cancelled) << way;
        EXPECT_EQ(VxObjectPool::instance()->size(), 0) << way;
        EXPECT_EQ(visibleWindow<DicomDialog>(), nullptr) << way;
    }
}

// Side by side, two images of different volumes differ in temporal position: "Add" it.
void addTheDifferingElement(DicomParameterView &view)
{
    QTreeWidget *rows = view.list();
    QTreeWidgetItem *temporal =
        rows->findItems("temporal position identifier", Qt::MatchExactly, 1).value(0);
    ASSERT_NE(temporal, nullptr);
    EXPECT_TRUE(static_cast<QxParameterListItem *>(temporal)->difference);
    EXPECT_FALSE(view.addButton()->isEnabled());
    QTest::mouseClick(rows->viewport(), Qt::LeftButton, {}, rowPoint(rows, temporal));
    QTest::mouseClick(view.addButton(), Qt::LeftButton);
}

void steer(DicomDialog &d)
{
    DicomListView *list = d.view()->listView();
    EXPECT_EQ(list->stackList().size(), 3) << "the loader splits such a series by itself";
    d.menuBar()->optionsItem(8)->trigger(); // "Split Repeated Positions into Volumes" off
    ASSERT_EQ(list->stackList().size(), 19) << "the criteria alone cut it into ones and twos";
    list->clearSelection();
    list->stackList()[0]->child(0)->setSelected(true);
    list->stackList()[1]->child(0)->setSelected(true);
    whenShown<DicomParameterView>(addTheDifferingElement);
    popupChoose(list->viewport(), rowPoint(list, list->stackList()[1]->child(0)),
                "DICOM Parameters");
    const int section = optionIndex(*list, "temporal position identifier") + 1; // 0: names
    ASSERT_GT(section, 0);
    const DicomLoadOption *option = list->loadOptions()[section - 1];
    EXPECT_EQ(option->value, DicomLoadOption::Ignore);

    QTest::mouseClick(d.criteriaButton(), Qt::LeftButton);
    auto *criteria = visibleWindow<DicomOptionDialog>();
    ASSERT_NE(criteria, nullptr);
    auto typeAndApply = [criteria](const char *text) {
        criteria->toleranceEdit()->selectAll();
        QTest::keyClicks(criteria->toleranceEdit(), text);
        QTest::mouseClick(criteria->applyButton(), Qt::LeftButton);
    };
    QTreeWidget *elements = criteria->elementList();
    QTreeWidgetItem *element =
        elements->findItems("temporal position identifier", Qt::MatchExactly).value(0);
    QTest::mouseClick(elements->viewport(), Qt::LeftButton, {}, rowPoint(elements, element));
    criteria->policyButtons(elements->indexOfTopLevelItem(element))
        ->button(DicomLoadOption::Constant)
        ->click();

    // Not a number, negative, above 100 %: a message, and nothing is applied.
    for (const char *bad : {"abc", "-1", "150"}) {
        VxMessageCapture console;
        typeAndApply(bad);
        EXPECT_TRUE(console.contains("Tolerance for uniformity: ") &&
                    console.contains("Nothing was changed."))
            << bad << ": " << console.text();
        EXPECT_TRUE(list->getUniformTolerance() == 0.02f &&
                    option->value == DicomLoadOption::Ignore && list->stackList().size() == 19)
            << bad;
    }
    // Apply rebuilds the stacks with "constant", which breaks between any two neighbours.
    typeAndApply("2.0");
    EXPECT_EQ(option->value, DicomLoadOption::Constant);
    EXPECT_EQ(stackSizes(*list), std::vector<int>(27, 1));
    typeAndApply("2.5");
    EXPECT_FLOAT_EQ(list->getUniformTolerance(), 0.025f);
    criteria->close();

    // Sorted by the temporal position first (its header dragged to the front): the three volumes.
    QHeaderView *h = list->header();
    const QPoint from = sectionCentre(list, section),
                 to(h->sectionViewportPosition(h->logicalIndex(1)) + 2, from.y());
    QTest::mousePress(h->viewport(), Qt::LeftButton, {}, from);
    QTest::mouseMove(h->viewport(), from + QPoint(QApplication::startDragDistance() + 2, 0));
    QTest::mouseMove(h->viewport(), to);
    QTest::mouseRelease(h->viewport(), Qt::LeftButton, {}, to);
    EXPECT_EQ(h->visualIndex(section), 1);
    EXPECT_EQ(stackSizes(*list), (std::vector<int>{9, 9, 9}));
    EXPECT_EQ(instanceNumbers(list->stackList()[0]),
              (std::vector<int>{1, 4, 7, 10, 13, 16, 19, 22, 25}));
    screenshot(&d, "steering-after");
    d.menuBar()->optionsItem(6)->trigger(); // "Save Load Options"
    QTest::mouseClick(d.okButton(), Qt::LeftButton);
}

// Philips fMRI: 3 volumes of 9 slices, instance numbers interleaved (1, 4, 7, ... is one).
TEST_F(DialogSteering, AnElementFoundSideBySideTurnsInterleavedSlicesIntoVolumes)
{
    const VxPreferences before = VxSettingsMgr::getInstance()->getPreferences();
    const auto outcome = loadThroughDialog(vxtest::sharedDicomFiles("dcm_qa_philips/In"), steer);
    ASSERT_EQ(outcome.fields.size(), 3);
    for (const VxField3 *field : outcome.fields)
        EXPECT_EQ(field->lattice()->dim(2), 9);
    const std::string stored = VxSettingsMgr::getInstance()->getPreferences().dicomLoadOptions;
    EXPECT_EQ(stored.rfind("<32|256|2|31|temporal position identifier>", 0), 0u) << stored;
    VxSettingsMgr::getInstance()->setPreferences(before, false);
}

} // namespace
