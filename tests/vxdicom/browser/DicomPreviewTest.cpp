// The 8-bit preview of an image: the PGM bytes against values worked out by
// hand for 3 x 2 copies of a real MR slice edited by pydicom, and the preview
// window showing exactly those grey values.

#include "tests/support/TestSupport.h"
#include "vxdicom/browser/QxDicomImageView.h"
#include "vxdicom/reader/DicomPGMConverter.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <QLabel>
#include <QPixmap>

#include <gtest/gtest.h>

TEST(PreviewBytes, MatchTheHandComputedPicture)
{
    VX_REQUIRE_SHARED_DATA();
    if (!vxtest::havePythonModules({"pydicom", "numpy"}))
        GTEST_SKIP() << "pydicom and numpy are needed to edit the test image";
    const std::string eightBit = "--set BitsAllocated=8 --set BitsStored=8 --set HighBit=7 ";
    const struct
    {
        const char *name;
        std::string arguments, header; // for dicom_edit.py; of the PGM
        std::vector<int> grey;
    } rows[] = {
        // lower bound 100 - 200/2 = 0, factor 255/200; v = floor(2s - 10 + 0.5):
        // -210 -> 0, -10 -> 0, 90 -> 114.75, 190 -> 242.25, 390 and 1990 -> 200 -> 255
        {"window and rescale of the file",
         "--set PixelRepresentation=1 --pixels=-100,0,50,100,200,1000 --set RescaleSlope=2 "
         "--set RescaleIntercept=-10 --set WindowCenter=100 --set WindowWidth=200",
         "P5\n0003 0002\n255\n",
         {0, 0, 114, 242, 255, 255}},
        // no window: width = 355 - 100, centre 100 + 127.5, lower 100, factor 1
        {"stored range without window",
         "--delete WindowCenter --delete WindowWidth --pixels 100,110,120,130,140,355",
         "P5\n0003 0002\n255\n",
         {0, 10, 20, 30, 40, 255}},
        {"eight bits copied, the maximum grey value the image's maximum",
         eightBit + "--pixels 0,1,2,3,4,5",
         "P5\n0003 0002\n005\n",
         {0, 1, 2, 3, 4, 5}},
        {"eight bits all zero get the maximum 255",
         eightBit + "--pixels 0,0,0,0,0,0",
         "P5\n0003 0002\n255\n",
         {0, 0, 0, 0, 0, 0}},
    };
    const std::string slice = vxtest::sharedDicomFiles("dcm_qa_decubitus/In").front();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        vxtest::TempDir dir;
        const std::string file = dir.file("tiny.dcm");
        ASSERT_EQ(vxtest::runCommand("/usr/bin/python3 " VX_BROWSER_TEST_DIR
                                     "/../reader/dicom_edit.py " +
                                     vxtest::shellQuote(slice) + " " + vxtest::shellQuote(file) +
                                     " --set Rows=2 --set Columns=3 " + row.arguments),
                  0);
        // Read lazily as the dialog does; the preview reads the pixels itself.
        VxDicomFile dicom(file.c_str(), 0, 1);
        ASSERT_EQ(dicom.images.size(), 1);
        dicom.images[0]->pixelData();
        DicomPGMConverter converter(dicom.images[0]);
        ASSERT_NE(converter.convert(), nullptr);
        const auto *pgm = converter.data();
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(pgm), row.header.size()), row.header);
        EXPECT_EQ(std::vector<int>(pgm + row.header.size(), pgm + converter.numBytes()), row.grey);

        // The window shows the grey values scaled to 8 bits by the maximum.
        QxDicomImageView view(dicom.images[0]);
        const QImage shown = view.pictureLabel()->pixmap().toImage();
        ASSERT_EQ(shown.size(), QSize(3, 2));
        const int maxGrey = std::stoi(row.header.substr(row.header.size() - 4, 3));
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(qGray(shown.pixel(i % 3, i / 3)), row.grey[size_t(i)] * 255 / maxGrey) << i;
        EXPECT_EQ(view.windowTitle().toStdString(), file);
    }
}
