#include "platform/core/VxGunzip.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace fs = std::filesystem;

// Files packed by gzip, by Python and by compress come back byte for byte in a
// copy in $TMPDIR that goes away with the object or the next unpack; bad input
// is refused with a reason. $TMPDIR is private, so that "no temporary file is
// left" is checked by listing it. The payload is 600 kB that do not compress,
// so a cut .gz fails only after several blocks have been unpacked.
TEST(VxGunzipTest, UnpacksFilesOfOtherToolsAndRefusesBadInputLeavingNothing)
{
    vxtest::TempDir tmp, inputs;
    vxtest::ScopedEnv tmpdir{"TMPDIR", tmp.path().c_str()};
    std::vector<unsigned char> payload(128, 0);
    for (char c : std::string("DICM"))
        payload.push_back(static_cast<unsigned char>(c));
    std::mt19937 random(7);
    for (int i = 0; i < 600000; ++i)
        payload.push_back(static_cast<unsigned char>(random()));
    const std::string plain = inputs.file("image.dcm"), q = vxtest::shellQuote(plain);
    vxtest::writeFileBytes(plain, payload);
    auto empty = [&] { return fs::is_empty(tmp.path()); };

    EXPECT_TRUE(VxGunzip::needsUnpacking("ct/IM0001.gz"));
    EXPECT_TRUE(VxGunzip::needsUnpacking("IM0001.Z"));
    for (const char *name : {"IM0001.z", "IM0001.GZ", "IM0001.gzip", "gz"})
        EXPECT_FALSE(VxGunzip::needsUnpacking(name)) << name;
    EXPECT_FALSE(VxGunzip::needsUnpacking(nullptr));

    const std::pair<const char *, std::string> tools[] = {
        {"gzip", "gzip -c -9 " + q + " > " + q + ".gz"},
        {VX_PYTHON, std::string(VX_PYTHON) +
                        " -c \"import gzip,sys; open(sys.argv[1] + '.gz','wb')"
                        ".write(gzip.compress(open(sys.argv[1],'rb').read(), 1))\" " +
                        q},
        {"compress", "compress -c " + q + " > " + q + ".Z"},
    };
    std::string missing;
    std::vector<unsigned char> packedByGzip;
    for (const auto &[tool, command] : tools) {
        SCOPED_TRACE(tool);
        if (!vxtest::haveProgram(tool)) {
            missing += std::string(" ") + tool;
            continue;
        }
        std::string out;
        ASSERT_EQ(vxtest::runCommand(command, &out, true), 0) << command << ": " << out;
        const std::string packed = plain + (std::string(tool) == "compress" ? ".Z" : ".gz");
        if (std::string(tool) == "gzip")
            packedByGzip = vxtest::readFileBytes(packed);
        {
            VxGunzip gz;
            KcString why;
            ASSERT_TRUE(gz.unpack(packed.c_str(), &why)) << why;
            const std::string first = gz.path();
            EXPECT_EQ(fs::path(first).parent_path(), tmp.path());
            EXPECT_EQ(vxtest::readFileBytes(first), payload);
            ASSERT_TRUE(gz.unpack(packed.c_str(), &why)) << why;
            EXPECT_FALSE(fs::exists(first)) << "the second unpack replaces the first copy";
            EXPECT_EQ(vxtest::readFileBytes(gz.path()), payload);
            EXPECT_FALSE(gz.unpack(plain.c_str(), &why)) << "plain input";
            EXPECT_TRUE(gz.path().empty());
            EXPECT_TRUE(empty());
            ASSERT_TRUE(gz.unpack(packed.c_str(), &why)) << why;
        }
        EXPECT_TRUE(empty());
        fs::remove(packed);
    }
    ASSERT_FALSE(packedByGzip.empty()) << "gzip is needed for this test";

    auto write = [&](const char *name, std::vector<unsigned char> bytes) {
        vxtest::writeFileBytes(inputs.file(name), bytes);
        return inputs.file(name);
    };
    const auto &gz = packedByGzip;
    auto garbage = gz;
    for (size_t i = 20; i < 200; ++i)
        garbage[i] = static_cast<unsigned char>(0xff - i);
    const std::tuple<std::string, const char *, const char *> rows[] = {
        {write("plain.dcm.gz", payload), "not in gzip or compress format", "plain data"},
        {write("empty.dcm.gz", {}), "empty", "an empty file"},
        {write("half.dcm.gz", {gz.begin(), gz.begin() + gz.size() / 2}), "truncated",
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
        EXPECT_FALSE(why.empty()) << what;
        EXPECT_NE(why.find(reasonPart), std::string::npos) << what << ": " << why;
        EXPECT_TRUE(unpacker.path().empty()) << what;
        EXPECT_TRUE(empty()) << what;
    }
    if (!missing.empty())
        GTEST_SKIP() << "not installed:" << missing << " (compress: Debian package ncompress)";
}
