// The viewer window as a user drives it (offscreen, DICOM opened on the worker thread); positions
// against the field's transformation and make_series.py's value at a patient position.

#include "apps/vxdicom/view/ViewerWindow.h"
#include "apps/vxdicom/view/ConsolePane.h"
#include "apps/vxdicom/view/OrthoViewer.h"
#include "apps/vxdicom/view/ParameterPane.h"
#include "apps/vxdicom/view/SliceView.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/data/VxDynamicSeriesCtrl.h"
#include "platform/data/VxField3.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/support/TestSupport.h"
#include "tests/support/WidgetDriver.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/export/QxDicom3SaveDialog.h"
#include "vxdicom/export/QxDicom3Table.h"

#include <Inventor/SbMatrix.h>
#include <QtTest>
#include <QtWidgets>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

using namespace vxview;
namespace fs = std::filesystem;

namespace {

const View kViews[3] = {View::Axial, View::Coronal, View::Sagittal};

const vxtest::TempDir &synthetic(std::string *error)
{
    static vxtest::TempDir dir;
    static std::string failed = [] {
        if (!vxtest::havePythonModules({"pydicom", "numpy"}))
            return std::string("pydicom and numpy are needed to write the synthetic series");
        std::string out, all;
        for (const char *args :
             {"oblique --orientation oblique --modality MR --rows 40 --columns 32 --slices 12 "
              "--spacing 2 --thickness 3",
              "stacked --orientation axial --modality CT --rows 32 --columns 28 --slices 12 "
              "--spacing 1.5 --thickness 2 --gaps 3,7",
              "long --orientation axial --modality CT --rows 48 --columns 48 --slices 60 "
              "--spacing 1 --thickness 1"})
            if (vxtest::runCommand(std::string(VX_PYTHON) + " " + VX_MAKE_SERIES + " " +
                                       dir.path().string() + "/" + args,
                                   &out, true) != 0)
                all += out;
        return all;
    }();
    *error = failed;
    return dir;
}

double generatorValue(const Vec3 &p, bool ct)
{
    const double s = 300.0 * std::sin(p[0] / 13.0) + 200.0 * std::cos(p[1] / 17.0) + 2.0 * p[2];
    return ct ? std::round(s + 1024.0) - 1024.0 : std::round(s + 1500.0);
}

// The stored sample of a voxel, read straight from the lattice.
double storedSample(const VxField3 &field, const std::array<int, 3> &v)
{
    const VxLattice3 &lat = *field.lattice();
    const void *p = static_cast<const unsigned char *>(lat.data()) +
                    ((size_t(v[2]) * lat.dim(1) + v[1]) * lat.dim(0) + v[0]) * lat.voxelBytes();
    switch (lat.primType().id()) {
    case KcPrimType::Int16:
        return *static_cast<const int16_t *>(p);
    case KcPrimType::UInt16:
        return *static_cast<const uint16_t *>(p);
    case KcPrimType::Int32:
        return *static_cast<const int32_t *>(p);
    case KcPrimType::Float:
        return *static_cast<const float *>(p);
    default:
        return *static_cast<const unsigned char *>(p);
    }
}

Vec3 worldMm(const VxField3 &field, const std::array<int, 3> &v)
{
    float w[3];
    field.voxelToWorld(v[0], v[1], v[2], w);
    const double mm = field.unitLength() * 1000.0;
    return {w[0] * mm, w[1] * mm, w[2] * mm};
}

// The cross-hair panel: "voxel (i, j, k)  value v\nx, y, z mm (LPS)".
struct CursorText
{
    int voxel[3] = {-1, -1, -1};
    double value = std::nan(""), mm[3] = {0, 0, 0};
};
CursorText cursorText(QLabel *label)
{
    CursorText t;
    std::sscanf(label->text().toUtf8().constData(),
                "voxel (%d, %d, %d) value %lf\n%lf, %lf, %lf mm", &t.voxel[0], &t.voxel[1],
                &t.voxel[2], &t.value, &t.mm[0], &t.mm[1], &t.mm[2]);
    return t;
}

void drag(QWidget *w, Qt::MouseButton button, QPointF from, QPointF to)
{
    for (const auto &[type, pos] :
         {std::pair(QEvent::MouseButtonPress, from), std::pair(QEvent::MouseMove, to),
          std::pair(QEvent::MouseButtonRelease, to)}) {
        QMouseEvent e(type, pos, w->mapToGlobal(pos), button,
                      type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(button),
                      Qt::NoModifier);
        QApplication::sendEvent(w, &e);
    }
}

class ViewerWindowTest : public testing::Test
{
protected:
    void SetUp() override
    {
        VxObjectPool::instance()->clear();
        window = std::make_unique<ViewerWindow>();
        window->setShowImportDialog(false);
        window->resize(1400, 950);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }
    void TearDown() override
    {
        VxWarningDialog::setDisplayOverride(-1);
        window.reset();
        VxObjectPool::instance()->clear();
    }

    // As File > Open does, or as a drop of the files on the window.
    OpenOutcome open(const std::string &path, bool dropped = false)
    {
        QSignalSpy ended(window.get(), &ViewerWindow::openFinished);
        if (dropped) {
            QMimeData mime;
            mime.setUrls({QUrl::fromLocalFile(QString::fromStdString(path))});
            const QPoint at = window->rect().center();
            QDragEnterEvent enter(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(window.get(), &enter);
            EXPECT_TRUE(enter.isAccepted()) << "the window takes files";
            QDropEvent drop(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(window.get(), &drop);
        } else {
            EXPECT_TRUE(window->openPaths({QString::fromStdString(path)}));
        }
        EXPECT_TRUE(ended.count() > 0 || ended.wait(120000)) << "the open did not end";
        return ended.isEmpty() ? OpenOutcome() : ended.takeFirst().at(0).value<OpenOutcome>();
    }

    OrthoViewer *viewer() const { return window->viewer(); }
    bool consoleShows(const std::string &text)
    {
        const QString s = QString::fromStdString(text);
        return QTest::qWaitFor([&] { return window->console()->toPlainText().contains(s); }, 5000);
    }

    void pickVoxel(const std::array<int, 3> &voxel)
    {
        SliceView *axial = viewer()->sliceView(View::Axial);
        viewer()->sliceSlider(View::Axial)->setValue(voxel[size_t(axial->plane().normalAxis)]);
        QTest::mouseClick(axial, Qt::LeftButton, {}, axial->screenPointOf(voxel).toPoint());
    }

    std::unique_ptr<ViewerWindow> window;
};

struct SeriesCase
{
    const char *name;
    const char *folder;  ///< below ../shared/data, or a series of make_series.py
    int generator;       ///< 0: real, 1: CT values, 2: MR values of make_series.py
    const char *letters; ///< axial, coronal, sagittal: "left right top bottom, ..."
    friend void PrintTo(const SeriesCase &c, std::ostream *out) { *out << c.name; }
};
class SeriesGeometry : public ViewerWindowTest, public testing::WithParamInterface<SeriesCase>
{
};

TEST_P(SeriesGeometry, EdgeLettersAndTheCrossHairAgreeWithTheFieldTransformation)
{
    const SeriesCase &c = GetParam();
    std::string error;
    const std::string folder =
        c.generator ? synthetic(&error).file(c.folder) : vxtest::sharedPath(c.folder);
    if (!error.empty() && c.generator)
        GTEST_SKIP() << error;
    if (!c.generator)
        VX_REQUIRE_SHARED_DATA();
    const OpenOutcome outcome = open(folder);
    ASSERT_TRUE(outcome.ok && outcome.failures == 0 && !outcome.added.empty());
    auto *field = dynamic_cast<VxField3 *>(outcome.added.front());
    ASSERT_TRUE(field);
    ASSERT_EQ(viewer()->field(), field) << "the first field of an open is shown";
    std::string shown;
    for (View view : kViews) {
        const EdgeLetters l = viewer()->sliceView(view)->letters();
        shown +=
            (shown.empty() ? "" : ", ") + l.left + " " + l.right + " " + l.top + " " + l.bottom;
    }
    EXPECT_EQ(shown, c.letters);

    const VxLattice3 &lat = *field->lattice();
    const int n0 = lat.dim(0), n1 = lat.dim(1), n2 = lat.dim(2);
    const ValueScale scale = valueScaleOf(field->parameters());
    for (const std::array<int, 3> &voxel :
         {std::array<int, 3>{1, 1, std::min(1, n2 - 1)}, {n0 / 2, n1 / 3, n2 - 1}}) {
        SCOPED_TRACE(testing::Message()
                     << "voxel " << voxel[0] << "," << voxel[1] << "," << voxel[2]);
        pickVoxel(voxel);
        ASSERT_EQ(viewer()->cursorVoxel(), voxel);
        const CursorText t = cursorText(viewer()->cursorLabel());
        EXPECT_EQ(t.voxel[0] * 1000000 + t.voxel[1] * 1000 + t.voxel[2],
                  voxel[0] * 1000000 + voxel[1] * 1000 + voxel[2]);
        const Vec3 expected = worldMm(*field, voxel);
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(t.mm[k], expected[size_t(k)], 0.011) << "axis " << k;
        EXPECT_NEAR(t.value, scale.value(storedSample(*field, voxel)),
                    1e-3 * std::max(1.0, std::fabs(t.value)));
        if (c.generator) { // whole units: a rounding step may differ by one
            EXPECT_NEAR(t.value, generatorValue(viewer()->cursorPatientMm(), c.generator == 1),
                        1.0);
        }
    }

    // One voxel's reach right (or down) moves the patient position as that edge's letter says.
    for (View view : kViews) {
        SliceView *sv = viewer()->sliceView(view);
        const std::array<int, 3> centre = {n0 / 2, n1 / 2, n2 / 2};
        for (const bool right : {true, false}) {
            viewer()->setCursorVoxel(centre);
            std::array<int, 3> next = centre;
            ++next[size_t(right ? sv->plane().uAxis : sv->plane().vAxis)];
            const QPointF p = sv->screenPointOf(centre), q = sv->screenPointOf(next);
            const double reach = std::hypot(q.x() - p.x(), q.y() - p.y());
            QTest::mouseClick(sv, Qt::LeftButton, {},
                              (p + (right ? QPointF(reach, 0) : QPointF(0, reach))).toPoint());
            const std::array<int, 3> moved = viewer()->cursorVoxel();
            ASSERT_NE(moved, centre) << viewName(view);
            const Vec3 a = worldMm(*field, centre), b = worldMm(*field, moved);
            int axis = 0;
            for (int k = 1; k < 3; ++k)
                if (std::fabs(b[size_t(k)] - a[size_t(k)]) >
                    std::fabs(b[size_t(axis)] - a[size_t(axis)]))
                    axis = k;
            const char letter = (b[size_t(axis)] > a[size_t(axis)] ? "LPS" : "RAI")[axis];
            EXPECT_EQ(letter, (right ? sv->letters().right : sv->letters().bottom).at(0))
                << viewName(view);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Series, SeriesGeometry,
    testing::Values(SeriesCase{"sagittal", "dcm_qa/In/Orientation/sag/sagasc35", 0,
                               "R L A P, R L S I, A P S I"},
                    SeriesCase{"axial_tilted", "dcm_qa/In/Orientation/ax/axasc35", 0,
                               "R L AS PI, R L SP IA, AS PI SP IA"},
                    SeriesCase{"coronal_tilted", "dcm_qa/In/Orientation/cor/corasc35", 0,
                               "R L AS PI, R L SP IA, AS PI SP IA"},
                    SeriesCase{"oblique_philips", "dcm_qa_philips/In/Magdeburg_2014/fmri", 0,
                               "RI LS A P, RI LS SR IL, A P SR IL"},
                    SeriesCase{"oblique_synthetic", "oblique", 2,
                               "RA LP ASL PIR, RA LP SP IA, ASL PIR SP IA"},
                    SeriesCase{"stacked_synthetic", "stacked", 1, "R L A P, R L S I, A P S I"}),
    [](const testing::TestParamInfo<SeriesCase> &info) { return std::string(info.param.name); });

// The import dialog (asked for by the worker) loads three stacks as one time series; a right
// drag sets the window; the time slider steps the series.
TEST_F(ViewerWindowTest, TheImportDialogLoadsATimeSeriesAndItsSliderStepsIt)
{
    VX_REQUIRE_SHARED_DATA();
    VxWarningDialog::setDisplayOverride(1);
    window->setShowImportDialog(true);
    window->asTimeSeriesAction()->setChecked(true);
    QString summary;
    const QPointer<QTimer> answering =
        uitest::when([] { return uitest::visibleWindow<DicomDialog>() != nullptr; },
                     [&summary] {
                         auto *dialog = uitest::visibleWindow<DicomDialog>();
                         summary = dialog->loadSummaryLabel()->text();
                         QTest::mouseClick(dialog->okButton(), Qt::LeftButton);
                     });
    const OpenOutcome outcome = open(vxtest::sharedPath("dcm_qa_philips/In/Magdeburg_2014/fmri"));
    delete answering.data();
    EXPECT_EQ(summary, QStringLiteral("OK loads all 3 stacks"));
    ASSERT_EQ(outcome.added.size(), 1u) << "one control holds the three volumes";
    auto *series = dynamic_cast<VxDynamicSeriesCtrl *>(outcome.added.front());
    ASSERT_TRUE(series && series->nSteps() == 3);
    ASSERT_TRUE(window->dataList()->topLevelItem(0));
    EXPECT_EQ(window->dataList()->topLevelItem(0)->text(1), QStringLiteral("64 x 64 x 9, 3 steps"));

    QSlider *time = viewer()->timeSlider();
    ASSERT_TRUE(time->isEnabled() && time->maximum() == 2);
    SliceView *axial = viewer()->sliceView(View::Axial);
    pickVoxel({32, 30, 4});
    // The grey follows the window, also after a right drag (60 right, 30 up: wider and darker).
    const QPoint at = axial->screenPointOf({32, 30, 4}).toPoint();
    const double value = viewer()->cursorValue();
    EXPECT_EQ(qRed(axial->picture().pixel(at)), greyByte(value, viewer()->window()));
    const Window before = viewer()->window();
    drag(axial, Qt::RightButton, QPointF(at) - QPointF(60, 40), QPointF(at) - QPointF(0, 70));
    const double step = viewer()->windowStepPerPixel();
    EXPECT_NEAR(viewer()->window().width, before.width + 60 * step, 1e-9);
    EXPECT_NEAR(viewer()->window().centre, before.centre + 30 * step, 1e-9);
    EXPECT_EQ(qRed(axial->picture().pixel(at)), greyByte(value, viewer()->window()));
    ASSERT_TRUE(viewer()->applyPreset(QStringLiteral("Full range")));
    EXPECT_EQ(qRed(axial->picture().pixel(at)), greyByte(value, viewer()->window()));
    QWheelEvent zoomIn(at, axial->mapToGlobal(at), {}, {0, 120}, Qt::NoButton, Qt::ControlModifier,
                       Qt::NoScrollPhase, false);
    QApplication::sendEvent(axial, &zoomIn);
    const double zoom = axial->viewPort().pixelsPerMm;
    const QImage step0 = axial->picture();
    time->setFocus();
    QTest::keyClick(time, Qt::Key_Right);
    EXPECT_EQ(series->currentStep(), 1);
    EXPECT_EQ(axial->viewPort().pixelsPerMm, zoom) << "another step keeps the zoom";
    auto *second = dynamic_cast<VxField3 *>(series->step(1)[0]);
    ASSERT_EQ(viewer()->field(), second);
    EXPECT_EQ(viewer()->cursorVoxel(), (std::array<int, 3>{32, 30, 4})) << "the cross-hair stays";
    EXPECT_NEAR(cursorText(viewer()->cursorLabel()).value, storedSample(*second, {32, 30, 4}),
                1e-3);
    EXPECT_NE(axial->picture(), step0) << "another volume, other pixels";
    for (const auto &[key, step] :
         {std::pair(Qt::Key_End, 2), std::pair(Qt::Key_Right, 2), std::pair(Qt::Key_Home, 0)}) {
        QTest::keyClick(time, key);
        EXPECT_EQ(series->currentStep(), step) << "no step past the last";
    }
    EXPECT_EQ(axial->picture(), step0);
}

struct CancelCase
{
    const char *name;
    const char *blockAt; ///< the console line at which the worker waits for Cancel
    const char *proof;   ///< what the console says when the phase was interrupted
    const char *never;   ///< what it would say had the phase run to its end (or null)
    bool closing;        ///< the window is closed instead of Cancel pressed
    friend void PrintTo(const CancelCase &c, std::ostream *out) { *out << c.name; }
};
class CancelOpen : public ViewerWindowTest, public testing::WithParamInterface<CancelCase>
{
};

TEST_P(CancelOpen, CancelDuringALongOpenInterruptsAndLoadsNothing)
{
    std::string error;
    const std::string folder = synthetic(&error).file("long");
    if (!error.empty())
        GTEST_SKIP() << error;
    const CancelCase &c = GetParam();
    // The worker waits at a known point until Cancel is pressed: the press lands in that phase.
    std::atomic<bool> reached{false}, released{false};
    std::string console;
    std::mutex mutex;
    const VxMessage::Sink previous = VxMessage::getTheMsg()->setSink([&](const std::string &text) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            console += text;
        }
        if (!reached && text.rfind(c.blockAt, 0) == 0) {
            reached = true;
            for (int i = 0; i < 3000 && !released; ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    const int poolBefore = VxObjectPool::instance()->size();
    QSignalSpy ended(window.get(), &ViewerWindow::openFinished);
    ASSERT_TRUE(window->openPaths({QString::fromStdString(folder)}));
    EXPECT_TRUE(window->cancelButton()->isVisible() && window->progressBar()->isVisible());
    EXPECT_TRUE(QTest::qWaitFor([&] { return reached.load(); }, 30000));
    if (c.closing)
        EXPECT_FALSE(window->close()) << "the window waits for the cancelled open";
    else
        QTest::mouseClick(window->cancelButton(), Qt::LeftButton);
    released = true;
    EXPECT_TRUE(ended.count() > 0 || ended.wait(60000));
    VxMessage::getTheMsg()->setSink(previous);
    ASSERT_EQ(ended.count(), 1);
    const OpenOutcome outcome = ended.at(0).at(0).value<OpenOutcome>();
    EXPECT_TRUE(outcome.cancelled && outcome.added.empty());
    EXPECT_EQ(VxObjectPool::instance()->size(), poolBefore);
    EXPECT_EQ(window->dataList()->topLevelItemCount(), 0);
    EXPECT_EQ(viewer()->field(), nullptr);
    EXPECT_FALSE(window->cancelButton()->isVisible() || window->progressBar()->isVisible());
    EXPECT_TRUE(console.find("opening cancelled; nothing was loaded") != std::string::npos &&
                console.find(c.proof) != std::string::npos &&
                (!c.never || console.find(c.never) == std::string::npos))
        << console;
    EXPECT_TRUE(window->statusBar()->currentMessage().contains(QStringLiteral("cancelled")));
    EXPECT_EQ(window->isVisible(), !c.closing);
}

INSTANTIATE_TEST_SUITE_P(
    Phases, CancelOpen,
    testing::Values(CancelCase{"WhileReadingTheFiles", "+ ", "1 header loaded from 60 files",
                               "IM00002.dcm", false},
                    CancelCase{"WhileLoadingThePixels", "creating 1 stack", ": loading interrupted",
                               nullptr, false},
                    CancelCase{"ClosingTheWindow", "creating 1 stack", ": loading interrupted",
                               nullptr, true}),
    [](const testing::TestParamInfo<CancelCase> &info) { return std::string(info.param.name); });

// A drop with a broken file beside the series; the parameter filter; Save as DICOM through its
// dialog; NRRD saved and reopened in place; the anonymizer; a file that is no volume.
TEST_F(ViewerWindowTest, SavedFieldsReopenInPlaceAndAnonymizeSaysWhatItDid)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir tmp;
    const std::string folder = tmp.file("series");
    fs::create_directories(folder);
    for (const std::string &f : vxtest::sharedDicomFiles("dcm_qa_sag/In/2_gre_field_mapping"))
        fs::copy_file(f, folder + "/" + fs::path(f).filename().string());
    std::ofstream(folder + "/broken.dcm") << "DICM? no";
    const OpenOutcome outcome = open(folder, true);
    ASSERT_EQ(outcome.added.size(), 1u);
    EXPECT_EQ(outcome.failures, 1);
    auto *field = dynamic_cast<VxField3 *>(outcome.added.front());
    ASSERT_TRUE(field);
    EXPECT_TRUE(consoleShows("reading " + folder + "/broken.dcm failed"));

    QTreeWidget *tree = window->parameters()->tree();
    window->parameters()->filterEdit()->setText(QStringLiteral("patient name"));
    QStringList shown;
    for (QTreeWidgetItemIterator it(tree, QTreeWidgetItemIterator::NotHidden); *it; ++it) {
        bool visible = true;
        for (QTreeWidgetItem *p = (*it)->parent(); p; p = p->parent())
            visible = visible && !p->isHidden();
        if (visible)
            shown << QStringList({(*it)->text(0), (*it)->text(1), (*it)->text(2)}).join('|');
    }
    EXPECT_TRUE(shown.contains(QStringLiteral("(0010,0010)|patient name|PN")))
        << shown.join(' ').toStdString();
    EXPECT_LT(shown.size(), 20) << "the filter hides the other attributes";

    const std::string dicomOut = tmp.file("saved");
    fs::create_directories(dicomOut);
    const QPointer<QTimer> saving =
        uitest::when([] { return uitest::visibleWindow<QxDicom3SaveDialog>() != nullptr; },
                     [] {
                         auto *dialog = uitest::visibleWindow<QxDicom3SaveDialog>();
                         EXPECT_GT(dialog->table()->rowCount(), 10);
                         QTest::mouseClick(dialog->okButton(), Qt::LeftButton);
                     });
    EXPECT_EQ(window->saveCurrentAsDicom(QString::fromStdString(dicomOut)),
              field->lattice()->dim(2));
    delete saving.data();
    EXPECT_EQ(std::distance(fs::directory_iterator(dicomOut), fs::directory_iterator()),
              field->lattice()->dim(2));

    const std::array<int, 3> voxel = {2, 20, 40};
    const Vec3 original = worldMm(*field, voxel);
    const QString saved = QString::fromStdString(tmp.file("fieldmap.nrrd"));
    ASSERT_TRUE(window->saveCurrent(saved) && window->openFieldFile(saved));
    VxField3 *reopened = viewer()->field();
    ASSERT_NE(reopened, field);
    EXPECT_EQ(window->dataList()->topLevelItemCount(), 2);
    viewer()->setCursorVoxel(voxel);
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(viewer()->cursorPatientMm()[size_t(k)], original[size_t(k)], 1e-3);

    ASSERT_TRUE(window->anonymizeCurrent());
    EXPECT_TRUE(consoleShows("anonymized patient name"))
        << window->console()->toPlainText().toStdString();
    EXPECT_EQ(reopened->label(), "Anonymized");
    EXPECT_EQ(window->dataList()->findItems(QStringLiteral("Anonymized"), Qt::MatchExactly).size(),
              1);
    window->parameters()->filterEdit()->setText(QStringLiteral("<Anonymized>"));
    const QList<QTreeWidgetItem *> values =
        tree->findItems(QStringLiteral("<Anonymized>"), Qt::MatchExactly | Qt::MatchRecursive, 3);
    EXPECT_TRUE(std::any_of(values.begin(), values.end(),
                            [](const QTreeWidgetItem *i) { return !i->isHidden(); }));

    const std::string bad = tmp.file("bad.nii");
    std::ofstream(bad) << "not a NIfTI file";
    EXPECT_FALSE(window->openFieldFile(QString::fromStdString(bad)));
    EXPECT_TRUE(consoleShows(bad));
    EXPECT_TRUE(window->statusBar()->currentMessage().contains(QString::fromStdString(bad)));
    EXPECT_EQ(window->dataList()->topLevelItemCount(), 2);
    EXPECT_EQ(viewer()->field(), reopened);
}

// The logic the series above do not reach: uneven and sheared cells, the grey of a window.
TEST(ViewLogic, UnevenAndShearedCellsRefusedTransformationsAndGreyBytes)
{
    AxisSampling a;
    ASSERT_TRUE(AxisSampling::listed({0, 2, 5}, 1, a));
    const double mm[] = {-1.01, -1.0, 0.99, 1.0, 3.49, 3.5, 6.49, 6.5};
    const int sample[] = {-1, 0, 0, 1, 1, 2, 2, -1};
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(a.sampleAt(mm[i]), sample[i]) << mm[i] << " mm";
    EXPECT_DOUBLE_EQ(a.meanStep(), 2.5);
    EXPECT_FALSE(AxisSampling::listed({0, 2, 2}, 1, a)) << "positions must increase";

    // Axis 1 runs 36.87 degrees off perpendicular: a step moves 0.6 mm right, 0.8 mm down.
    const int dims[3] = {10, 10, 1};
    VxUniformScalarField3 field(dims, KcPrimType::Int16, nullptr);
    const float box[6] = {0, 9, 0, 9, 0, 0};
    field.setBoundingBox(box);
    SbMatrix m = SbMatrix::identity();
    m[1][0] = 0.6f;
    m[1][1] = 0.8f;
    field.setTransform(m);
    FieldFrame frame;
    std::string why;
    ASSERT_TRUE(frameOf(field, frame, &why)) << why;
    EXPECT_NEAR(shearDeg(frame), 36.8699, 1e-3);
    const PlaneFrame p = planeFrame(frame, View::Axial);
    int voxel[3] = {2, 5, 0};
    double x, y;
    voxelToPlane(frame, p, voxel, x, y);
    EXPECT_NEAR(x, 5.0, 1e-6); // 2 + 5 x 0.6
    EXPECT_NEAR(y, 4.0, 1e-6); // 5 x 0.8
    // x = 5.45 is column 2 in both rows (an upright grid would put it in column 5).
    for (const double rowY : {4.0, 4.8}) {
        int back[3] = {0, 0, 0};
        ASSERT_TRUE(planeToVoxel(frame, p, 5.45, rowY, back));
        EXPECT_EQ(back[0] * 10 + back[1], rowY < 4.5 ? 25 : 26);
    }
    EXPECT_FALSE(planeToVoxel(frame, p, -0.6, 0, voxel)) << "left of the parallelogram";

    for (const auto &[row, column, value, reason] :
         {std::tuple(0, 3, 0.5f, "projective"), std::tuple(2, 2, 0.f, "singular")}) {
        m = SbMatrix::identity();
        m[row][column] = value;
        field.setTransform(m);
        EXPECT_FALSE(frameOf(field, frame, &why));
        EXPECT_EQ(why, std::string("the field's transformation is ") + reason);
    }

    const double value[] = {-1000, 0, 0.1, 40, 60, 79.9, 80, 81};
    const int grey[] = {0, 0, 0, 128, 191, 255, 255, 255};
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(greyByte(value[i], Window{40, 80}), grey[i]) << value[i];
    EXPECT_EQ(greyByte(-1001, Window{-600, 1500}), 59); // (0.5 - 401/1500) x 255
    EXPECT_EQ(greyByte(std::nan(""), Window{40, 80}), 0);
    EXPECT_EQ(greyByte(0.25, Window{0.5, 1.0}), 64) << "a window narrower than 1 still spreads";
}

} // namespace
