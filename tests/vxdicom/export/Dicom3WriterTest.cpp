#include "Dicom3TestUtil.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace dicom3test;
namespace fs = std::filesystem;

namespace {

/// 4 x 3 x n2 unsigned bytes, value = slice index + 1 everywhere in a slice.
std::unique_ptr<VxUniformScalarField3> slicesOfOnes(int n2)
{
    const int dims[3] = {4, 3, n2};
    std::vector<unsigned char> values(static_cast<size_t>(12 * n2));
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<unsigned char>(i / 12 + 1);
    const float bbox[6] = {0.f, 3.f, 0.f, 2.f, 0.f, static_cast<float>(n2 - 1)};
    return uniformField(dims, KcPrimType::UInt8, values, bbox);
}

/// Clears the work area's observer on every path.
struct ObserverScope
{
    explicit ObserverScope(VxWorkArea::Observer o) { VxWorkArea::instance()->setObserver(o); }
    ~ObserverScope() { VxWorkArea::instance()->setObserver({}); }
};

} // namespace

TEST(Dicom3Writer, WritesOneFilePerSliceInSortedNamesWithProgress)
{
    EXPECT_EQ(dicom3SliceFileName("IM", 41, 99999), "IM00042.dcm");
    EXPECT_EQ(dicom3SliceFileName("CT", 0, 100000), "CT000001.dcm") << "more digits when needed";
    EXPECT_EQ(dicom3SliceFileName("", 0, 1), "00001.dcm");

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
        const std::vector<Element> elements = walk(vxtest::readFileBytes(out + "/" + names[k]));
        EXPECT_EQ(find(elements, 0x0020, 0x0013).text(), padded(std::to_string(k)));
        EXPECT_EQ(find(elements, 0x7FE0, 0x0010).value,
                  Bytes(12, static_cast<unsigned char>(k + 1)));
    }
}

TEST(Dicom3Writer, EveryFailureNamesTheFileAndTheCountWrittenAndKeepsWhatWasWritten)
{
    struct Row
    {
        const char *why;
        std::function<void(const fs::path &)> prepare;
        std::function<std::string(const vxtest::TempDir &)> message;
        const char *kept, *absent;
        bool generated = true;
    };
    const Row rows[] = {
        {"a folder in the way of slice 1",
         [](const fs::path &d) { fs::create_directory(d / "IM00002.dcm"); },
         [](const vxtest::TempDir &d) {
             return "Dicom export: cannot open " + d.file("IM00002.dcm") +
                    " for writing: Is a directory; 1 of 3 files written";
         },
         "IM00001.dcm", "IM00003.dcm"},
        {"a full disk",
         [](const fs::path &d) { fs::create_symlink("/dev/full", d / "IM00001.dcm"); },
         [](const vxtest::TempDir &d) {
             return "Dicom export: writing " + d.file("IM00001.dcm") +
                    " failed: No space left on device; 0 of 3 files written, the incomplete file "
                    "is left in place";
         },
         "IM00001.dcm", "IM00002.dcm"},
        {"Ctrl-C after one file",
         [](const fs::path &) {
             VxWorkArea::instance()->setObserver([](const std::string &, float f) {
                 if (f > 0.f)
                     VxWorkArea::instance()->interrupt();
             });
         },
         [](const vxtest::TempDir &d) {
             return "Dicom export: interrupted before " + d.file("IM00002.dcm") +
                    "; 1 of 3 files written";
         },
         "IM00001.dcm", "IM00002.dcm"},
        {"generate() not called", [](const fs::path &) {},
         [](const vxtest::TempDir &) { return std::string("Dicom export: nothing to write"); },
         nullptr, "IM00001.dcm", false},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.why);
        if (std::string(row.why) == "a full disk" && !fs::exists("/dev/full"))
            continue;
        vxtest::TempDir dir;
        ObserverScope reset({});
        row.prepare(dir.path());
        auto field = slicesOfOnes(3);
        Dicom3Object object(field.get());
        EXPECT_EQ(row.generated ? object.generate() : 1, 1);
        VxMessageCapture capture;
        EXPECT_EQ(writeDicom3Slices(object, QString::fromStdString(dir.path().string())), -1);
        EXPECT_TRUE(capture.contains(row.message(dir))) << capture.text();
        EXPECT_TRUE(!row.kept || fs::exists(dir.path() / row.kept)) << "written files are kept";
        EXPECT_FALSE(fs::exists(dir.path() / row.absent));
    }
}
