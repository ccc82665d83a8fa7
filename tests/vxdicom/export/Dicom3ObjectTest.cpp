// The writer's elements byte by byte against encodings worked out by hand, and its failures.

#include "vxdicom/export/Dicom3Object.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/export/Dicom3Writer.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {

const dicom::enCoding LE = dicom::EXPLICIT_LITTLE_ENDIAN, BE = dicom::EXPLICIT_BIG_ENDIAN;

/// Everything `write` puts into a fresh temporary file.
std::string written(const std::function<int(FILE *)> &write)
{
    FILE *f = std::tmpfile();
    write(f);
    std::string bytes(static_cast<size_t>(std::max(0L, std::ftell(f))), '\0');
    std::rewind(f);
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), f), bytes.size());
    std::fclose(f);
    return bytes;
}

/// The explicit VR header of (0009,1020): OB, OW, UN, UT have 2 reserved bytes, a 32-bit length.
std::string header(const char *vr, size_t n, dicom::enCoding enc)
{
    const bool big = enc == BE, longLength = std::strstr("OB OW UN UT", vr);
    std::string h = (big ? "\x00\x09\x10\x20"s : "\x09\x00\x20\x10"s) + vr;
    h += longLength ? "\0\0"s : "";
    for (int i = 0, bytes = longLength ? 4 : 2; i < bytes; ++i)
        h += static_cast<char>(n >> (8 * (big ? bytes - 1 - i : i)));
    return h;
}

} // namespace

TEST(Dicom3ElementEncoding, TableTextsAreFramedInEitherByteOrderAndPaddedWithZero)
{
    // Text VRs are padded with 0x00, not a blank: files written before depend on it.
    const std::tuple<const char *, dicom::valRep, dicom::enCoding, const char *, std::string>
        rows[] = {
            {"US big", dicom::US, BE, "258", "\x01\x02"s},
            {"AT: digit pairs read as decimal bytes, group first", dicom::AT, BE, "0024,1699",
             "\x00\x18\x10\x63"s},
            {"odd CS", dicom::CS, LE, "CT1", "CT1\0"s},
            {"colons removed", dicom::TM, LE, "12:34:56.50", "123456.50\0"s},
            {"IEEE single 0x3FC00000", dicom::FL, LE, "1.5", "\x00\x00\xC0\x3F"s},
            {"OW: swapped words", dicom::OW, BE, "ABC", "BA\0C"s},
        };
    for (const auto &[why, vr, enc, cell, value] : rows) {
        Dicom3Element e(0x0009, 0x1020, vr);
        e.setTableDataString(cell);
        int result = 0;
        const std::string name(&"AEASATCSDADSDTFLFDISLOLTPNSHSLSSSTTMUIULUSOBOWSQUNUT"[2 * vr], 2);
        const std::string expected = header(name.c_str(), value.size(), enc) + value;
        EXPECT_EQ(written([&](FILE *f) { return result = e.write(f, enc, 0); }), expected) << why;
        EXPECT_EQ(result, 2 * static_cast<int>(expected.size())) << why << ": twice the bytes";
        EXPECT_EQ(e.write(nullptr, enc, 1), static_cast<int>(expected.size())) << why;
    }
    // Single-valued VRs are clamped to their longest value.
    Dicom3Element description(0x0009, 0x1020, dicom::ST);
    description.setCharStringData(std::string(2000, 'x').c_str(), 2000);
    EXPECT_EQ(written([&](FILE *f) { return description.write(f, LE, 0); }),
              header("ST", 1024, LE) + std::string(1024, 'x'));
}

// What goes wrong, the file named (@), the message, the first file not written.
TEST(Dicom3Writer, EveryFailureNamesTheFileAndTheCountWrittenAndKeepsWhatWasWritten)
{
    auto interrupt = [](const fs::path &) { // Ctrl-C after the first file
        VxWorkArea::instance()->setObserver([](const std::string &, float f) {
            f > 0.f ? VxWorkArea::instance()->interrupt() : void();
        });
    };
    // clang-format off
    const std::tuple<const char *, std::function<void(const fs::path &)>, const char *,
                     const char *, const char *> rows[] = {
        {"a folder in the way of slice 1",
         [](const fs::path &d) { fs::create_directory(d / "IM00002.dcm"); }, "IM00002.dcm",
         "cannot open @ for writing: Is a directory; 1 of 3 files written", "IM00003.dcm"},
        {"a full disk",
         [](const fs::path &d) { fs::create_symlink("/dev/full", d / "IM00001.dcm"); },
         "IM00001.dcm", "writing @ failed: No space left on device; 0 of 3 files written, the "
         "incomplete file is left in place", "IM00002.dcm"},
        {"an interrupt", interrupt, "IM00002.dcm", "interrupted before @; 1 of 3 files written",
         "IM00002.dcm"}};
    // clang-format on
    for (const auto &[why, prepare, file, message, absent] : rows) {
        SCOPED_TRACE(why);
        vxtest::TempDir dir;
        const std::shared_ptr<void> reset(nullptr,
                                          [](void *) { VxWorkArea::instance()->setObserver({}); });
        prepare(dir.path());
        const int dims[3] = {4, 3, 3};
        const float box[6] = {0, 3, 0, 2, 0, 2};
        VxUniformScalarField3 field(dims, KcPrimType::UInt8, std::calloc(36, 1));
        field.setBoundingBox(box);
        Dicom3Object object(&field);
        EXPECT_EQ(object.generate(), 1);
        VxMessageCapture capture;
        EXPECT_EQ(writeDicom3Slices(object, QString::fromStdString(dir.path().string())), -1);
        QString expected = QString("Dicom export: ") + message;
        expected.replace("@", dir.file(file).c_str());
        EXPECT_TRUE(capture.contains(expected.toStdString())) << capture.text();
        EXPECT_TRUE(fs::exists(dir.path() / "IM00001.dcm")) << "written files are kept";
        EXPECT_FALSE(fs::exists(dir.path() / absent));
    }
}
