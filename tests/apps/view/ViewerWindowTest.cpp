// The viewer window as a user drives it: real widgets offscreen, DICOM
// opened on the worker thread as the program opens it, clicks, drags and
// sliders. Positions are checked against the field's transformation and,
// for the series make_series.py writes with pydicom, against the generator's
// own formula for the value at a patient position.

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

#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QMouseEvent>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QSlider>
#include <QStatusBar>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>
#include <QWheelEvent>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

using namespace vxview;

namespace {

const View kViews[3] = {View::Axial, View::Coronal, View::Sagittal};

// Series written by make_series.py (pydicom) once per run.
struct Synthetic
{
    vxtest::TempDir dir;
    bool made = false;
    std::string error;

    std::string path(const char *name) const { return dir.file(name); }
    void make(const char *name, const std::string &arguments)
    {
        std::string out;
        if (vxtest::runCommand(std::string(VX_PYTHON) + " " + vxtest::shellQuote(VX_MAKE_SERIES) +
                                   " " + vxtest::shellQuote(path(name)) + " " + arguments,
                               &out, true) != 0)
            error += out;
    }
};

Synthetic &synthetic()
{
    static Synthetic s;
    if (!s.made) {
        s.made = true;
        if (vxtest::havePythonModules({"pydicom", "numpy"})) {
            s.make("oblique", "--orientation oblique --modality MR --rows 40 --columns 32 "
                              "--slices 12 --spacing 2 --thickness 3");
            s.make("stacked", "--orientation axial --modality CT --rows 32 --columns 28 "
                              "--slices 12 --spacing 1.5 --thickness 2 --gaps 3,7");
            s.make("long", "--orientation axial --modality CT --rows 48 --columns 48 "
                           "--slices 60 --spacing 1 --thickness 1");
        } else {
            s.error = "pydicom and numpy are needed to write the synthetic series";
        }
    }
    return s;
}

// The value make_series.py stores at a patient position (mm, LPS), as the
// rescaled value a reader shows: CT in HU, MR as stored.
double generatorValue(const Vec3 &p, bool ct)
{
    const double signal =
        300.0 * std::sin(p[0] / 13.0) + 200.0 * std::cos(p[1] / 17.0) + 2.0 * p[2];
    return ct ? std::round(signal + 1024.0) - 1024.0 : std::round(signal + 1500.0);
}

template <class T> double load(const unsigned char *p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return static_cast<double>(v);
}

// The stored sample of a voxel, read straight from the lattice.
double storedSample(const VxField3 &field, int i, int j, int k)
{
    const VxLattice3 &lat = *field.lattice();
    const size_t index = (static_cast<size_t>(k) * lat.dim(1) + j) * lat.dim(0) + i;
    const auto *p = static_cast<const unsigned char *>(lat.data()) +
                    index * static_cast<size_t>(lat.voxelBytes());
    switch (lat.primType().id()) {
    case KcPrimType::UInt8:
        return *p;
    case KcPrimType::Int16:
        return load<int16_t>(p);
    case KcPrimType::UInt16:
        return load<uint16_t>(p);
    case KcPrimType::Int32:
        return load<int32_t>(p);
    case KcPrimType::Float:
        return load<float>(p);
    }
    return 0;
}

// Patient position (mm) by the field's own transformation.
Vec3 worldMm(const VxField3 &field, const std::array<int, 3> &v)
{
    float w[3];
    field.voxelToWorld(v[0], v[1], v[2], w);
    const double mm = field.unitLength() * 1000.0;
    return {w[0] * mm, w[1] * mm, w[2] * mm};
}

// The letter of a direction's largest component.
char dominantLetter(const Vec3 &d)
{
    int c = 0;
    for (int k = 1; k < 3; ++k)
        if (std::fabs(d[static_cast<size_t>(k)]) > std::fabs(d[static_cast<size_t>(c)]))
            c = k;
    static const char plus[3] = {'L', 'P', 'S'}, minus[3] = {'R', 'A', 'I'};
    return d[static_cast<size_t>(c)] > 0 ? plus[c] : minus[c];
}

struct CursorText
{
    int voxel[3] = {-1, -1, -1};
    double value = std::nan("");
    double mm[3] = {0, 0, 0};
};

// The two lines of the cross-hair panel: "voxel (i, j, k)  value v" and
// "x, y, z mm (LPS)".
CursorText readCursorText(const QString &text)
{
    CursorText t;
    const QByteArray s = text.toUtf8();
    char unit[8] = {};
    std::sscanf(s.constData(), "voxel (%d, %d, %d) value %lf\n%lf, %lf, %lf %2s", &t.voxel[0],
                &t.voxel[1], &t.voxel[2], &t.value, &t.mm[0], &t.mm[1], &t.mm[2], unit);
    EXPECT_STREQ(unit, "mm") << s.constData();
    return t;
}

// A drag with one button held, as the window system delivers it.
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

void wheel(QWidget *w, QPointF pos, int notches, Qt::KeyboardModifiers modifiers = {})
{
    QWheelEvent e(pos, w->mapToGlobal(pos), QPoint(), QPoint(0, 120 * notches), Qt::NoButton,
                  modifiers, Qt::NoScrollPhase, false);
    QApplication::sendEvent(w, &e);
}

void click(QWidget *w, QPointF pos)
{
    QTest::mouseClick(w, Qt::LeftButton, {}, pos.toPoint());
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

    // Opens as File > Open does (or as a drop of the files on the window)
    // and waits for the open to end.
    OpenOutcome open(const QStringList &paths, bool dropped = false)
    {
        QSignalSpy ended(window.get(), &ViewerWindow::openFinished);
        if (dropped) {
            QMimeData mime;
            for (const QString &p : paths)
                mime.setUrls(mime.urls() << QUrl::fromLocalFile(p));
            const QPoint at = window->rect().center();
            QDragEnterEvent enter(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(window.get(), &enter);
            EXPECT_TRUE(enter.isAccepted()) << "the window takes files";
            QDropEvent drop(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(window.get(), &drop);
        } else {
            EXPECT_TRUE(window->openPaths(paths));
        }
        EXPECT_TRUE(ended.count() > 0 || ended.wait(120000)) << "the open did not end";
        if (ended.isEmpty())
            return OpenOutcome();
        return ended.takeFirst().at(0).value<OpenOutcome>();
    }

    OrthoViewer *viewer() const { return window->viewer(); }

    // Moves the cross-hair as a user does: the axial slider to the slice,
    // then a click on the voxel in the axial view.
    void pickVoxel(const std::array<int, 3> &voxel)
    {
        SliceView *axial = viewer()->sliceView(View::Axial);
        viewer()
            ->sliceSlider(View::Axial)
            ->setValue(voxel[static_cast<size_t>(axial->plane().normalAxis)]);
        click(axial, axial->screenPointOf(voxel));
    }

    std::unique_ptr<ViewerWindow> window;
};

struct SeriesCase
{
    const char *name;
    const char *folder;     ///< below ../shared/data, or a series of make_series.py
    int generator;          ///< 0: real, 1: CT values, 2: MR values of make_series.py
    EdgeLetters letters[3]; ///< axial, coronal, sagittal: left, right, top, bottom
};

// ctest lists a case by its name.
void PrintTo(const SeriesCase &c, std::ostream *out)
{
    *out << c.name;
}

class SeriesGeometry : public ViewerWindowTest, public testing::WithParamInterface<SeriesCase>
{
};

} // namespace

TEST_P(SeriesGeometry, EdgeLettersAndTheCrossHairAgreeWithTheFieldTransformation)
{
    const SeriesCase &c = GetParam();
    if (c.generator && !synthetic().error.empty())
        GTEST_SKIP() << synthetic().error;
    if (!c.generator)
        VX_REQUIRE_SHARED_DATA();
    const std::string folder =
        c.generator ? synthetic().path(c.folder) : vxtest::sharedPath(c.folder);
    const OpenOutcome outcome = open({QString::fromStdString(folder)});
    ASSERT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.failures, 0);
    ASSERT_FALSE(outcome.added.empty());
    auto *field = dynamic_cast<VxField3 *>(outcome.added.front());
    ASSERT_TRUE(field);
    ASSERT_EQ(viewer()->field(), field) << "the first field of an open is shown";

    // The data list's row says what the field is.
    const QTreeWidgetItem *row = window->dataList()->selectedItems().value(0);
    ASSERT_TRUE(row);
    const VxLattice3 &lat = *field->lattice();
    EXPECT_EQ(
        QStringList({row->text(0), row->text(1), row->text(2), row->text(4)}),
        QStringList({field->label().toQString(),
                     QStringLiteral("%1 x %2 x %3").arg(lat.dim(0)).arg(lat.dim(1)).arg(lat.dim(2)),
                     QString::fromLatin1(lat.primType().name()),
                     field->parameters().getString("Modality").toQString()}));

    for (int v = 0; v < 3; ++v) {
        SCOPED_TRACE(viewName(kViews[v]));
        const EdgeLetters shown = viewer()->sliceView(kViews[v])->letters();
        EXPECT_EQ(shown.left, c.letters[v].left);
        EXPECT_EQ(shown.right, c.letters[v].right);
        EXPECT_EQ(shown.top, c.letters[v].top);
        EXPECT_EQ(shown.bottom, c.letters[v].bottom);
    }

    const int n0 = lat.dim(0), n1 = lat.dim(1), n2 = lat.dim(2);
    const std::array<int, 3> voxels[3] = {
        {1, 1, std::min(1, n2 - 1)}, {n0 / 2, n1 / 3, n2 - 1}, {n0 - 2, n1 - 2, n2 / 2}};
    const ValueScale scale = valueScaleOf(field->parameters());
    for (const auto &voxel : voxels) {
        SCOPED_TRACE(testing::Message()
                     << "voxel " << voxel[0] << "," << voxel[1] << "," << voxel[2]);
        pickVoxel(voxel);
        ASSERT_EQ(viewer()->cursorVoxel(), voxel);
        const CursorText t = readCursorText(viewer()->cursorLabel()->text());
        EXPECT_EQ(t.voxel[0], voxel[0]);
        EXPECT_EQ(t.voxel[1], voxel[1]);
        EXPECT_EQ(t.voxel[2], voxel[2]);
        const Vec3 expected = worldMm(*field, voxel);
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(t.mm[k], expected[static_cast<size_t>(k)], 0.011) << "axis " << k;
        EXPECT_NEAR(t.value, scale.value(storedSample(*field, voxel[0], voxel[1], voxel[2])),
                    1e-3 * std::max(1.0, std::fabs(t.value)));
        if (c.generator) {
            // The files' own formula at the position the viewer reports
            // (whole units, so a rounding step may differ by one).
            const double value = generatorValue(viewer()->cursorPatientMm(), c.generator == 1);
            EXPECT_NEAR(t.value, value, 1.0);
        }
    }

    // Moving right (or down) on the screen moves the patient position the
    // way the letter on that edge says.
    for (View view : kViews) {
        SCOPED_TRACE(viewName(view));
        SliceView *sv = viewer()->sliceView(view);
        const std::array<int, 3> centre = {n0 / 2, n1 / 2, n2 / 2};
        for (const bool right : {true, false}) {
            viewer()->setCursorVoxel(centre);
            // One voxel's width (or height) on the screen away from its centre.
            std::array<int, 3> next = centre;
            ++next[static_cast<size_t>(right ? sv->plane().uAxis : sv->plane().vAxis)];
            const QPointF p = sv->screenPointOf(centre);
            const QPointF q = sv->screenPointOf(next);
            const double reach = std::hypot(q.x() - p.x(), q.y() - p.y());
            click(sv, p + (right ? QPointF(reach, 0) : QPointF(0, reach)));
            const std::array<int, 3> moved = viewer()->cursorVoxel();
            ASSERT_NE(moved, centre) << "a voxel's reach moved the cursor off its voxel";
            const Vec3 a = worldMm(*field, centre), b = worldMm(*field, moved);
            const Vec3 d = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
            const EdgeLetters l = sv->letters();
            EXPECT_EQ(dominantLetter(d), (right ? l.right : l.bottom).at(0));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Series, SeriesGeometry,
    testing::Values(
        SeriesCase{"sagittal",
                   "dcm_qa/In/Orientation/sag/sagasc35",
                   0,
                   {{"R", "L", "A", "P"}, {"R", "L", "S", "I"}, {"A", "P", "S", "I"}}},
        SeriesCase{"sagittal_field_map",
                   "dcm_qa_sag/In/2_gre_field_mapping",
                   0,
                   {{"R", "L", "A", "P"}, {"R", "L", "S", "I"}, {"A", "P", "S", "I"}}},
        // Mosaic, image columns 6.2 degrees off posterior, toward inferior.
        SeriesCase{"axial_tilted",
                   "dcm_qa/In/Orientation/ax/axasc35",
                   0,
                   {{"R", "L", "AS", "PI"}, {"R", "L", "SP", "IA"}, {"AS", "PI", "SP", "IA"}}},
        // Image columns 8.8 degrees off inferior, toward anterior.
        SeriesCase{"coronal_tilted",
                   "dcm_qa/In/Orientation/cor/corasc35",
                   0,
                   {{"R", "L", "AS", "PI"}, {"R", "L", "SP", "IA"}, {"AS", "PI", "SP", "IA"}}},
        // Rows 13.3 degrees about y: the axial view's rows run a little up.
        SeriesCase{"oblique_philips",
                   "dcm_qa_philips/In/Magdeburg_2014/fmri",
                   0,
                   {{"RI", "LS", "A", "P"}, {"RI", "LS", "SR", "IL"}, {"A", "P", "SR", "IL"}}},
        // Rows (0.985, 0.174, 0), columns (-0.163, 0.925, -0.342).
        SeriesCase{
            "oblique_synthetic",
            "oblique",
            2,
            {{"RA", "LP", "ASL", "PIR"}, {"RA", "LP", "SP", "IA"}, {"ASL", "PIR", "SP", "IA"}}},
        // Slices 2 mm apart with a double gap after slices 3 and 7.
        SeriesCase{"stacked_synthetic",
                   "stacked",
                   1,
                   {{"R", "L", "A", "P"}, {"R", "L", "S", "I"}, {"A", "P", "S", "I"}}}),
    [](const testing::TestParamInfo<SeriesCase> &info) { return std::string(info.param.name); });

TEST_F(ViewerWindowTest, WindowDragAndPresetsChangeThePixelsAsComputed)
{
    VX_REQUIRE_SHARED_DATA();
    const OpenOutcome outcome =
        open({QString::fromStdString(vxtest::sharedPath("dcm_qa_ct/In/Philips"))});
    ASSERT_FALSE(outcome.added.empty());
    SliceView *axial = viewer()->sliceView(View::Axial);
    const VxLattice3 &lat = *viewer()->field()->lattice();
    // A voxel of the phantom's middle insert (about 90 HU).
    pickVoxel({lat.dim(0) / 2, lat.dim(1) / 2, lat.dim(2) / 2});
    const double value = viewer()->cursorValue();
    const QPoint at = axial->screenPointOf(viewer()->cursorVoxel()).toPoint();
    auto greyAtCursor = [&] { return qRed(axial->picture().pixel(at)); };

    const Window before = viewer()->window();
    EXPECT_EQ(greyAtCursor(), greyByte(value, before));

    // A right drag 60 pixels right and 30 up: wider and darker.
    const QPointF from(at.x() - 100, at.y() - 80);
    drag(axial, Qt::RightButton, from, from + QPointF(60, -30));
    const double step = viewer()->windowStepPerPixel();
    ASSERT_GT(step, 0);
    const Window dragged = viewer()->window();
    EXPECT_NEAR(dragged.width, before.width + 60 * step, 1e-9);
    EXPECT_NEAR(dragged.centre, before.centre + 30 * step, 1e-9);
    EXPECT_EQ(greyAtCursor(), greyByte(value, dragged));
    EXPECT_EQ(viewer()->cursorVoxel(),
              (std::array<int, 3>{lat.dim(0) / 2, lat.dim(1) / 2, lat.dim(2) / 2}))
        << "a right drag leaves the cross-hair";

    // The brain preset, from the box as a user picks it: 80 wide at 40.
    QComboBox *box = viewer()->presetBox();
    const int brain = box->findText(QStringLiteral("Brain"));
    ASSERT_GE(brain, 0) << "a CT offers the brain window";
    box->setCurrentIndex(brain);
    emit box->activated(brain);
    EXPECT_DOUBLE_EQ(viewer()->window().centre, 40);
    EXPECT_DOUBLE_EQ(viewer()->window().width, 80);
    EXPECT_EQ(greyAtCursor(), greyByte(value, Window{40, 80}));
    EXPECT_EQ(viewer()->windowLabel()->text(), QStringLiteral("80 / 40"));
    // Bone shows the same soft tissue darker than brain does.
    ASSERT_TRUE(viewer()->applyPreset(QStringLiteral("Bone")));
    EXPECT_EQ(greyAtCursor(), greyByte(value, Window{400, 1800}));

    // The wheel steps one slice; with Ctrl it zooms about the pointer (the
    // cursor's voxel stays under it); a middle drag pans the slice along.
    const std::array<int, 3> c = viewer()->cursorVoxel();
    const QPointF p = axial->screenPointOf(c);
    wheel(axial, p, 1);
    EXPECT_EQ(viewer()->cursorVoxel()[2], c[2] + 1);
    EXPECT_EQ(viewer()->sliceSlider(View::Axial)->value(), c[2] + 1);
    const double scale = axial->viewPort().pixelsPerMm;
    wheel(axial, p, 2, Qt::ControlModifier);
    EXPECT_NEAR(axial->viewPort().pixelsPerMm, scale * 1.5625, 1e-9);
    const QPointF zoomed = axial->screenPointOf(c);
    EXPECT_NEAR(zoomed.x(), p.x(), 1e-6);
    EXPECT_NEAR(zoomed.y(), p.y(), 1e-6);
    drag(axial, Qt::MiddleButton, p, p + QPointF(40, -25));
    const QPointF panned = axial->screenPointOf(c);
    EXPECT_NEAR(panned.x(), p.x() + 40, 1e-6);
    EXPECT_NEAR(panned.y(), p.y() - 25, 1e-6);
    EXPECT_EQ(qRed(axial->picture().pixel(panned.toPoint())),
              greyByte(viewer()->cursorValue(), Window{400, 1800}));
}

TEST_F(ViewerWindowTest, TheImportDialogLoadsATimeSeriesAndItsSliderStepsIt)
{
    VX_REQUIRE_SHARED_DATA();
    // With a display the import dialog comes up (on this thread, asked for
    // by the worker) and OK loads its three stacks as one time series.
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
    const OpenOutcome outcome =
        open({QString::fromStdString(vxtest::sharedPath("dcm_qa_philips/In/Magdeburg_2014/fmri"))});
    delete answering.data();
    VxWarningDialog::setDisplayOverride(-1);
    EXPECT_EQ(summary, QStringLiteral("OK loads all 3 stacks"));
    ASSERT_EQ(outcome.added.size(), 1u) << "one control holds the three volumes";
    auto *series = dynamic_cast<VxDynamicSeriesCtrl *>(outcome.added.front());
    ASSERT_TRUE(series);
    ASSERT_EQ(series->nSteps(), 3);
    const QTreeWidgetItem *row = window->dataList()->topLevelItem(0);
    ASSERT_TRUE(row);
    EXPECT_EQ(row->text(1), QStringLiteral("64 x 64 x 9, 3 steps"));

    QSlider *time = viewer()->timeSlider();
    ASSERT_TRUE(time->isEnabled());
    EXPECT_EQ(time->maximum(), 2);
    SliceView *axial = viewer()->sliceView(View::Axial);
    pickVoxel({32, 30, 4});
    wheel(axial, axial->screenPointOf({32, 30, 4}), 1, Qt::ControlModifier);
    const double zoom = axial->viewPort().pixelsPerMm;
    const QImage step0 = axial->picture();

    time->setFocus();
    QTest::keyClick(time, Qt::Key_Right);
    EXPECT_EQ(series->currentStep(), 1);
    EXPECT_EQ(axial->viewPort().pixelsPerMm, zoom) << "another step keeps the zoom";
    auto *second = dynamic_cast<VxField3 *>(series->step(1)[0]);
    ASSERT_EQ(viewer()->field(), second);
    EXPECT_EQ(viewer()->cursorVoxel(), (std::array<int, 3>{32, 30, 4})) << "the cross-hair stays";
    const CursorText t = readCursorText(viewer()->cursorLabel()->text());
    EXPECT_NEAR(t.value, storedSample(*second, 32, 30, 4),
                1e-3 * std::max(1.0, std::fabs(t.value)));
    EXPECT_NE(axial->picture(), step0) << "another volume, other pixels";

    QTest::keyClick(time, Qt::Key_End);
    EXPECT_EQ(series->currentStep(), 2);
    QTest::keyClick(time, Qt::Key_Right);
    EXPECT_EQ(series->currentStep(), 2) << "no step past the last";
    QTest::keyClick(time, Qt::Key_Home);
    EXPECT_EQ(series->currentStep(), 0);
    EXPECT_EQ(axial->picture(), step0);
}

namespace {

struct CancelCase
{
    const char *name;
    const char *blockAt;  ///< the console line at which the worker waits for Cancel
    const char *proof;    ///< what the console says when the phase was interrupted
    const char *never;    ///< what it would say had the phase run to its end (or null)
    bool closing = false; ///< the window is closed instead of Cancel pressed
};

void PrintTo(const CancelCase &c, std::ostream *out)
{
    *out << c.name;
}

class CancelOpen : public ViewerWindowTest, public testing::WithParamInterface<CancelCase>
{
};

} // namespace

TEST_P(CancelOpen, CancelDuringALongOpenInterruptsAndLoadsNothing)
{
    Synthetic &s = synthetic();
    if (!s.error.empty())
        GTEST_SKIP() << s.error;
    const CancelCase &c = GetParam();

    // The worker stops at a known point of the open until Cancel is pressed,
    // so the press lands in that phase on every run.
    std::atomic<bool> reached{false}, released{false};
    std::string consoleText;
    std::mutex textMutex;
    const VxMessage::Sink previous = VxMessage::getTheMsg()->setSink([&](const std::string &text) {
        {
            std::lock_guard<std::mutex> lock(textMutex);
            consoleText += text;
        }
        if (!reached && text.rfind(c.blockAt, 0) == 0) {
            reached = true;
            for (int i = 0; i < 3000 && !released; ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    const int poolBefore = VxObjectPool::instance()->size();
    QSignalSpy ended(window.get(), &ViewerWindow::openFinished);
    ASSERT_TRUE(window->openPaths({QString::fromStdString(s.path("long"))}));
    EXPECT_TRUE(window->cancelButton()->isVisible() && window->progressBar()->isVisible());
    EXPECT_TRUE(QTest::qWaitFor([&] { return reached.load(); }, 30000));
    if (c.closing) {
        EXPECT_FALSE(window->close()) << "the window waits for the cancelled open";
    } else {
        QTest::mouseClick(window->cancelButton(), Qt::LeftButton);
    }
    released = true;
    EXPECT_TRUE(ended.count() > 0 || ended.wait(60000));
    VxMessage::getTheMsg()->setSink(previous);
    ASSERT_EQ(ended.count(), 1);

    const OpenOutcome outcome = ended.at(0).at(0).value<OpenOutcome>();
    EXPECT_TRUE(outcome.cancelled);
    EXPECT_TRUE(outcome.added.empty());
    EXPECT_EQ(VxObjectPool::instance()->size(), poolBefore);
    EXPECT_EQ(window->dataList()->topLevelItemCount(), 0);
    EXPECT_EQ(viewer()->field(), nullptr);
    EXPECT_FALSE(window->cancelButton()->isVisible() || window->progressBar()->isVisible());
    EXPECT_NE(consoleText.find("opening cancelled; nothing was loaded"), std::string::npos);
    EXPECT_NE(consoleText.find(c.proof), std::string::npos) << consoleText;
    if (c.never) {
        EXPECT_EQ(consoleText.find(c.never), std::string::npos) << consoleText;
    }
    EXPECT_TRUE(window->statusBar()->currentMessage().contains(QStringLiteral("cancelled")));
    EXPECT_EQ(window->isVisible(), !c.closing);
}

INSTANTIATE_TEST_SUITE_P(
    Phases, CancelOpen,
    testing::Values(
        // Reading stops after the file it is at: one header of 60.
        CancelCase{"WhileReadingTheFiles", "+ ", "1 header loaded from 60 files", "IM00002.dcm"},
        // The stack's pixels stop at the next slice; no field is made.
        CancelCase{"WhileLoadingThePixels", "creating 1 stack", ": loading interrupted", nullptr},
        // Closing the window cancels the open, which ends before it closes.
        CancelCase{"ClosingTheWindow", "creating 1 stack", ": loading interrupted", nullptr, true}),
    [](const testing::TestParamInfo<CancelCase> &info) { return std::string(info.param.name); });

TEST_F(ViewerWindowTest, SavedFieldsReopenInPlaceAndAnonymizeSaysWhatItDid)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir tmp;
    // A broken file beside the good ones: named, skipped, the rest loads.
    const std::string folder = tmp.file("series");
    std::filesystem::create_directories(folder);
    for (const std::string &f : vxtest::sharedDicomFiles("dcm_qa_sag/In/2_gre_field_mapping"))
        std::filesystem::copy_file(f, folder + "/" + std::filesystem::path(f).filename().string());
    std::ofstream(folder + "/broken.dcm") << "DICM? no";
    const OpenOutcome outcome = open({QString::fromStdString(folder)}, true);
    ASSERT_EQ(outcome.added.size(), 1u);
    EXPECT_EQ(outcome.failures, 1);
    auto *field = dynamic_cast<VxField3 *>(outcome.added.front());
    ASSERT_TRUE(field);
    EXPECT_TRUE(window->console()->toPlainText().contains(
        QStringLiteral("reading %1/broken.dcm failed").arg(QString::fromStdString(folder))));

    // The parameter tree: the filter keeps the patient's name and the
    // bundles above it.
    QTreeWidget *tree = window->parameters()->tree();
    window->parameters()->filterEdit()->setText(QStringLiteral("patient name"));
    QStringList shown; // the rows a user sees: every ancestor shown too
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

    // NRRD keeps the geometry and the attributes: the reopened field puts
    // its voxels where the DICOM field had them.
    const std::array<int, 3> voxel = {2, 20, 40};
    const Vec3 original = worldMm(*field, voxel);

    // Save as DICOM: the save dialog with the attributes in its table;
    // Save writes a file per slice.
    const std::string dicomOut = tmp.file("saved");
    std::filesystem::create_directories(dicomOut);
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
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dicomOut),
                            std::filesystem::directory_iterator()),
              field->lattice()->dim(2));

    const std::string saved = tmp.file("fieldmap.nrrd");
    ASSERT_TRUE(window->saveCurrent(QString::fromStdString(saved)));
    ASSERT_TRUE(window->openFieldFile(QString::fromStdString(saved)));
    VxField3 *reopened = viewer()->field();
    ASSERT_NE(reopened, field);
    EXPECT_EQ(window->dataList()->topLevelItemCount(), 2);
    viewer()->setCursorVoxel(voxel);
    const Vec3 again = viewer()->cursorPatientMm();
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(again[static_cast<size_t>(k)], original[static_cast<size_t>(k)], 1e-3);

    ASSERT_TRUE(window->anonymizeCurrent());
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            return window->console()->toPlainText().contains(
                QStringLiteral("anonymized patient name"));
        },
        5000))
        << window->console()->toPlainText().toStdString();
    EXPECT_EQ(reopened->label(), "Anonymized");
    EXPECT_EQ(window->dataList()->findItems(QStringLiteral("Anonymized"), Qt::MatchExactly).size(),
              1);
    window->parameters()->filterEdit()->setText(QStringLiteral("<Anonymized>"));
    const QList<QTreeWidgetItem *> values =
        tree->findItems(QStringLiteral("<Anonymized>"), Qt::MatchExactly | Qt::MatchRecursive, 3);
    EXPECT_TRUE(std::any_of(values.begin(), values.end(),
                            [](const QTreeWidgetItem *i) { return !i->isHidden(); }));

    // A file that is no volume: an error naming it, in the console and the
    // status bar, and nothing else changes.
    const std::string bad = tmp.file("bad.nii");
    std::ofstream(bad) << "not a NIfTI file";
    EXPECT_FALSE(window->openFieldFile(QString::fromStdString(bad)));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return window->console()->toPlainText().contains(QString::fromStdString(bad)); },
        5000));
    EXPECT_TRUE(window->statusBar()->currentMessage().contains(QString::fromStdString(bad)));
    EXPECT_EQ(window->dataList()->topLevelItemCount(), 2);
    EXPECT_EQ(viewer()->field(), reopened);
}
