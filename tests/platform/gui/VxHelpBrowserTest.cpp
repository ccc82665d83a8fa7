#include "platform/gui/VxHelpBrowser.h"
#include "platform/core/VxMessage.h"
#include "platform/gui/VxSkin.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

class VxHelpBrowserTest : public ::testing::Test
{
protected:
    void SetUp() override { VxWarningDialog::setDisplayOverride(0); }
    void TearDown() override
    {
        VxWarningDialog::setDisplayOverride(-1);
        unsetenv("VXDICOM_HELP_DIR");
    }
};

} // namespace

// Without a display the page's path is printed; a missing page is reported
// with the path where it would be installed.
TEST_F(VxHelpBrowserTest, WithoutDisplayThePathOfThePageIsPrinted)
{
    VxMessageCapture capture;
    const QString path = VxHelpBrowser::open("vxdicom", "NoSuchPage.html");
    EXPECT_TRUE(path.endsWith("/share/vxdicom/help/NoSuchPage.html")) << path.toStdString();
    EXPECT_TRUE(capture.contains("Warning: help page ")) << capture.text();
    EXPECT_TRUE(capture.contains("help: " + path.toStdString())) << capture.text();
    capture.clear();
    vxtest::TempDir help;
    const std::string page = help.file("VxFileFormat_DICOM.html");
    vxtest::writeFileBytes(page, {'<', 'p', '>'});
    setenv("VXDICOM_HELP_DIR", help.path().c_str(), 1);
    EXPECT_EQ(VxHelpBrowser::open("vxdicom", "VxFileFormat_DICOM.html").toStdString(), page);
    EXPECT_EQ(capture.text(), "help: " + page + "\n");
}

TEST(VxSkin, TextsFitTheDicomElementsTheyAreWrittenInto)
{
    const VxSkin *skin = VxSkin::instance();
    EXPECT_EQ(skin->manufacturer(), "vxdicom");
    // Implementation Version Name (0002,0013) is an SH: at most 16 characters.
    const QString version = skin->versionText();
    EXPECT_TRUE(version.startsWith("vxdicom ")) << version.toStdString();
    EXPECT_LE(version.size(), 16);
    EXPECT_GT(version.size(), 8);
}
