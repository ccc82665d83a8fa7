// The viewer window as a user drives it, offscreen, the DICOM opened on its worker thread.

#include "apps/vxdicom/view/ViewerWindow.h"
#include "apps/vxdicom/view/ConsolePane.h"
#include "apps/vxdicom/view/OrthoViewer.h"
#include "apps/vxdicom/view/SliceView.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/data/VxDynamicSeriesCtrl.h"
#include "platform/data/VxField3.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/support/TestSupport.h"
#include "tests/support/WidgetDriver.h"
#include "vxdicom/browser/DicomDialog.h"

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

// make_series.py's series (a CT with gaps, a long one) made once; "" and why when that failed.
const auto synthetic = [](const char *name, std::string *error) {
    static vxtest::TempDir dir;
    static const std::string failed = [] {
        std::string out, make = std::string(VX_PYTHON) + " " + VX_MAKE_SERIES + " ";
        for (const char *args :
             {"stacked --rows 32 --columns 28 --slices 12 --spacing 1.5 --thickness 2 --gaps 3,7",
              "long --rows 48 --columns 48 --slices 60 --spacing 1 --thickness 1"})
            if (vxtest::runCommand(make + dir.file(args), &out, true) != 0)
                return "make_series.py (pydicom, numpy) failed: " + out;
        return std::string();
    }();
    *error = failed;
    return failed.empty() ? dir.file(name) : std::string();
};

const auto worldMm = [](const VxField3 &field, const std::array<int, 3> &v) {
    float w[3];
    field.voxelToWorld(v[0], v[1], v[2], w);
    const double mm = field.unitLength() * 1000.0;
    return Vec3{w[0] * mm, w[1] * mm, w[2] * mm};
};

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

// Edge letters, and the cross-hair's voxel, position and value: a tilted MR, a synthetic CT.
TEST_F(ViewerWindowTest, EdgeLettersAndTheCrossHairAgreeWithTheFieldTransformation)
{
    VX_REQUIRE_SHARED_DATA();
    std::string error;
    const std::string stacked = synthetic("stacked", &error);
    for (const auto &[folder, letters] :
         {std::pair(vxtest::sharedPath("dcm_qa/In/Orientation/ax/axasc35"),
                    "R L AS PI, R L SP IA, AS PI SP IA"),
          std::pair(stacked, "R L A P, R L S I, A P S I")}) {
        SCOPED_TRACE(folder);
        const bool synthetic = folder == stacked;
        if (synthetic && !error.empty())
            GTEST_SKIP() << error;
        const OpenOutcome outcome = open(folder);
        ASSERT_TRUE(outcome.ok && outcome.failures == 0 && !outcome.added.empty());
        auto *field = dynamic_cast<VxField3 *>(outcome.added.front());
        ASSERT_TRUE(field && viewer()->field() == field) << "the first field of an open is shown";
        std::string shown;
        for (View view : {View::Axial, View::Coronal, View::Sagittal}) {
            const EdgeLetters l = viewer()->sliceView(view)->letters();
            shown +=
                (shown.empty() ? "" : ", ") + l.left + " " + l.right + " " + l.top + " " + l.bottom;
        }
        EXPECT_EQ(shown, letters);
        const VxLattice3 &lat = *field->lattice();
        for (const std::array<int, 3> &voxel :
             {std::array<int, 3>{1, 1, std::min(1, lat.dim(2) - 1)},
              {lat.dim(0) / 2, lat.dim(1) / 3, lat.dim(2) - 1}}) {
            pickVoxel(voxel);
            ASSERT_EQ(viewer()->cursorVoxel(), voxel);
            int v[3] = {-1, -1, -1};
            double value = 0, mm[3] = {0, 0, 0};
            std::sscanf(viewer()->cursorLabel()->text().toUtf8().constData(),
                        "voxel (%d, %d, %d) value %lf\n%lf, %lf, %lf mm", &v[0], &v[1], &v[2],
                        &value, &mm[0], &mm[1], &mm[2]);
            EXPECT_TRUE(std::equal(v, v + 3, voxel.begin()));
            const Vec3 expected = worldMm(*field, voxel);
            for (int k = 0; k < 3; ++k)
                EXPECT_NEAR(mm[k], expected[size_t(k)], 0.011) << "axis " << k;
            if (synthetic) { // make_series.py's CT value in whole units: rounding may differ by 1
                const Vec3 p = viewer()->cursorPatientMm();
                const double s = 300 * std::sin(p[0] / 13) + 200 * std::cos(p[1] / 17) + 2 * p[2];
                EXPECT_NEAR(value, std::round(s + 1024.0) - 1024.0, 1.0);
            }
        }
    }
}

// The worker's import dialog loads three stacks as a time series, stepped by the time slider.
TEST_F(ViewerWindowTest, TheImportDialogLoadsATimeSeriesAndItsSliderStepsIt)
{
    VX_REQUIRE_SHARED_DATA();
    VxWarningDialog::setDisplayOverride(1);
    window->setShowImportDialog(true);
    window->asTimeSeriesAction()->setChecked(true);
    QString summary;
    const QPointer<QTimer> answering =
        uitest::whenShown<DicomDialog>([&summary](DicomDialog &dialog) {
            summary = dialog.loadSummaryLabel()->text();
            QTest::mouseClick(dialog.okButton(), Qt::LeftButton);
        });
    const OpenOutcome outcome = open(vxtest::sharedPath("dcm_qa_philips/In/Magdeburg_2014/fmri"));
    delete answering.data();
    EXPECT_EQ(summary, QStringLiteral("OK loads all 3 stacks"));
    ASSERT_EQ(outcome.added.size(), 1u) << "one control holds the three volumes";
    auto *series = dynamic_cast<VxDynamicSeriesCtrl *>(outcome.added.front());
    ASSERT_TRUE(series && series->nSteps() == 3);

    QSlider *time = viewer()->timeSlider();
    ASSERT_TRUE(time->isEnabled() && time->maximum() == 2);
    SliceView *axial = viewer()->sliceView(View::Axial);
    const std::array<int, 3> picked = {32, 30, 4};
    pickVoxel(picked);
    const QImage step0 = axial->picture();
    time->setFocus();
    for (const auto &[key, step] : {std::pair(Qt::Key_Right, 1), std::pair(Qt::Key_End, 2),
                                    std::pair(Qt::Key_Right, 2), std::pair(Qt::Key_Home, 0)}) {
        QTest::keyClick(time, key);
        EXPECT_EQ(series->currentStep(), step) << "no step past the last";
        EXPECT_EQ(viewer()->field(), series->step(step)[0]);
        EXPECT_EQ(viewer()->cursorVoxel(), picked) << "the cross-hair stays";
        EXPECT_EQ(axial->picture() == step0, step == 0) << "another volume, other pixels";
    }
}

// Cancel while reading, while loading pixels, and a close meanwhile: nothing stays loaded.
TEST_F(ViewerWindowTest, CancelDuringALongOpenInterruptsAndLoadsNothing)
{
    std::string error;
    const std::string folder = synthetic("long", &error);
    if (!error.empty())
        GTEST_SKIP() << error;
    // Where the worker waits, what shows the phase stopped, what it would print had it run on.
    const std::tuple<const char *, const char *, const char *, bool> phases[] = {
        {"+ ", "1 header loaded from 60 files", "IM00002.dcm", false},
        {"creating 1 stack", ": loading interrupted", "field \"", false},
        {"creating 1 stack", ": loading interrupted", "field \"", true}};
    for (const auto &[blockAt, proof, never, closing] : phases) {
        SCOPED_TRACE(proof);
        std::atomic<bool> reached{false}, released{false};
        window->console()->clear();
        const VxMessage::Sink previous = VxMessage::getTheMsg()->setSink([&](const std::string &t) {
            if (!reached && t.rfind(blockAt, 0) == 0) {
                reached = true; // the press lands in this phase
                for (int i = 0; i < 3000 && !released; ++i)
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        });
        const int poolBefore = VxObjectPool::instance()->size();
        QSignalSpy ended(window.get(), &ViewerWindow::openFinished);
        ASSERT_TRUE(window->openPaths({QString::fromStdString(folder)}));
        EXPECT_TRUE(window->cancelButton()->isVisible() && window->progressBar()->isVisible());
        EXPECT_TRUE(QTest::qWaitFor([&] { return reached.load(); }, 30000));
        if (closing)
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
        EXPECT_TRUE(window->dataList()->topLevelItemCount() == 0 && viewer()->field() == nullptr);
        EXPECT_FALSE(window->cancelButton()->isVisible() || window->progressBar()->isVisible());
        EXPECT_TRUE(consoleShows("opening cancelled; nothing was loaded") && consoleShows(proof));
        EXPECT_FALSE(window->console()->toPlainText().contains(QString::fromUtf8(never)))
            << window->console()->toPlainText().toStdString();
        EXPECT_TRUE(window->statusBar()->currentMessage().contains(QStringLiteral("cancelled")));
        EXPECT_EQ(window->isVisible(), !closing);
    }
}

// A drop with a broken file; NRRD saved, reopened in place, anonymized; a non-volume refused.
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
    EXPECT_TRUE(consoleShows("anonymized patient name"));
    const std::string bad = tmp.file("bad.nii");
    std::ofstream(bad) << "not a NIfTI file";
    EXPECT_FALSE(window->openFieldFile(QString::fromStdString(bad)));
    EXPECT_TRUE(consoleShows(bad));
    EXPECT_TRUE(window->statusBar()->currentMessage().contains(QString::fromStdString(bad)));
    EXPECT_TRUE(window->dataList()->topLevelItemCount() == 2 && viewer()->field() == reopened);
}

} // namespace
