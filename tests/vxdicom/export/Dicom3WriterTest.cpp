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
    EXPECT_EQ(dicom3SliceFileName("CT", 0, 100000), "CT000001.dcm") << "more digits when needed";
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
    auto interrupt = [](const fs::path &) { // Ctrl-C after the first file
        VxWorkArea::instance()->setObserver([](const std::string &, float f) {
            if (f > 0.f)
                VxWorkArea::instance()->interrupt();
        });
    };
    // Each row: what goes wrong, the file named (@), the message, the first
    // file not written.
    const std::tuple<const char *, std::function<void(const fs::path &)>, const char *,
                     const char *, const char *>
        rows[] = {
            {"a folder in the way of slice 1",
             [](const fs::path &d) { fs::create_directory(d / "IM00002.dcm"); }, "IM00002.dcm",
             "cannot open @ for writing: Is a directory; 1 of 3 files written", "IM00003.dcm"},
            {"a full disk",
             [](const fs::path &d) { fs::create_symlink("/dev/full", d / "IM00001.dcm"); },
             "IM00001.dcm",
             "writing @ failed: No space left on device; 0 of 3 files written, the incomplete file "
             "is left in place",
             "IM00002.dcm"},
            {"an interrupt", interrupt, "IM00002.dcm", "interrupted before @; 1 of 3 files written",
             "IM00002.dcm"},
            {"generate() not called", nullptr, "", "nothing to write", "IM00001.dcm"},
        };
    for (const auto &[why, prepare, file, message, absent] : rows) {
        SCOPED_TRACE(why);
        vxtest::TempDir dir;
        ObserverScope reset({});
        if (prepare)
            prepare(dir.path());
        auto field = slicesOfOnes(3);
        Dicom3Object object(field.get());
        EXPECT_EQ(prepare ? object.generate() : 1, 1);
        VxMessageCapture capture;
        EXPECT_EQ(writeDicom3Slices(object, QString::fromStdString(dir.path().string())), -1);
        std::string expected = std::string("Dicom export: ") + message;
        if (expected.find('@') != std::string::npos)
            expected.replace(expected.find('@'), 1, dir.file(file));
        EXPECT_TRUE(capture.contains(expected)) << capture.text();
        EXPECT_TRUE(!prepare || fs::exists(dir.path() / "IM00001.dcm")) << "written files are kept";
        EXPECT_FALSE(fs::exists(dir.path() / absent));
    }
}
