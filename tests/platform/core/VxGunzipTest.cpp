#include "platform/core/VxGunzip.h"
#include "tests/support/TestSupport.h"

#include <random>

namespace fs = std::filesystem;

// gzip and compress files unpack into a private $TMPDIR; bad input is refused; nothing is left.
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
    EXPECT_TRUE(VxGunzip::needsUnpacking("IM0001.Z") && !VxGunzip::needsUnpacking("IM0001.GZ"));

    std::string missing;
    for (const std::string tool : {"gzip", "compress"}) {
        const std::string packed = plain + (tool == "gzip" ? ".gz" : ".Z");
        if (!vxtest::haveProgram(tool)) {
            missing += " " + tool;
            continue;
        }
        ASSERT_EQ(vxtest::runCommand(tool + " -c " + q + " > " + vxtest::shellQuote(packed)), 0);
        gz = tool == "gzip" ? vxtest::readFileBytes(packed) : gz;
        {
            VxGunzip unpacker;
            KcString why;
            ASSERT_TRUE(unpacker.unpack(packed.c_str(), &why)) << why;
            const std::string first = unpacker.path();
            EXPECT_EQ(fs::path(first).parent_path(), tmp.path());
            EXPECT_EQ(vxtest::readFileBytes(first), payload) << tool;
            ASSERT_TRUE(unpacker.unpack(packed.c_str(), &why)) << why;
            EXPECT_FALSE(fs::exists(first)) << "the second unpack replaces the first copy";
            EXPECT_FALSE(unpacker.unpack(plain.c_str(), &why) || !unpacker.path().empty() ||
                         !empty());
            ASSERT_TRUE(unpacker.unpack(packed.c_str(), &why)) << why;
        }
        EXPECT_TRUE(empty()) << tool;
    }
    ASSERT_FALSE(gz.empty()) << "gzip is needed for this test";

    auto write = [&](const char *name, std::vector<unsigned char> bytes) {
        vxtest::writeFileBytes(inputs.file(name), bytes);
        return inputs.file(name);
    };
    auto garbage = gz;
    for (size_t i = 20; i < 200; ++i)
        garbage[i] = static_cast<unsigned char>(0xff - i);
    for (const auto &[name, reasonPart] :
         std::initializer_list<std::pair<std::string, const char *>>{
             {write("plain.dcm.gz", payload), "not in gzip or compress format"},
             {write("empty.dcm.gz", {}), "empty"},
             {write("half.dcm.gz", {gz.begin(), gz.begin() + long(gz.size() / 2)}), "truncated"},
             {write("header.dcm.gz", {gz.begin(), gz.begin() + 12}), ""},
             {write("corrupt.dcm.gz", garbage), ""},
             {inputs.file("missing.gz"), "cannot open"},
             {inputs.path().string(), "not a regular file"},
             {write("magic.Z", {0x1f, 0x9d}), ""}}) {
        VxGunzip unpacker;
        KcString why;
        EXPECT_FALSE(unpacker.unpack(name.c_str(), &why)) << name;
        EXPECT_TRUE(why.find(reasonPart) != std::string::npos && !why.empty())
            << name << ": " << why;
        EXPECT_TRUE(unpacker.path().empty() && empty()) << name;
    }
    if (!missing.empty())
        GTEST_SKIP() << "not installed:" << missing << " (compress: Debian package ncompress)";
}
