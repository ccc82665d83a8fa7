// Stack building on real series: sorting by the columns, splitting by the
// criteria, the slice-order check and the export to image stacks.

#include "vxdicom/stacks/DicomListView.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxParamBundle.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/stacks/StacksTestSupport.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"
#include "vxdicom/stacks/DicomListItem.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomStackDialog.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>

using stacktest::LoadedFiles;

namespace {

const char *kCtDir = "dcm_qa_ct/In/Philips/S21610/S2010";
const char *kFmriDir = "dcm_qa_philips/In/Magdeburg_2014/fmri";
const char *kDwiDir = "dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2";
const char *kSagDir = "dcm_qa_sag/In/2_gre_field_mapping";
const char *kMosaicA = "dcm_qa_mosaic/In/ep2d_Asc_2";
const char *kMosaicB = "dcm_qa_mosaic/In/ep2d_Asc_HF_10";

struct Exported
{
    KcDArray<VxDicomImageStack *> stacks;
    ~Exported()
    {
        for (VxDicomImageStack *s : stacks)
            delete s;
    }
};

std::vector<int> exportedInstances(const VxDicomImageStack *stack)
{
    std::vector<int> numbers;
    for (const VxDicomImage *image : stack->images)
        numbers.push_back(image->imageNumber);
    return numbers;
}

std::vector<int> range(int first, int last, int step = 1)
{
    std::vector<int> out;
    for (int v = first; step > 0 ? v <= last : v >= last; v += step)
        out.push_back(v);
    return out;
}

} // namespace

class StackBuilding : public ::testing::Test
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

TEST_F(StackBuilding, CtSeriesIsOneUniformStackInSliceOrder)
{
    // 54 slices and a DICOMDIR, in file-name order (I10, I100, I110, ...),
    // which is not the slice order.
    LoadedFiles files(stacktest::folderFiles(kCtDir));
    ASSERT_EQ(files.size(), 54) << "the DICOMDIR gives no image";
    DicomListView view;
    view.initialize(files.images());

    ASSERT_EQ(view.stackList().size(), 1);
    const DicomStackItem *stack = view.stackList()[0];
    EXPECT_EQ(stacktest::instanceNumbers(stack), range(1, 54));
    const std::vector<float> locations = stacktest::sliceLocations(stack);
    for (size_t i = 1; i < locations.size(); ++i)
        ASSERT_GT(locations[i], locations[i - 1]) << "slice order at row " << i;
    EXPECT_TRUE(stack->isUniform()) << "2.5 mm table steps";

    // Only the columns that tell these images apart stay, plus the three
    // that are always kept.
    EXPECT_EQ(stacktest::columnLabels(view),
              (QStringList{"image stack", "instance number", "slice location", "file name",
                           "load index"}));

    Exported out;
    ASSERT_TRUE(view.exportImageStacks(out.stacks, 0));
    ASSERT_EQ(out.stacks.size(), 1);
    EXPECT_EQ(out.stacks[0]->images.size(), 54);
    EXPECT_EQ(exportedInstances(out.stacks[0]), range(1, 54));
    EXPECT_EQ(out.stacks[0]->getCoordType(), 1) << "uniform";
    EXPECT_EQ(out.stacks[0]->name, "HEAD");
}

TEST_F(StackBuilding, PhilipsFmriSplitsWhereSliceLocationsRepeat)
{
    // 9 slices x 3 volumes; instance numbers run 1..27 with each slice
    // location three times in a row (1, 2, 3 at the first location, ...).
    // Without the volume split, sorted by instance number, "slice location"
    // strictly monotonic breaks at every repeat, so at most two images (one
    // location step) share a stack: {1} {2} {3,4} {5} {6,7} ... {24,25} {26} {27}.
    LoadedFiles files(stacktest::folderFiles(kFmriDir));
    ASSERT_EQ(files.size(), 27);
    DicomListView view;
    view.splitVolumes = false;
    view.initialize(files.images());

    std::vector<int> sizes = {1, 1};
    for (int k = 0; k < 8; ++k) {
        sizes.push_back(2);
        sizes.push_back(1);
    }
    sizes.push_back(1);
    EXPECT_EQ(stacktest::stackSizes(view), sizes);
    EXPECT_EQ(stacktest::instanceNumbers(view.stackList()[2]), (std::vector<int>{3, 4}));

    const int slice = stacktest::optionIndex(view, "slice location");
    ASSERT_GE(slice, 0);
    EXPECT_EQ(view.stackList()[1]->firstChild()->breakOption, slice);
    EXPECT_EQ(view.stackList()[0]->firstChild()->breakOption, -1) << "never refused";
}

TEST_F(StackBuilding, DescendingSagittalSeriesIsRevertedWithoutAsking)
{
    // Five sagittal slices whose positions along the slice normal fall from
    // 13.73 to -6.27 mm as the instance number rises (numpy on pydicom's
    // orientation and position): one monotonous, descending stack.
    LoadedFiles files(stacktest::folderFiles(kSagDir));
    ASSERT_EQ(files.size(), 5);
    DicomListView view;
    view.initialize(files.images());
    ASSERT_EQ(view.stackList().size(), 1);
    EXPECT_EQ(stacktest::instanceNumbers(view.stackList()[0]), range(1, 5));

    // Any question would be answered "Cancel" and fail the export.
    stacktest::StackDialogAnswer cancel(0);
    VxMessageCapture console;
    Exported out;
    ASSERT_TRUE(view.exportImageStacks(out.stacks, 0));
    EXPECT_FALSE(console.contains("Image locations")) << console.text();
    ASSERT_EQ(out.stacks.size(), 1);
    EXPECT_EQ(exportedInstances(out.stacks[0]), range(5, 1, -1)) << "reverted";
    EXPECT_EQ(stacktest::instanceNumbers(view.stackList()[0]), range(5, 1, -1));
    for (int i = 1; i < out.stacks[0]->sliceLocations.size(); ++i)
        EXPECT_GT(out.stacks[0]->sliceLocations[i], out.stacks[0]->sliceLocations[i - 1]);
    EXPECT_TRUE(view.stackList()[0]->isUniform()) << "5 mm apart";
}

TEST_F(StackBuilding, GeDwiAlternatingSlicesMakeStacksOfTwo)
{
    // Two slice positions alternate with the instance number (1, 3, ... at
    // one, 2, 4, ... at the other): every third image turns back, and the
    // criteria alone give the seven volumes as stacks of two.
    LoadedFiles files(stacktest::folderFiles(kDwiDir));
    ASSERT_EQ(files.size(), 14);
    for (const bool split : {false, true}) {
        SCOPED_TRACE(split ? "volumes split" : "criteria only");
        DicomListView view;
        view.splitVolumes = split;
        view.initialize(files.images());
        EXPECT_EQ(stacktest::stackSizes(view), std::vector<int>(7, 2));
        for (int k = 0; k < 7; ++k)
            EXPECT_EQ(stacktest::instanceNumbers(view.stackList()[k]),
                      (std::vector<int>{2 * k + 1, 2 * k + 2}));
    }
}

TEST_F(StackBuilding, RepeatedPositionsSplitIntoVolumesInAnyFileOrder)
{
    // The Philips fMRI (3 volumes of 9 slices, instance numbers interleaving
    // them) handed in shuffled: one volume per temporal position, in order,
    // each slice-sorted; the stack says what told the volumes apart.
    std::vector<std::string> paths = stacktest::folderFiles(kFmriDir);
    std::reverse(paths.begin(), paths.end());
    std::rotate(paths.begin(), paths.begin() + 10, paths.end());
    LoadedFiles files(paths);
    DicomListView view;
    view.initialize(files.images());
    ASSERT_EQ(stacktest::stackSizes(view), (std::vector<int>{9, 9, 9}));
    for (int v = 0; v < 3; ++v)
        EXPECT_EQ(stacktest::instanceNumbers(view.stackList()[v]), range(v + 1, 25 + v, 3));
    EXPECT_NE(view.stackList()[1]->info().indexOf(
                  "volume 2 of 3 of its series (told apart by temporal position identifier)"),
              -1)
        << view.stackList()[1]->info().toStdString();

    // The same file three times: nothing tells the copies apart but the order.
    const std::string one = stacktest::folderFiles(kFmriDir).front();
    LoadedFiles copies({one, one, one});
    DicomListView again;
    again.initialize(copies.images());
    EXPECT_EQ(stacktest::stackSizes(again), (std::vector<int>{1, 1, 1}));
    EXPECT_NE(again.stackList()[2]->info().indexOf("volume 3 of 3"), -1);
    EXPECT_NE(again.stackList()[2]->info().indexOf("order of appearance"), -1);
}

TEST_F(StackBuilding, TwoSeriesOfOnePatientSplitBySeriesInstanceUid)
{
    // Two mosaic series of one patient, six volumes of 36 tiles each (one
    // volume per file); loaded with the second series first.
    std::vector<std::string> paths = stacktest::folderFiles(kMosaicB);
    for (const std::string &p : stacktest::folderFiles(kMosaicA))
        paths.push_back(p);
    LoadedFiles files(paths);
    ASSERT_EQ(files.size(), 12);
    DicomListView view;
    view.initialize(files.images());
    ASSERT_EQ(view.headerItem()->text(1), "series instance uid")
        << "patient name, patient id and series date are equal and left out";

    ASSERT_EQ(stacktest::stackSizes(view), std::vector<int>(12, 36));
    const int uid = stacktest::optionIndex(view, "series instance uid");
    const DicomListItem *firstOfSecond = view.stackList()[6]->firstChild();
    EXPECT_EQ(firstOfSecond->breakOption, uid);
    // The series whose UID sorts first (...2017102109011643... < ...2017102109061047...)
    // comes first, whatever the load order, its volumes in acquisition order.
    EXPECT_NE(view.stackList()[0]->firstChild()->image()->file->fileName.find("ep2d_Asc_2/"),
              std::string::npos);
    for (int v = 0; v < 12; ++v)
        EXPECT_EQ(stacktest::instanceNumbers(view.stackList()[v]), std::vector<int>(36, v % 6 + 1));

    // The refusing criterion's cell is red; no other cell is.
    const int redColumn = uid + 1;
    EXPECT_EQ(firstOfSecond->data(redColumn, Qt::ForegroundRole).value<QBrush>().color(),
              QColor(Qt::red));
    for (int column = 0; column < view.columnCount(); ++column) {
        if (column != redColumn) {
            EXPECT_FALSE(firstOfSecond->data(column, Qt::ForegroundRole).isValid()) << column;
        }
    }
    const DicomListItem *plain = view.stackList()[0]->firstChild();
    for (int column = 0; column < view.columnCount(); ++column)
        EXPECT_FALSE(plain->data(column, Qt::ForegroundRole).isValid()) << column;
}

TEST_F(StackBuilding, ImagesEqualButForLoadIndexSortNumericallyByIt)
{
    // One file loaded eleven times: all columns agree but "load index"
    // (0..10), handed in scrambled. Numeric comparison puts 10 after 9.
    const std::string slice = vxtest::sharedPath(std::string(kCtDir) + "/I10");
    LoadedFiles files(std::vector<std::string>(11, slice));
    ASSERT_EQ(files.size(), 11);
    KcDArray<VxDicomImage *> scrambled;
    for (int i : {10, 3, 9, 0, 7, 1, 8, 2, 6, 4, 5})
        scrambled.append(files.files[static_cast<size_t>(i)]->images[0]);
    DicomListView view;
    view.initialize(scrambled);
    std::vector<int> order;
    for (const VxDicomImage *image : view.imageList())
        order.push_back(image->file->index);
    EXPECT_EQ(order, range(0, 10));
}

TEST_F(StackBuilding, NonMonotonousStackWithRenumberCancelledExportsNothing)
{
    // Three CT slices (instances 1, 2, 3) whose locations are made 10, 30, 20;
    // with "slice location" ignored they form one stack out of order.
    LoadedFiles files({vxtest::sharedPath(std::string(kCtDir) + "/I10"),
                       vxtest::sharedPath(std::string(kCtDir) + "/I20"),
                       vxtest::sharedPath(std::string(kCtDir) + "/I30")});
    ASSERT_EQ(files.size(), 3);
    const float made[3] = {10, 30, 20};
    for (int i = 0; i < 3; ++i)
        files.files[static_cast<size_t>(i)]->images[0]->sliceLocation = made[i];
    DicomListView view;
    view.initialize(files.images());
    view.loadOptions()[stacktest::optionIndex(view, "slice location")]->setValue(
        DicomLoadOption::Ignore);
    view.updateImageStacks();
    ASSERT_EQ(stacktest::stackSizes(view), std::vector<int>{3});
    ASSERT_FALSE(view.stackList()[0]->isMonotonous());

    {
        stacktest::StackDialogAnswer cancel(0);
        Exported out;
        EXPECT_FALSE(view.exportImageStacks(out.stacks, 0));
        EXPECT_EQ(out.stacks.size(), 0);
        EXPECT_EQ(stacktest::sliceLocations(view.stackList()[0]), (std::vector<float>{10, 30, 20}))
            << "nothing relocated";
    }
    {
        stacktest::StackDialogAnswer accept(1);
        VxMessageCapture console;
        Exported out;
        EXPECT_TRUE(view.exportImageStacks(out.stacks, 0));
        EXPECT_TRUE(console.contains("WARNING: Image locations are not monotonically ordered."));
        EXPECT_TRUE(console.contains("start location [mm]: 30, increment in mm: 1"));
        ASSERT_EQ(out.stacks.size(), 1);
        EXPECT_EQ(stacktest::sliceLocations(view.stackList()[0]), (std::vector<float>{30, 31, 32}))
            << "renumbered from the largest location in steps of 1";
    }
}

TEST_F(StackBuilding, RenumberingWithoutDisplayTakesTheDefaultEvenFromAWorkerThread)
{
    LoadedFiles files({vxtest::sharedPath(std::string(kCtDir) + "/I10"),
                       vxtest::sharedPath(std::string(kCtDir) + "/I20"),
                       vxtest::sharedPath(std::string(kCtDir) + "/I30")});
    ASSERT_EQ(files.size(), 3);
    const float made[3] = {10, 30, 20};
    for (int i = 0; i < 3; ++i)
        files.files[static_cast<size_t>(i)]->images[0]->sliceLocation = made[i];
    DicomListView view;
    view.initialize(files.images());
    view.loadOptions()[stacktest::optionIndex(view, "slice location")]->setValue(
        DicomLoadOption::Ignore);
    view.updateImageStacks();

    // The reader's thread runs the export while this (GUI) thread serves the
    // negotiator; offscreen there is no display, so the dialog answers itself.
    VxMessageCapture console;
    Exported out;
    std::atomic<bool> done{false};
    bool result = false;
    std::thread worker([&] {
        result = view.exportImageStacks(out.stacks, 0);
        done = true;
    });
    QElapsedTimer clock;
    clock.start();
    while (!done && clock.elapsed() < 20000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    worker.join();
    EXPECT_TRUE(result);
    EXPECT_TRUE(console.contains("-> OK (no display; default answer)")) << console.text();
    EXPECT_EQ(stacktest::sliceLocations(view.stackList()[0]), (std::vector<float>{30, 31, 32}));
}

TEST_F(StackBuilding, ExportModesSelectStacks)
{
    // Without the volume split, the fMRI run gives 19 stacks: 8 of two
    // images, 11 single images.
    LoadedFiles files(stacktest::folderFiles(kFmriDir));
    ASSERT_EQ(files.size(), 27);
    DicomListView view;
    view.splitVolumes = false;
    view.initialize(files.images());
    ASSERT_EQ(view.stackList().size(), 19);
    view.stackList()[0]->setSelected(true); // {1}: one image
    view.stackList()[2]->setSelected(true); // {3, 4}

    EXPECT_EQ(view.countStacks(0), 19);
    EXPECT_EQ(view.countStacks(1), 8) << "uniform with more than one image";
    EXPECT_EQ(view.countStacks(2), 2) << "selected";
    EXPECT_EQ(view.countStacks(3), 1) << "selected and uniform with more than one image";
    EXPECT_EQ(view.numSelectedImages(), 3);

    Exported selected;
    ASSERT_TRUE(view.exportImageStacks(selected.stacks, 3));
    ASSERT_EQ(selected.stacks.size(), 1);
    EXPECT_EQ(exportedInstances(selected.stacks[0]), (std::vector<int>{3, 4}))
        << "the pair rises along the slice normal: kept as it is";
    EXPECT_EQ(selected.stacks[0]->getCoordType(), 1);

    Exported all;
    ASSERT_TRUE(view.exportImageStacks(all.stacks, 0));
    EXPECT_EQ(all.stacks.size(), 19);
    int images = 0;
    for (const VxDicomImageStack *s : all.stacks)
        images += s->images.size();
    EXPECT_EQ(images, 27);
}

TEST_F(StackBuilding, HeaderClickReversesTheSortDirectionOfItsSection)
{
    LoadedFiles files(stacktest::folderFiles(kCtDir));
    ASSERT_EQ(files.size(), 54);
    DicomListView view;
    view.initialize(files.images());
    ASSERT_EQ(view.headerItem()->text(1), "instance number");
    EXPECT_EQ(view.getSortOrder(1), 1);
    EXPECT_EQ(view.getSortOrder(99), 1) << "beyond the array";

    view.sortingOrderChanged(1);
    EXPECT_EQ(view.getSortOrder(1), -1);
    ASSERT_EQ(view.stackList().size(), 1);
    EXPECT_EQ(stacktest::instanceNumbers(view.stackList()[0]), range(54, 1, -1));

    view.sortingOrderChanged(1);
    EXPECT_EQ(view.getSortOrder(1), 1);
    EXPECT_EQ(stacktest::instanceNumbers(view.stackList()[0]), range(1, 54));
}

TEST(StackBuildingLargeFolder, ManySeriesGiveTheStacksTheirSeriesImplyInSeriesOrder)
{
    // An examination written by pydicom (many_series.py): a series that
    // zigzags between two slabs, one that repeats every Instance Number, and
    // twenty plain series, with files named out of acquisition order. What
    // each series gives follows from how it was written:
    //   zigzag: Slice Location turns after every second image, so stacks of
    //           instances (1, 2), (3, 4), ... at (0, 1000), (1, 1001), ...;
    //   pairs:  a repeated Instance Number breaks, so (1), then (1, 2),
    //           (2, 3), ... one image of each of two neighbours, then (150);
    //   plain:  one stack of 40 slices 3 mm apart each.
    // The series come in the order of their UIDs (= their numbers).
    if (!vxtest::havePythonModules({"pydicom", "numpy"}))
        GTEST_SKIP() << "pydicom and numpy are needed to write the examination";
    stacktest::DefaultCriteria criteria;
    vxtest::TempDir dir;
    const int split = 300, plain = 20, perSeries = 40;
    const std::string script = std::string(VX_STACKS_TEST_DIR) + "/many_series.py";
    std::string out;
    ASSERT_EQ(vxtest::runCommand("/usr/bin/python3 " + vxtest::shellQuote(script) + " " +
                                     vxtest::shellQuote(dir.path().string()) + " " +
                                     std::to_string(split) + " " + std::to_string(plain) + " " +
                                     std::to_string(perSeries),
                                 &out),
              0);
    std::vector<std::string> paths;
    for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
        paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    ASSERT_EQ(paths.size(), static_cast<size_t>(2 * split + plain * perSeries));
    LoadedFiles files(paths);
    DicomListView view;
    view.initialize(files.images());

    using Stack = std::vector<std::pair<int, float>>; // (instance, slice location) in child order
    std::vector<Stack> expected;
    for (int j = 0; j < split / 2; ++j)
        expected.push_back({{2 * j + 1, float(j)}, {2 * j + 2, float(j) + 1000.f}});
    expected.push_back({{1, 0.f}});
    for (int k = 1; k + 1 < split; k += 2)
        expected.push_back({{k / 2 + 1, 0.5f * float(k)}, {(k + 1) / 2 + 1, 0.5f * float(k + 1)}});
    expected.push_back({{split / 2, 0.5f * float(split - 1)}});
    for (int s = 0; s < plain; ++s) {
        Stack series;
        for (int k = 0; k < perSeries; ++k)
            series.push_back({k + 1, 3.f * float(k)});
        expected.push_back(series);
    }
    std::vector<Stack> built;
    for (const DicomStackItem *stack : view.stackList()) {
        const std::vector<int> numbers = stacktest::instanceNumbers(stack);
        const std::vector<float> locations = stacktest::sliceLocations(stack);
        Stack rows;
        for (size_t i = 0; i < numbers.size() && i < locations.size(); ++i)
            rows.push_back({numbers[i], locations[i]});
        built.push_back(rows);
    }
    ASSERT_EQ(built.size(), expected.size());
    for (size_t s = 0; s < built.size(); ++s)
        ASSERT_EQ(built[s], expected[s]) << "stack " << s;
    const QString uidOf3 = "1.2.826.0.1.3680043.9.7433.1.003";
    EXPECT_EQ(QString::fromLatin1(
                  view.stackList()[split + 1]->firstChild()->image()->headerText(0x0020, 0x000E)),
              uidOf3);

    // Every stack is exported in build order, each slice with its own
    // parameters under "Slice%03d" in slice order, then the header's.
    Exported exported;
    ASSERT_TRUE(view.exportImageStacks(exported.stacks, 0));
    ASSERT_EQ(exported.stacks.size(), static_cast<int>(expected.size()));
    const VxDicomImageStack *last = exported.stacks.last();
    const VxParamBundle &params = last->parameters;
    ASSERT_EQ(params.size(), perSeries + 1);
    for (int k = 0; k < perSeries; ++k) {
        const KcString name = KcString::format("Slice%03d", k);
        ASSERT_EQ(params.indexOf(name.c_str()), k);
        const VxParamBundle *slice = params.bundle(name.c_str());
        ASSERT_NE(slice, nullptr);
        EXPECT_EQ(slice->getString("Filename"), last->images[k]->file->fileName);
    }
    EXPECT_EQ(params.indexOf("All"), perSeries);
    EXPECT_EQ(params.indexOf("Slice040"), -1);
}
