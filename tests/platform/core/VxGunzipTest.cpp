#include "platform/core/VxGunzip.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

// Each test unpacks into its own $TMPDIR, so "no temporary file is left"
// can be checked by listing that directory.
class VxGunzipTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const char *old = std::getenv("TMPDIR");
        hadTmpdir = old != nullptr;
        if (old)
            oldTmpdir = old;
        setenv("TMPDIR", tmp.path().c_str(), 1);

        // 200 kB of mixed content: a DICOM-like preamble and a repeating
        // ramp that compresses well, so the packed files are small but real.
        payload.assign(128, 0);
        for (char c : std::string("DICM"))
            payload.push_back(static_cast<unsigned char>(c));
        for (int i = 0; i < 200000; ++i)
            payload.push_back(static_cast<unsigned char>((i * 7 + i / 251) & 0xff));
        plain = inputs.file("image.dcm");
        vxtest::writeFileBytes(plain, payload);
    }
    void TearDown() override
    {
        if (hadTmpdir)
            setenv("TMPDIR", oldTmpdir.c_str(), 1);
        else
            unsetenv("TMPDIR");
    }

    std::vector<std::string> leftovers() const
    {
        std::vector<std::string> names;
        for (const auto &e : fs::directory_iterator(tmp.path()))
            names.push_back(e.path().filename().string());
        return names;
    }

    std::string shell(const std::string &command)
    {
        std::string out;
        EXPECT_EQ(vxtest::runCommand(command, &out, true), 0) << command << ": " << out;
        return out;
    }

    vxtest::TempDir tmp;
    vxtest::TempDir inputs;
    std::vector<unsigned char> payload;
    std::string plain;
    bool hadTmpdir = false;
    std::string oldTmpdir;
};

} // namespace

TEST(VxGunzipNames, OnlyGzAndZSuffixesNeedUnpacking)
{
    EXPECT_TRUE(VxGunzip::needsUnpacking("ct/IM0001.gz"));
    EXPECT_TRUE(VxGunzip::needsUnpacking("IM0001.Z"));
    EXPECT_FALSE(VxGunzip::needsUnpacking("IM0001.z")) << "compress files are .Z, upper case";
    EXPECT_FALSE(VxGunzip::needsUnpacking("IM0001.GZ"));
    EXPECT_FALSE(VxGunzip::needsUnpacking("IM0001.gzip"));
    EXPECT_FALSE(VxGunzip::needsUnpacking("gz"));
    EXPECT_FALSE(VxGunzip::needsUnpacking(nullptr));
}

TEST_F(VxGunzipTest, UnpacksFileMadeByGzipAndRemovesTheCopyOnDestruction)
{
    shell("gzip -k -9 '" + plain + "'");
    std::string unpacked;
    {
        VxGunzip gz;
        KcString why;
        ASSERT_TRUE(gz.unpack((plain + ".gz").c_str(), &why)) << why;
        unpacked = gz.path();
        EXPECT_EQ(fs::path(unpacked).parent_path(), tmp.path());
        EXPECT_EQ(vxtest::readFileBytes(unpacked), payload);
    }
    EXPECT_FALSE(fs::exists(unpacked));
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(VxGunzipTest, UnpacksFileMadeByPythonGzip)
{
    if (!vxtest::haveProgram(VX_PYTHON))
        GTEST_SKIP() << VX_PYTHON << " is not installed";
    const std::string packed = inputs.file("py.dcm.gz");
    shell(std::string(VX_PYTHON) +
          " -c \"import gzip,sys; "
          "open(sys.argv[2],'wb').write(gzip.compress(open(sys.argv[1],'rb').read(), 1))\" '" +
          plain + "' '" + packed + "'");
    VxGunzip gz;
    KcString why;
    ASSERT_TRUE(gz.unpack(packed.c_str(), &why)) << why;
    EXPECT_EQ(vxtest::readFileBytes(gz.path()), payload);
    gz.remove();
    EXPECT_TRUE(gz.path().empty());
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(VxGunzipTest, UnpacksUnixCompressFile)
{
    if (!vxtest::haveProgram("compress"))
        GTEST_SKIP() << "compress (Debian package ncompress) is not installed";
    shell("compress -c '" + plain + "' > '" + plain + ".Z'");
    VxGunzip gz;
    KcString why;
    ASSERT_TRUE(gz.unpack((plain + ".Z").c_str(), &why)) << why;
    EXPECT_EQ(vxtest::readFileBytes(gz.path()), payload);
    gz.remove();
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(VxGunzipTest, SecondUnpackReplacesTheFirstCopy)
{
    shell("gzip -k '" + plain + "'");
    VxGunzip gz;
    ASSERT_TRUE(gz.unpack((plain + ".gz").c_str()));
    const std::string first = gz.path();
    ASSERT_TRUE(gz.unpack((plain + ".gz").c_str()));
    EXPECT_FALSE(fs::exists(first));
    EXPECT_EQ(leftovers().size(), 1u);
    KcString why;
    EXPECT_FALSE(gz.unpack(plain.c_str(), &why)) << "plain input";
    EXPECT_TRUE(gz.path().empty());
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(VxGunzipTest, RefusesBadInputWithAReasonAndLeavesNothing)
{
    shell("gzip -k '" + plain + "'");
    const auto packed = vxtest::readFileBytes(plain + ".gz");

    const std::string empty = inputs.file("empty.dcm.gz");
    vxtest::writeFileBytes(empty, {});

    const std::string truncated = inputs.file("truncated.dcm.gz");
    vxtest::writeFileBytes(
        truncated, std::vector<unsigned char>(packed.begin(), packed.begin() + packed.size() / 2));

    const std::string headerOnly = inputs.file("header.dcm.gz");
    vxtest::writeFileBytes(headerOnly,
                           std::vector<unsigned char>(packed.begin(), packed.begin() + 12));

    // Compressed data replaced by garbage after a valid gzip header.
    auto garbage = packed;
    for (size_t i = 20; i < 200 && i < garbage.size(); ++i)
        garbage[i] = static_cast<unsigned char>(0xff - i);
    const std::string corrupt = inputs.file("corrupt.dcm.gz");
    vxtest::writeFileBytes(corrupt, garbage);

    const std::string plainNamedGz = inputs.file("plain.dcm.gz");
    vxtest::writeFileBytes(plainNamedGz, payload);

    struct Row
    {
        std::string name;
        std::string reasonPart;
        const char *why;
    };
    const Row rows[] = {
        {plainNamedGz, "not in gzip or compress format", "plain data is refused, not copied"},
        {empty, "empty", "an empty file has nothing to unpack"},
        {truncated, "truncated", "half of a gzip file"},
        {headerOnly, "", "only the gzip header"},
        {corrupt, "", "garbage after the gzip header"},
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
        EXPECT_TRUE(leftovers().empty()) << r.why;
    }
}

TEST_F(VxGunzipTest, CompressFileCutShortGivesTheShorterDataOrARefusal)
{
    if (!vxtest::haveProgram("compress"))
        GTEST_SKIP() << "compress (Debian package ncompress) is not installed";
    shell("compress -c '" + plain + "' > '" + plain + ".Z'");
    const auto packed = vxtest::readFileBytes(plain + ".Z");

    // The magic number alone carries no data.
    const std::string magicOnly = inputs.file("magic.Z");
    vxtest::writeFileBytes(magicOnly,
                           std::vector<unsigned char>(packed.begin(), packed.begin() + 2));
    {
        VxGunzip gz;
        KcString why;
        EXPECT_FALSE(gz.unpack(magicOnly.c_str(), &why));
        EXPECT_FALSE(why.empty());
        EXPECT_TRUE(leftovers().empty());
    }

    // Half a file: the format cannot tell, so the result is a true prefix of
    // the original, never garbage, and the copy still goes away.
    const std::string half = inputs.file("half.Z");
    vxtest::writeFileBytes(
        half, std::vector<unsigned char>(packed.begin(), packed.begin() + packed.size() / 2));
    {
        VxGunzip gz;
        KcString why;
        if (gz.unpack(half.c_str(), &why)) {
            const auto got = vxtest::readFileBytes(gz.path());
            EXPECT_LT(got.size(), payload.size());
            EXPECT_TRUE(std::equal(got.begin(), got.end(), payload.begin()));
        }
    }
    EXPECT_TRUE(leftovers().empty());
}
