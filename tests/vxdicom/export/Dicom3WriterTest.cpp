#include "Dicom3TestUtil.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QString>

#include <filesystem>
#include <string>

using namespace dicom3test;
namespace fs = std::filesystem;

namespace {

/// n0 x n1 x n2 unsigned bytes, value = slice index + 1 everywhere in a slice.
std::unique_ptr<VxUniformScalarField3> slicesOfOnes(int n2)
{
    const int dims[3] = {4, 3, n2};
    std::vector<unsigned char> values(static_cast<size_t>(12 * n2));
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<unsigned char>(i / 12 + 1);
    const float bbox[6] = {0.f, 3.f, 0.f, 2.f, 0.f, static_cast<float>(n2 - 1)};
    return uniformField(dims, KcPrimType::UInt8, values, bbox);
}

/// Clears the work area's observer and interrupt on every path.
struct ObserverScope
{
    explicit ObserverScope(VxWorkArea::Observer o) { VxWorkArea::instance()->setObserver(o); }
    ~ObserverScope() { VxWorkArea::instance()->setObserver({}); }
};

} // namespace

TEST(Dicom3Writer, FileNamesSortInSliceOrder)
{
    EXPECT_EQ(dicom3SliceFileName("IM", 0, 2), "IM00001.dcm");
    EXPECT_EQ(dicom3SliceFileName("IM", 41, 99999), "IM00042.dcm");
    EXPECT_EQ(dicom3SliceFileName("CT", 0, 100000), "CT000001.dcm")
        << "more digits once the count needs them";
    EXPECT_EQ(dicom3SliceFileName("CT", 99999, 100000), "CT100000.dcm");
    EXPECT_EQ(dicom3SliceFileName("", 0, 1), "00001.dcm");
}

TEST(Dicom3Writer, WritesOneFilePerSliceWithProgress)
{
    vxtest::TempDir dir;
    auto field = slicesOfOnes(3);
    Dicom3Object object(field.get());
    ASSERT_EQ(object.generate(), 1);

    std::vector<float> fractions;
    std::string status;
    ObserverScope observe([&](const std::string &s, float f) {
        status = s;
        fractions.push_back(f);
    });
    QStringList written;
    const std::string out = dir.file("nested/out");
    EXPECT_EQ(writeDicom3Slices(object, QString::fromStdString(out), "IM", &written), 3);
    EXPECT_EQ(written.size(), 3);
    EXPECT_EQ(status, "Writing DICOM files");
    ASSERT_FALSE(fractions.empty());
    EXPECT_FLOAT_EQ(fractions.back(), 1.0f);
    EXPECT_FALSE(VxWorkArea::instance()->isShowingProgress()) << "progress ends with the write";

    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(out))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    ASSERT_EQ(names, (std::vector<std::string>{"IM00001.dcm", "IM00002.dcm", "IM00003.dcm"}));
    for (int k = 0; k < 3; ++k) {
        SCOPED_TRACE(names[static_cast<size_t>(k)]);
        const Bytes bytes = vxtest::readFileBytes(out + "/" + names[static_cast<size_t>(k)]);
        const std::vector<Element> elements = walk(bytes);
        const Element *number = find(elements, 0x0020, 0x0013);
        ASSERT_NE(number, nullptr);
        EXPECT_EQ(number->text(), std::string(1, static_cast<char>('0' + k)) + '\0');
        const Element *pixels = find(elements, 0x7FE0, 0x0010);
        ASSERT_NE(pixels, nullptr);
        EXPECT_EQ(pixels->value, Bytes(12, static_cast<unsigned char>(k + 1)));
    }
}

TEST(Dicom3Writer, AFileThatCannotBeOpenedIsNamedWithTheCountWritten)
{
    vxtest::TempDir dir;
    fs::create_directory(dir.path() / "IM00002.dcm"); // in the way of slice 1
    auto field = slicesOfOnes(3);
    Dicom3Object object(field.get());
    ASSERT_EQ(object.generate(), 1);
    VxMessageCapture capture;
    EXPECT_EQ(writeDicom3Slices(object, QString::fromStdString(dir.path().string())), -1);
    const std::string expected = "Dicom export: cannot open " + dir.file("IM00002.dcm") +
                                 " for writing: Is a directory; 1 of 3 files written";
    EXPECT_TRUE(capture.contains(expected)) << capture.text();
    EXPECT_TRUE(fs::exists(dir.path() / "IM00001.dcm")) << "written files are kept";
    EXPECT_FALSE(fs::exists(dir.path() / "IM00003.dcm"));
}

TEST(Dicom3Writer, AFullDiskIsReportedAndTheIncompleteFileKept)
{
    if (!fs::exists("/dev/full"))
        GTEST_SKIP() << "/dev/full is not available";
    vxtest::TempDir dir;
    fs::create_symlink("/dev/full", dir.path() / "IM00001.dcm");
    auto field = slicesOfOnes(2);
    Dicom3Object object(field.get());
    ASSERT_EQ(object.generate(), 1);
    VxMessageCapture capture;
    EXPECT_EQ(writeDicom3Slices(object, QString::fromStdString(dir.path().string())), -1);
    const std::string expected = "Dicom export: writing " + dir.file("IM00001.dcm") +
                                 " failed: No space left on device; 0 of 2 files written, the "
                                 "incomplete file is left in place";
    EXPECT_TRUE(capture.contains(expected)) << capture.text();
    EXPECT_TRUE(fs::is_symlink(dir.path() / "IM00001.dcm"));
}

TEST(Dicom3Writer, AnInterruptStopsBeforeTheNextFile)
{
    vxtest::TempDir dir;
    auto field = slicesOfOnes(3);
    Dicom3Object object(field.get());
    ASSERT_EQ(object.generate(), 1);
    ObserverScope observe([](const std::string &, float f) {
        if (f > 0.f)
            VxWorkArea::instance()->interrupt(); // the user presses Ctrl-C after one file
    });
    VxMessageCapture capture;
    EXPECT_EQ(writeDicom3Slices(object, QString::fromStdString(dir.path().string())), -1);
    EXPECT_TRUE(capture.contains("Dicom export: interrupted before " + dir.file("IM00002.dcm") +
                                 "; 1 of 3 files written"))
        << capture.text();
    EXPECT_TRUE(fs::exists(dir.path() / "IM00001.dcm"));
    EXPECT_FALSE(fs::exists(dir.path() / "IM00002.dcm"));
}

TEST(Dicom3Writer, NothingIsWrittenBeforeGenerate)
{
    vxtest::TempDir dir;
    auto field = slicesOfOnes(2);
    Dicom3Object object(field.get());
    VxMessageCapture capture;
    EXPECT_EQ(writeDicom3Slices(object, QString::fromStdString(dir.path().string())), -1);
    EXPECT_TRUE(capture.contains("Dicom export: nothing to write")) << capture.text();
    EXPECT_TRUE(fs::is_empty(dir.path()));
}
