// The 8-bit preview of an image: the PGM bytes against values worked out by
// hand for 3 x 2 images written by pydicom, and the preview window showing
// exactly those grey values.

#include "tests/support/TestSupport.h"
#include "vxdicom/browser/QxDicomImageView.h"
#include "vxdicom/reader/DicomPGMConverter.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <QLabel>
#include <QPixmap>

#include <gtest/gtest.h>

#include <memory>

namespace {

struct PreviewCase
{
    const char *name;
    std::string arguments; // for make_tiny_image.py
    std::string header;
    std::vector<int> grey;
};

std::ostream &operator<<(std::ostream &os, const PreviewCase &c)
{
    return os << c.name;
}

class PreviewBytes : public ::testing::TestWithParam<PreviewCase>
{
};

} // namespace

TEST_P(PreviewBytes, MatchTheHandComputedPicture)
{
    if (!vxtest::havePythonModules({"pydicom", "numpy"}))
        GTEST_SKIP() << "pydicom and numpy are needed to write the test image";
    const PreviewCase &c = GetParam();
    vxtest::TempDir dir;
    const std::string file = dir.file("tiny.dcm");
    ASSERT_EQ(vxtest::runCommand("/usr/bin/python3 " VX_BROWSER_TEST_DIR "/make_tiny_image.py " +
                                 vxtest::shellQuote(file) + " --columns 3 " + c.arguments),
              0);

    // Read lazily as the dialog does; the preview reads the pixels itself.
    auto dicom = std::make_unique<VxDicomFile>(file.c_str(), 0, 1);
    ASSERT_EQ(dicom->images.size(), 1);
    VxDicomImage *image = dicom->images[0];
    image->pixelData();

    DicomPGMConverter converter(image);
    ASSERT_NE(converter.convert(), nullptr);
    const std::string bytes(reinterpret_cast<const char *>(converter.data()),
                            static_cast<size_t>(converter.numBytes()));
    ASSERT_EQ(bytes.size(), c.header.size() + 6);
    EXPECT_EQ(bytes.substr(0, c.header.size()), c.header);
    std::vector<int> grey;
    for (size_t i = c.header.size(); i < bytes.size(); ++i)
        grey.push_back(static_cast<unsigned char>(bytes[i]));
    EXPECT_EQ(grey, c.grey);

    // The window shows the picture pixel for pixel (PGM grey scaled to 8 bits
    // by its maximum).
    QxDicomImageView view(image);
    const QImage shown = view.pictureLabel()->pixmap().toImage();
    ASSERT_EQ(shown.size(), QSize(3, 2));
    const int maxGrey = std::stoi(c.header.substr(c.header.size() - 4, 3));
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(qGray(shown.pixel(i % 3, i / 3)), c.grey[static_cast<size_t>(i)] * 255 / maxGrey)
            << "pixel " << i;
    EXPECT_EQ(view.windowTitle().toStdString(), file);
}

INSTANTIATE_TEST_SUITE_P(
    Images, PreviewBytes,
    ::testing::Values(
        // lower bound 100 - 200/2 = 0, factor 255/200; v = floor(2s - 10 + 0.5):
        // -210 -> 0, -10 -> 0, 90 -> 114.75, 190 -> 242.25, 390 and 1990 -> 200 -> 255
        PreviewCase{"WindowAndRescaleOfTheFile",
                    "--bits 16 --signed 1 --values=-100,0,50,100,200,1000 --slope 2 "
                    "--intercept -10 --center 100 --width 200",
                    "P5\n0003 0002\n255\n",
                    {0, 0, 114, 242, 255, 255}},
        // no window: width = 355 - 100, centre 100 + 127.5, lower 100, factor 1
        PreviewCase{"StoredRangeWithoutWindow",
                    "--bits 16 --signed 0 --values 100,110,120,130,140,355",
                    "P5\n0003 0002\n255\n",
                    {0, 10, 20, 30, 40, 255}},
        // one byte per sample: copied, maximum grey value the image's maximum
        PreviewCase{"EightBitCopiedWithItsMaximum",
                    "--bits 8 --values 0,1,2,3,4,5",
                    "P5\n0003 0002\n005\n",
                    {0, 1, 2, 3, 4, 5}},
        PreviewCase{"EightBitAllZeroGetsMaximum255",
                    "--bits 8 --values 0,0,0,0,0,0",
                    "P5\n0003 0002\n255\n",
                    {0, 0, 0, 0, 0, 0}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(PreviewBytes, NullImageGivesNoPicture)
{
    DicomPGMConverter converter(nullptr);
    EXPECT_EQ(converter.convert(), nullptr);
    EXPECT_EQ(converter.numBytes(), 17); // the header of a 0 x 0 picture
}
