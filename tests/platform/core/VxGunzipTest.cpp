#include "platform/core/VxGunzip.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

// Each test unpacks into its own $TMPDIR, so that "no temporary file is left"
// is checked by listing it. The payload is 600 kB that do not compress, so a
// cut .gz fails only after several blocks have been unpacked.
class VxGunzipTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        payload.assign(128, 0);
        for (char c : std::string("DICM"))
            payload.push_back(static_cast<unsigned char>(c));
        std::mt19937 random(7);
        for (int i = 0; i < 600000; ++i)
            payload.push_back(static_cast<unsigned char>(random()));
        vxtest::writeFileBytes(plain, payload);
    }

    bool empty() const { return fs::is_empty(tmp.path()); }

    void shell(const std::string &command)
    {
        std::string out;
        ASSERT_EQ(vxtest::runCommand(command, &out, true), 0) << command << ": " << out;
    }

    vxtest::TempDir tmp, inputs;
    vxtest::ScopedEnv tmpdir{"TMPDIR", tmp.path().c_str()};
    std::vector<unsigned char> payload;
    std::string plain = inputs.file("image.dcm");
};

} // namespace

// Files packed by gzip, by Python and by compress come back byte for byte in
// a copy in $TMPDIR that goes away with the object or the next unpack.
TEST_F(VxGunzipTest, UnpacksFilesOfOtherToolsIntoACopyThatGoesAway)
{
    EXPECT_TRUE(VxGunzip::needsUnpacking("ct/IM0001.gz"));
    EXPECT_TRUE(VxGunzip::needsUnpacking("IM0001.Z"));
    for (const char *name : {"IM0001.z", "IM0001.GZ", "IM0001.gzip", "gz"})
        EXPECT_FALSE(VxGunzip::needsUnpacking(name)) << name;
    EXPECT_FALSE(VxGunzip::needsUnpacking(nullptr));

    const std::string q = vxtest::shellQuote(plain);
    const std::pair<const char *, std::string> tools[] = {
        {"gzip", "gzip -c -9 " + q + " > " + q + ".gz"},
        {VX_PYTHON, std::string(VX_PYTHON) +
                        " -c \"import gzip,sys; open(sys.argv[1] + '.gz','wb')"
                        ".write(gzip.compress(open(sys.argv[1],'rb').read(), 1))\" " +
                        q},
        {"compress", "compress -c " + q + " > " + q + ".Z"},
    };
    std::string missing;
    for (const auto &[tool, command] : tools) {
        SCOPED_TRACE(tool);
        if (!vxtest::haveProgram(tool)) {
            missing += std::string(" ") + tool;
            continue;
        }
        shell(command);
        const std::string packed = plain + (std::string(tool) == "compress" ? ".Z" : ".gz");
        std::string first;
        {
            VxGunzip gz;
            KcString why;
            ASSERT_TRUE(gz.unpack(packed.c_str(), &why)) << why;
            first = gz.path();
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
    if (!missing.empty())
        GTEST_SKIP() << "not installed:" << missing << " (compress: Debian package ncompress)";
}

TEST_F(VxGunzipTest, RefusesBadInputWithAReasonAndLeavesNothing)
{
    shell("gzip -k " + vxtest::shellQuote(plain));
    const auto packed = vxtest::readFileBytes(plain + ".gz");
    auto write = [&](const char *name, std::vector<unsigned char> bytes) {
        vxtest::writeFileBytes(inputs.file(name), bytes);
        return inputs.file(name);
    };
    auto garbage = packed;
    for (size_t i = 20; i < 200; ++i)
        garbage[i] = static_cast<unsigned char>(0xff - i);
    struct Row
    {
        std::string name, reasonPart;
        const char *why;
    };
    const Row rows[] = {
        {write("plain.dcm.gz", payload), "not in gzip or compress format", "plain data"},
        {write("empty.dcm.gz", {}), "empty", "an empty file"},
        {write("half.dcm.gz", {packed.begin(), packed.begin() + packed.size() / 2}), "truncated",
         "half of a gzip file, cut after several blocks"},
        {write("header.dcm.gz", {packed.begin(), packed.begin() + 12}), "", "only the header"},
        {write("corrupt.dcm.gz", garbage), "", "garbage after the gzip header"},
        {inputs.file("missing.gz"), "cannot open", "no such file"},
        {inputs.path().string(), "not a regular file", "a directory"},
    };
    for (const Row &r : rows) {
        VxGunzip gz;
        KcString why;
        EXPECT_FALSE(gz.unpack(r.name.c_str(), &why)) << r.why;
        EXPECT_FALSE(why.empty()) << r.why;
        EXPECT_NE(why.find(r.reasonPart), std::string::npos) << r.why << ": " << why;
        EXPECT_TRUE(gz.path().empty()) << r.why;
        EXPECT_TRUE(empty()) << r.why;
    }

    // A compress file of its magic alone is refused.
    if (!vxtest::haveProgram("compress"))
        GTEST_SKIP() << "compress (Debian package ncompress) is not installed";
    shell("compress -c " + vxtest::shellQuote(plain) + " > " + vxtest::shellQuote(plain) + ".Z");
    const auto z = vxtest::readFileBytes(plain + ".Z");
    VxGunzip gz;
    KcString why;
    EXPECT_FALSE(gz.unpack(write("magic.Z", {z.begin(), z.begin() + 2}).c_str(), &why));
    EXPECT_FALSE(why.empty());
    EXPECT_TRUE(empty());
}
