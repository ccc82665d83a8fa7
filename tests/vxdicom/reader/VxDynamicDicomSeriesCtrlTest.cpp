// Stacks loaded as a time series: one control with a step per stack, and the
// command that recreates it.

#include "vxdicom/reader/VxDynamicDicomSeriesCtrl.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/data/VxField3.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/VxDicom.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

using namespace readertest;

namespace {

std::string saved(VxDynamicDicomSeriesCtrl &ctrl, int *rc = nullptr)
{
    vxtest::TempDir dir;
    const std::string path = dir.file("session.tcl");
    FILE *f = std::fopen(path.c_str(), "w");
    const int result = ctrl.saveCreation(f, "/data", 0);
    std::fclose(f);
    if (rc)
        *rc = result;
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class DicomTimeSeries : public ::testing::Test
{
protected:
    void SetUp() override { VxObjectPool::instance()->clear(); }
    void TearDown() override
    {
        VxObjectPool::instance()->clear();
        useDynamicSeriesCtrl = false;
    }

    // Three series of different sizes, so that the steps can be told apart.
    std::vector<std::string> threeSeries()
    {
        std::vector<std::string> names;
        const int rows[] = {4, 5, 6};
        for (int s = 1; s <= 3; ++s) {
            const std::string d = dir.file("series " + std::to_string(s));
            makeSeries(d, {"--modality", "MR", "--rows", std::to_string(rows[s - 1]), "--columns",
                           "3", "--slices", "2", "--series-number", std::to_string(s)});
            for (const std::string &f : filesIn(d))
                names.push_back(f);
        }
        return names;
    }
    int load(const std::vector<std::string> &names, KcDArray<VxField3 *> &fields)
    {
        std::vector<const char *> argv;
        for (const std::string &n : names)
            argv.push_back(n.c_str());
        VxMessageCapture capture;
        return vxReadDicom(static_cast<int>(argv.size()), argv.data(), fields, 0, true);
    }

    vxtest::TempDir dir;
};

} // namespace

TEST_F(DicomTimeSeries, ThreeStacksBecomeOneControlWithThreeSteps)
{
    const std::vector<std::string> names = threeSeries();
    FakeDialog fake;
    fake.config().asTimeSeries = true;
    KcDArray<VxField3 *> fields;
    ASSERT_EQ(load(names, fields), 1);
    EXPECT_TRUE(useDynamicSeriesCtrl);
    EXPECT_TRUE(timeSteps.isEmpty()) << "handed over to the control";

    ASSERT_EQ(VxObjectPool::instance()->size(), 1) << "no field of its own in the pool";
    auto *ctrl = dynamic_cast<VxDynamicDicomSeriesCtrl *>(VxObjectPool::instance()->objects()[0]);
    ASSERT_TRUE(ctrl);
    EXPECT_EQ(ctrl->label(), "TimeSeriesCtrl");
    ASSERT_EQ(ctrl->nSteps(), 3);
    ASSERT_EQ(fields.size(), 3);
    for (int s = 0; s < 3; ++s) {
        ASSERT_EQ(ctrl->step(s).size(), 1);
        EXPECT_EQ(ctrl->step(s)[0], fields[s]) << "steps in stack order";
        EXPECT_EQ(static_cast<VxField3 *>(ctrl->step(s)[0])->lattice()->dim(1), 4 + s);
    }
    EXPECT_EQ(ctrl->currentStep(), 0);
    ASSERT_EQ(ctrl->names().size(), static_cast<int>(names.size()));
    for (size_t k = 0; k < names.size(); ++k)
        EXPECT_EQ(ctrl->names()[static_cast<int>(k)], names[k]);

    // Every name quoted, one line.
    std::string expected = "load -dicom";
    for (const std::string &n : names)
        expected += " \"" + n + "\"";
    int rc = -1;
    EXPECT_EQ(saved(*ctrl, &rc), expected + "\n");
    EXPECT_EQ(rc, 0);
}

TEST_F(DicomTimeSeries, NextLoadWithoutTheChoiceRegistersFieldsAgain)
{
    const std::vector<std::string> names = threeSeries();
    {
        FakeDialog fake;
        fake.config().asTimeSeries = true;
        KcDArray<VxField3 *> fields;
        ASSERT_EQ(load(names, fields), 1);
    }
    VxObjectPool::instance()->clear();
    FakeDialog fake;
    KcDArray<VxField3 *> fields;
    ASSERT_EQ(load(names, fields), 1);
    EXPECT_FALSE(useDynamicSeriesCtrl);
    EXPECT_EQ(VxObjectPool::instance()->size(), 3);
    EXPECT_EQ(VxObjectPool::instance()->find("TimeSeriesCtrl"), nullptr);
}

TEST_F(DicomTimeSeries, CancelledLoadAfterATimeSeriesMakesNoControl)
{
    const std::vector<std::string> names = threeSeries();
    {
        FakeDialog fake;
        fake.config().asTimeSeries = true;
        KcDArray<VxField3 *> fields;
        ASSERT_EQ(load(names, fields), 1);
    }
    VxObjectPool::instance()->clear();
    FakeDialog fake;
    fake.config().execResult = 0;
    std::vector<const char *> argv;
    for (const std::string &n : names)
        argv.push_back(n.c_str());
    KcDArray<VxField3 *> fields;
    VxMessageCapture capture;
    EXPECT_EQ(vxReadDicom(static_cast<int>(argv.size()), argv.data(), fields, 1, false), 1);
    EXPECT_EQ(VxObjectPool::instance()->size(), 0);
}

TEST(DicomTimeSeriesCtrl, SaveCreationQuotesEveryNameAndIgnoresANullFile)
{
    KcDArray<KcString> names;
    names.append("/cd/two words/IM1");
    names.append("/cd/IM2");
    VxDynamicDicomSeriesCtrl ctrl(names);
    EXPECT_EQ(saved(ctrl), "load -dicom \"/cd/two words/IM1\" \"/cd/IM2\"\n");
    EXPECT_EQ(ctrl.saveCreation(nullptr, "/data", 0), 0);
    VxDynamicDicomSeriesCtrl empty;
    EXPECT_EQ(saved(empty), "load -dicom\n");
}
