#include "platform/core/VxGunzip.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

namespace fs = std::filesystem;

// Files packed by gzip and by compress come back byte for byte in a copy in $TMPDIR (private
// here, so that "nothing is left" is checked by listing it) that goes with the object or the next
// unpack; bad input is refused with a reason. 600 kB that do not compress: a cut .gz fails only
// after several blocks were unpacked.
TEST(VxGunzipTest, UnpacksFilesOfOtherToolsAndRefusesBadInputLeavingNothing)
{
    vxtest::TempDir tmp, inputs;
    vxtest::ScopedEnv tmpdir{"TMPDIR", tmp.path().c_str()};
    std::vector<unsigned char> payload(128, 0), gz;
    payload.insert(payload.end(), {'D', 'I', 'C', 'M'});
    std::mt19937 random(7);
    for (int i = 0; i < 600000; ++i)
        payload.push_back(static_cast<unsigned char>(random()));
    const std::string plain = inputs.file("image.dcm"), q = vxtest::shellQuote(plain);
    vxtest::writeFileBytes(plain, payload);
    auto empty = [&] { return fs::is_empty(tmp.path()); };
    for (const char *name : {"ct/IM0001.gz", "IM0001.Z"})
        EXPECT_TRUE(VxGunzip::needsUnpacking(name)) << name;
    for (const char *name : {"IM0001.z", "IM0001.GZ", "IM.gzip", "gz", (const char *)nullptr})
        EXPECT_FALSE(VxGunzip::needsUnpacking(name)) << (name ? name : "null");

    const std::pair<std::string, std::string> tools[] = {
        {"gzip", "gzip -c -9 " + q + " > " + q + ".gz"},
        {"compress", "compress -c " + q + " > " + q + ".Z"}};
    std::string missing;
    for (const auto &[tool, command] : tools) {
        SCOPED_TRACE(tool);
        const std::string packed = plain + (tool == "compress" ? ".Z" : ".gz");
        if (!vxtest::haveProgram(tool)) {
            missing += " " + tool;
            continue;
        }
        std::string out;
        ASSERT_EQ(vxtest::runCommand(command, &out, true), 0) << command << ": " << out;
        if (tool == "gzip")
            gz = vxtest::readFileBytes(packed);
        {
            VxGunzip unpacker;
            KcString why;
            ASSERT_TRUE(unpacker.unpack(packed.c_str(), &why)) << why;
            const std::string first = unpacker.path();
            EXPECT_EQ(fs::path(first).parent_path(), tmp.path());
            EXPECT_EQ(vxtest::readFileBytes(first), payload);
            ASSERT_TRUE(unpacker.unpack(packed.c_str(), &why)) << why;
            EXPECT_FALSE(fs::exists(first)) << "the second unpack replaces the first copy";
            EXPECT_EQ(vxtest::readFileBytes(unpacker.path()), payload);
            EXPECT_FALSE(unpacker.unpack(plain.c_str(), &why) || !unpacker.path().empty() ||
                         !empty());
            ASSERT_TRUE(unpacker.unpack(packed.c_str(), &why)) << why;
        }
        EXPECT_TRUE(empty());
        fs::remove(packed);
    }
    ASSERT_FALSE(gz.empty()) << "gzip is needed for this test";

    auto write = [&](const char *name, std::vector<unsigned char> bytes) {
        vxtest::writeFileBytes(inputs.file(name), bytes);
        return inputs.file(name);
    };
    auto garbage = gz;
    for (size_t i = 20; i < 200; ++i)
        garbage[i] = static_cast<unsigned char>(0xff - i);
    const std::tuple<std::string, const char *, const char *> rows[] = {
        {write("plain.dcm.gz", payload), "not in gzip or compress format", "plain data"},
        {write("empty.dcm.gz", {}), "empty", "an empty file"},
        {write("half.dcm.gz", {gz.begin(), gz.begin() + long(gz.size() / 2)}), "truncated",
         "half of a gzip file, cut after several blocks"},
        {write("header.dcm.gz", {gz.begin(), gz.begin() + 12}), "", "only the header"},
        {write("corrupt.dcm.gz", garbage), "", "garbage after the gzip header"},
        {inputs.file("missing.gz"), "cannot open", "no such file"},
        {inputs.path().string(), "not a regular file", "a directory"},
        {write("magic.Z", {0x1f, 0x9d}), "", "a compress file of its magic alone"},
    };
    for (const auto &[name, reasonPart, what] : rows) {
        VxGunzip unpacker;
        KcString why;
        EXPECT_FALSE(unpacker.unpack(name.c_str(), &why)) << what;
        EXPECT_TRUE(!why.empty() && why.find(reasonPart) != std::string::npos)
            << what << ": " << why;
        EXPECT_TRUE(unpacker.path().empty() && empty()) << what;
    }
    if (!missing.empty())
        GTEST_SKIP() << "not installed:" << missing << " (compress: Debian package ncompress)";
}
