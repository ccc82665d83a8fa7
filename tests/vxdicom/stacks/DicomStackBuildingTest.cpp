// Stack building on real series: sorting by the columns, splitting by the
// criteria and into volumes, the slice-order question and the export.

#include "vxdicom/stacks/DicomListView.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/support/WidgetDriver.h"
#include "tests/vxdicom/stacks/StacksTestSupport.h"
#include "vxdicom/reader/VxDicomImageStack.h"

#include <QLineEdit>
#include <QPushButton>
#include <QTimer>

using stacktest::ctFile;
using stacktest::instanceNumbers;
using stacktest::LoadedFiles;
using stacktest::stackSizes;
using StackBuilding = stacktest::RealSeries;

namespace {

const char *kCtDir = "dcm_qa_ct/In/Philips/S21610/S2010";
const char *kFmriDir = "dcm_qa_philips/In/Magdeburg_2014/fmri";

struct Exported
{
    KcDArray<VxDicomImageStack *> stacks;
    ~Exported()
    {
        for (VxDicomImageStack *s : stacks)
            delete s;
    }
    std::vector<int> instances(int k) const
    {
        std::vector<int> numbers;
        for (const VxDicomImage *image : stacks[k]->images)
            numbers.push_back(image->imageNumber);
        return numbers;
    }
};

std::vector<int> range(int first, int last, int step = 1)
{
    std::vector<int> out;
    for (int v = first; step > 0 ? v <= last : v >= last; v += step)
        out.push_back(v);
    return out;
}

} // namespace

TEST_F(StackBuilding, CtSeriesIsOneUniformStackInSliceOrder)
{
    // 54 slices and a DICOMDIR, in file-name order (I10, I100, ...), not slice order.
    LoadedFiles files(stacktest::folderFiles(kCtDir));
    ASSERT_EQ(files.size(), 54) << "the DICOMDIR gives no image";
    DicomListView view;
    view.initialize(files.images());
    ASSERT_EQ(view.stackList().size(), 1);
    const DicomStackItem *stack = view.stackList()[0];
    EXPECT_EQ(instanceNumbers(stack), range(1, 54));
    const std::vector<float> locations = stacktest::sliceLocations(stack);
    EXPECT_TRUE(std::is_sorted(locations.begin(), locations.end()));
    EXPECT_TRUE(stack->isUniform()) << "2.5 mm table steps";
    // Only the columns that tell these images apart stay, plus the three always kept.
    EXPECT_EQ(stacktest::columnLabels(view),
              (QStringList{"image stack", "instance number", "slice location", "file name",
                           "load index"}));
    Exported out;
    ASSERT_TRUE(view.exportImageStacks(out.stacks, 0));
    ASSERT_EQ(out.stacks.size(), 1);
    EXPECT_EQ(out.instances(0), range(1, 54));
    EXPECT_EQ(out.stacks[0]->getCoordType(), 1) << "uniform";
    EXPECT_EQ(out.stacks[0]->name, "HEAD");
}

TEST_F(StackBuilding, DescendingSagittalSeriesIsRevertedWithoutAsking)
{
    // Positions along the normal fall from 13.73 to -6.27 mm as the instance
    // number rises (numpy on pydicom's orientation and position).
    LoadedFiles files(stacktest::folderFiles("dcm_qa_sag/In/2_gre_field_mapping"));
    ASSERT_EQ(files.size(), 5);
    DicomListView view;
    view.initialize(files.images());
    ASSERT_EQ(stackSizes(view), std::vector<int>{5});
    EXPECT_EQ(instanceNumbers(view.stackList()[0]), range(1, 5));
    stacktest::StackDialogAnswer cancel(0); // a question would fail the export
    VxMessageCapture console;
    Exported out;
    ASSERT_TRUE(view.exportImageStacks(out.stacks, 0));
    EXPECT_FALSE(console.contains("Image locations")) << console.text();
    EXPECT_EQ(out.instances(0), range(5, 1, -1)) << "reverted";
    const KcDArray<float> &z = out.stacks[0]->sliceLocations;
    for (int i = 1; i < z.size(); ++i)
        EXPECT_GT(z[i], z[i - 1]);
    EXPECT_TRUE(view.stackList()[0]->isUniform()) << "5 mm apart";
}

TEST_F(StackBuilding, VolumesAreSplitByWhatTellsThemApart)
{
    // GE DWI: two positions alternate with the instance number; the criteria
    // alone already give the seven volumes as stacks of two.
    LoadedFiles dwi(stacktest::folderFiles("dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2"));
    ASSERT_EQ(dwi.size(), 14);
    for (const bool split : {false, true}) {
        DicomListView view;
        view.splitVolumes = split;
        view.initialize(dwi.images());
        ASSERT_EQ(stackSizes(view), std::vector<int>(7, 2)) << split;
        for (int k = 0; k < 7; ++k)
            EXPECT_EQ(instanceNumbers(view.stackList()[k]),
                      (std::vector<int>{2 * k + 1, 2 * k + 2}));
    }

    // The Philips fMRI (9 slices x 3 volumes, instance numbers 1..27 with each
    // location three times in a row) handed in shuffled: one volume per
    // temporal position.
    std::vector<std::string> paths = stacktest::folderFiles(kFmriDir);
    std::reverse(paths.begin(), paths.end());
    std::rotate(paths.begin(), paths.begin() + 10, paths.end());
    LoadedFiles fmri(paths);
    DicomListView criteriaOnly;
    criteriaOnly.splitVolumes = false;
    criteriaOnly.initialize(fmri.images());
    // Without the split, strictly monotonic "slice location" breaks at every
    // repeat of the instance-ordered slices: {1} {2} {3,4} {5} ... {24,25} {26} {27}.
    std::vector<int> sizes = {1, 1};
    for (int k = 0; k < 8; ++k)
        sizes.insert(sizes.end(), {2, 1});
    sizes.push_back(1);
    ASSERT_EQ(stackSizes(criteriaOnly), sizes);
    EXPECT_EQ(instanceNumbers(criteriaOnly.stackList()[2]), (std::vector<int>{3, 4}));
    EXPECT_EQ(criteriaOnly.stackList()[1]->firstChild()->breakOption,
              stacktest::optionIndex(criteriaOnly, "slice location"));
    EXPECT_EQ(criteriaOnly.stackList()[0]->firstChild()->breakOption, -1) << "never refused";
    DicomListView view;
    view.initialize(fmri.images());
    ASSERT_EQ(stackSizes(view), (std::vector<int>{9, 9, 9}));
    for (int v = 0; v < 3; ++v)
        EXPECT_EQ(instanceNumbers(view.stackList()[v]), range(v + 1, 25 + v, 3));
    EXPECT_TRUE(view.stackList()[1]->info().contains(
        "volume 2 of 3 of its series (told apart by temporal position identifier)"));

    // The same file three times: nothing but the order tells the copies apart.
    const std::string one = paths.front();
    LoadedFiles copies({one, one, one});
    DicomListView again;
    again.initialize(copies.images());
    ASSERT_EQ(stackSizes(again), (std::vector<int>{1, 1, 1}));
    EXPECT_TRUE(again.stackList()[2]->info().contains("volume 3 of 3"));
    EXPECT_TRUE(again.stackList()[2]->info().contains("order of appearance"));
}

TEST_F(StackBuilding, TwoSeriesOfOnePatientSplitBySeriesInstanceUidInUidOrder)
{
    // Two mosaic series of one patient, six volumes each (a file per volume),
    // the second series loaded first.
    std::vector<std::string> paths = stacktest::folderFiles("dcm_qa_mosaic/In/ep2d_Asc_HF_10");
    for (const std::string &p : stacktest::folderFiles("dcm_qa_mosaic/In/ep2d_Asc_2"))
        paths.push_back(p);
    LoadedFiles files(paths);
    ASSERT_EQ(files.size(), 12);
    DicomListView view;
    view.initialize(files.images());
    EXPECT_EQ(view.headerItem()->text(1), "series instance uid")
        << "patient name, patient id and series date are equal and left out";
    ASSERT_EQ(stackSizes(view), std::vector<int>(12, 36));
    EXPECT_NE(view.stackList()[0]->firstChild()->image()->file->fileName.find("ep2d_Asc_2/"),
              std::string::npos)
        << "the UID ...2017102109011643... sorts first";
    for (int v = 0; v < 12; ++v)
        EXPECT_EQ(instanceNumbers(view.stackList()[v]), std::vector<int>(36, v % 6 + 1));
    // The refusing criterion's cell is red; no other cell is.
    const int uid = stacktest::optionIndex(view, "series instance uid");
    const DicomListItem *refused = view.stackList()[6]->firstChild();
    EXPECT_EQ(refused->breakOption, uid);
    for (int column = 0; column < view.columnCount(); ++column)
        EXPECT_EQ(refused->data(column, Qt::ForegroundRole).value<QBrush>().color(),
                  column == uid + 1 ? QColor(Qt::red) : QColor(Qt::black))
            << column;

    // One file loaded eleven times, scrambled: "load index" sorts numerically.
    LoadedFiles same(std::vector<std::string>(11, ctFile("I10")));
    KcDArray<VxDicomImage *> scrambled;
    for (size_t i : {10, 3, 9, 0, 7, 1, 8, 2, 6, 4, 5})
        scrambled.append(same.image(i));
    DicomListView byIndex;
    byIndex.initialize(scrambled);
    std::vector<int> order;
    for (const VxDicomImage *image : byIndex.imageList())
        order.push_back(image->file->index);
    EXPECT_EQ(order, range(0, 10));
}

TEST_F(StackBuilding, UnorderedStackAsksTheUserAndWithoutDisplayTakesTheDefault)
{
    // CT slices (instances 1, 2, 3) made 10, 30, 20 mm: with "slice location"
    // ignored one stack out of order, which the stack dialog renumbers.
    LoadedFiles files({ctFile("I10"), ctFile("I20"), ctFile("I30")});
    const float made[3] = {10, 30, 20};
    for (size_t i = 0; i < 3; ++i)
        files.image(i)->sliceLocation = made[i];
    DicomListView view;
    view.initialize(files.images());
    view.loadOptions()[stacktest::optionIndex(view, "slice location")]->setValue(
        DicomLoadOption::Ignore);
    view.updateImageStacks();
    ASSERT_EQ(stackSizes(view), std::vector<int>{3});

    // The real dialog, shown: the user cancels, then enters a step of 0.5 and presses OK.
    VxWarningDialog::setDisplayOverride(1);
    for (const char *step : {"", "0.5"}) {
        const QPointer<QTimer> driver =
            uitest::when([] { return uitest::visibleWindow<DicomStackDialog>() != nullptr; },
                         [step] {
                             auto *dialog = uitest::visibleWindow<DicomStackDialog>();
                             auto *start = dialog->findChild<QLineEdit *>("startLocation");
                             EXPECT_EQ(start->text(), "30") << "the stack's largest location";
                             if (!*step)
                                 return dialog->cancelButton()->click();
                             dialog->findChild<QLineEdit *>("increment")->setText(step);
                             dialog->okButton()->click();
                         });
        Exported out;
        EXPECT_EQ(view.exportImageStacks(out.stacks, 0), *step != 0);
        delete driver.data();
        const std::vector<float> expected =
            *step ? std::vector<float>{30, 30.5f, 31} : std::vector<float>{10, 30, 20};
        EXPECT_EQ(stacktest::sliceLocations(view.stackList()[0]), expected);
    }
    VxWarningDialog::setDisplayOverride(-1);

    // The reader's thread runs the export while this thread serves the
    // dialog; offscreen there is no display, so the dialog answers itself.
    for (size_t i = 0; i < 3; ++i)
        static_cast<DicomListItem *>(view.stackList()[0]->child(int(i)))->image()->sliceLocation =
            made[i];
    VxMessageCapture console;
    Exported out;
    ASSERT_TRUE(uitest::runOnWorker([&] { EXPECT_TRUE(view.exportImageStacks(out.stacks, 0)); }));
    EXPECT_TRUE(console.contains("WARNING: Image locations are not monotonically ordered. They "
                                 "must be adjusted. start location [mm]: 30, increment in mm: 1\n"
                                 "-> OK (no display; default answer)"))
        << console.text();
    EXPECT_EQ(stacktest::sliceLocations(view.stackList()[0]), (std::vector<float>{30, 31, 32}));
}

TEST(StackBuildingLargeFolder, ManySeriesGiveTheStacksTheirSeriesImplyInSeriesOrder)
{
    // An examination written by pydicom (many_series.py); what each series
    // gives follows from how it was written (see the script), in UID order.
    if (!vxtest::havePythonModules({"pydicom", "numpy"}))
        GTEST_SKIP() << "pydicom and numpy are needed to write the examination";
    stacktest::DefaultCriteria criteria;
    vxtest::TempDir dir;
    const int split = 300, plain = 20, perSeries = 40;
    ASSERT_EQ(vxtest::runCommand("/usr/bin/python3 " VX_STACKS_TEST_DIR "/many_series.py " +
                                 vxtest::shellQuote(dir.path().string()) + " " +
                                 std::to_string(split) + " " + std::to_string(plain) + " " +
                                 std::to_string(perSeries)),
              0);
    std::vector<std::string> paths;
    for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
        paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    ASSERT_EQ(paths.size(), size_t(2 * split + 6 + plain * perSeries));
    LoadedFiles files(paths);

    // Building the stacks of so many images keeps this (the GUI) thread's
    // event loop running and reports its progress.
    std::vector<float> fractions;
    VxWorkArea::instance()->setObserver([&](const std::string &status, float fraction) {
        if (status == "building stacks...")
            fractions.push_back(fraction);
    });
    DicomListView view;
    int ticksWhileBuilding = 0;
    QTimer tick;
    tick.setInterval(1);
    QObject::connect(&tick, &QTimer::timeout,
                     [&] { ticksWhileBuilding += view.isBuildingStacks(); });
    tick.start();
    view.initialize(files.images());
    tick.stop();
    VxWorkArea::instance()->setObserver(nullptr);
    EXPECT_GT(ticksWhileBuilding, 0) << "the event loop did not run while the stacks were built";
    ASSERT_GE(fractions.size(), 3u) << "no progress was reported while the stacks were built";
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_GT(fractions[fractions.size() / 2], 0.f);
    EXPECT_EQ(fractions.back(), 1.f);

    using Stack = std::vector<std::pair<int, float>>; // (instance, slice location)
    std::vector<Stack> expected;
    for (int j = 0; j < split / 2; ++j) // zigzag: turns after every second image
        expected.push_back({{2 * j + 1, float(j)}, {2 * j + 2, float(j) + 1000.f}});
    expected.push_back({{1, 0.f}}); // pairs: a repeated instance number breaks
    for (int k = 1; k + 1 < split; k += 2)
        expected.push_back({{k / 2 + 1, 0.5f * float(k)}, {(k + 1) / 2 + 1, 0.5f * float(k + 1)}});
    expected.push_back({{split / 2, 0.5f * float(split - 1)}});
    // Two volumes whose acquisition numbers all differ: six values are no
    // split into two volumes, so the order of appearance splits them.
    expected.push_back({{1, 0.f}, {2, 3.f}, {3, 6.f}});
    expected.push_back({{4, 0.f}, {5, 3.f}, {6, 6.f}});
    for (int s = 0; s < plain; ++s) {
        Stack series;
        for (int k = 0; k < perSeries; ++k)
            series.push_back({k + 1, 3.f * float(k)});
        expected.push_back(series);
    }
    std::vector<Stack> built;
    for (const DicomStackItem *stack : view.stackList()) {
        const std::vector<int> numbers = instanceNumbers(stack);
        const std::vector<float> locations = stacktest::sliceLocations(stack);
        Stack rows;
        for (size_t i = 0; i < numbers.size(); ++i)
            rows.push_back({numbers[i], locations[i]});
        built.push_back(rows);
    }
    ASSERT_EQ(built.size(), expected.size());
    for (size_t s = 0; s < built.size(); ++s)
        ASSERT_EQ(built[s], expected[s]) << "stack " << s;
    EXPECT_TRUE(view.stackList()[split + 2]->info().contains("order of appearance"));
}
