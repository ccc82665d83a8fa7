// vxdicom view as a user runs it: the help, the refusal without a display,
// and the picture of the window taken without one.

#include "tests/apps/CliRunner.h"
#include "tests/support/TestSupport.h"

#include <QImage>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace clitest;

TEST(ViewCommand, HelpDocumentsTheWindowAndHowObliqueFieldsAreShown)
{
    const Outcome o = vxdicom("view --help");
    EXPECT_EQ(o.status, 0);
    for (const char *part :
         {"usage: vxdicom view", "Open DICOM", "Cancel", "NIfTI", "R/L, A/P, S/I", "window",
          "time series", "Save as DICOM", "Anonymize", "Console", "own lattice", "not a resampling",
          "sheared", "--screenshot"})
        EXPECT_TRUE(contains(o.out, part)) << part;
    EXPECT_TRUE(contains(vxdicom("help").out, "view")) << "listed among the commands";
}

TEST(ViewCommand, WithoutADisplayOnlyAPictureIsTaken)
{
    const Outcome o = vxdicom("view");
    EXPECT_EQ(o.status, 2);
    EXPECT_TRUE(contains(o.err, "needs a display")) << o.err;
    EXPECT_EQ(vxdicom("view --cursor 1,2 --screenshot x.png").status, 2);
}

TEST(ViewCommand, ScreenshotShowsTheOpenedSeriesAndABrokenFileFailsTheRun)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir tmp;
    const std::string png = tmp.file("view.png");
    const std::string series = vxtest::sharedPath("dcm_qa_sag/In/2_gre_field_mapping");
    Outcome o = vxdicom("view --size 900x700 --preset 'Full range' --screenshot " + q(png) + " " +
                        q(series));
    EXPECT_EQ(o.status, 0) << o.err;
    QImage picture(QString::fromStdString(png));
    ASSERT_FALSE(picture.isNull());
    EXPECT_EQ(picture.size(), QSize(900, 700));

    // The same with a file that is not DICOM: the series still shows, the
    // run fails and says which file.
    const std::string broken = tmp.file("notdicom.dcm");
    std::ofstream(broken) << "plain text";
    const std::string png2 = tmp.file("view2.png");
    o = vxdicom("view --screenshot " + q(png2) + " " + q(series) + " " + q(broken));
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(contains(o.err, "reading " + broken + " failed")) << o.err;
    EXPECT_TRUE(std::filesystem::exists(png2));

    o = vxdicom("view --preset Lung --screenshot " + q(tmp.file("x.png")) + " " + q(series));
    EXPECT_EQ(o.status, 1) << "an MR has no lung window";
    EXPECT_TRUE(contains(o.err, "no window preset 'Lung'")) << o.err;
}
