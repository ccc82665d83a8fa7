// Headers claiming more memory than any machine has are refused before anything of that size
// is allocated (the largest allocation of the load is watched); the intact series still loads.

#include "tests/hostile/AllocationWatch.h"
#include "tests/hostile/Hostile.h"

#include "platform/dicom/dicom.h"

#include <gtest/gtest.h>

using namespace hostile;

namespace {

constexpr size_t kAllowedAllocation = size_t(256) << 20;

class ResourceLimits : public ::testing::Test
{
protected:
    void SetUp() override
    {
        VX_REQUIRE_SHARED_DATA();
        series = vxtest::sharedDicomFiles(kSeriesDir);
        source = vxtest::readFileBytes(vxtest::sharedPath(kSource));
    }
    void TearDown() override { dicom::dicomSetMemoryLimit(0); }

    std::string write(const std::string &name, const Bytes &bytes)
    {
        return vxtest::writeFileBytes(dir.file(name), bytes), dir.file(name);
    }

    // The series with the broken files (name, refusal) in both reading modes.
    void expectRefused(const std::vector<std::pair<std::string, std::string>> &broken)
    {
        std::vector<std::string> names = series;
        for (const auto &b : broken)
            names.push_back(b.first);
        for (bool delayed : {true, false}) {
            SCOPED_TRACE(delayed ? "header only" : "all pixels");
            resetLargestAllocation();
            const LoadOutcome outcome = loadFiles(names, delayed);
            EXPECT_LT(largestAllocation(), kAllowedAllocation);
            for (const auto &[name, reason] : broken)
                EXPECT_NE(failureLine(outcome.console, name).find(reason), std::string::npos)
                    << name << ": " << reason << "\n"
                    << outcome.console;
            ASSERT_GE(outcome.fields.size(), 1u) << outcome.console;
            EXPECT_EQ(outcome.fields[0].rfind("5 x 42 x 64,", 0), 0u);
        }
    }

    vxtest::TempDir dir;
    std::vector<std::string> series;
    Bytes source;
};

Bytes withImage(Bytes file, uint16_t rows, uint16_t columns, uint16_t samples)
{
    file = withUS(withUS(file, 0x0028, 0x0010, rows), 0x0028, 0x0011, columns);
    file = withUS(withUS(file, 0x0028, 0x0002, samples), 0x0028, 0x0100, 8);
    return withUS(withUS(file, 0x0028, 0x0101, 8), 0x0028, 0x0102, 7);
}

// 65535 x 65535 pixels of four samples, native, RLE, JPEG-LS, JPEG 2000; RLE frames of 1 GiB
// from 66-byte fragments; lengths claiming gigabytes, also deflated (found by fuzzing); a
// memory limit on real volumes.
TEST_F(ResourceLimits, HeadersClaimingGigabytesAndVolumesOverTheMemoryLimitAreRefused)
{
    std::vector<std::string> huge = {write("huge_native.dcm", withImage(source, 65535, 65535, 4))};
    for (const char *name : {"4.dcm", "7.dcm", "9.dcm"})
        huge.push_back(write(std::string("huge_") + name,
                             withImage(vxtest::readFileBytes(
                                           vxtest::sharedPath(std::string("dcm_qa_ts/In/") + name)),
                                       65535, 65535, 4)));
    std::vector<std::pair<std::string, std::string>> reasons;
    for (const std::string &h : huge)
        reasons.push_back({h, "a frame of 65535x65535 pixels is too large"});

    const Bytes rle = vxtest::readFileBytes(vxtest::sharedPath("dcm_qa_ts/In/4.dcm"));
    for (int frames : {1, 64}) {
        Bytes file = withImage(rle, 32768, 32768, 1);
        if (frames > 1)
            file = insertedBefore(file, 0x0028, 0x0010,
                                  encodeElement(0x0028, 0x0008, "IS", text("64")));
        file.resize(findElement(file, 0x7FE0, 0x0010).value);
        append(file, encodeItem({})); // empty offset table
        Bytes frame(66, 0);           // one segment, right after the header, one replicate run
        put(frame, 0, 1, 4), put(frame, 4, 64, 4), frame[64] = 0x81;
        for (int k = 0; k < frames; ++k)
            append(file, encodeItem(frame));
        const std::string path =
            write("rle" + std::to_string(frames) + ".dcm", file + sequenceDelimiter());
        reasons.push_back({path, "RLE data of " + std::to_string(66 * frames) +
                                     " bytes cannot hold " + std::to_string(frames) +
                                     " frame(s) of 1073741824 bytes"});
    }
    // A length of 3 GB, plain and deflated; the fuzzer's input: a second tag claiming 0xBDBDBDBD.
    Bytes claim = encodeElement(0x0009, 0x1001, "OB", Bytes(8, 0xBD));
    put(claim, 8, 0xC0000000u, 4);
    const Bytes dataSet = encodeElement(0x0008, 0x0060, "CS", text("MR")) +
                          encodeElement(0x0009, 0x0010, "LO", text("VXTEST")) + claim;
    const std::string mr = "1.2.840.10008.5.1.4.1.1.4";
    for (const std::string &f :
         {write("claim.dcm", part10File(mr, "1.2.840.10008.1.2.1", dataSet)),
          write("claim_deflated.dcm", part10File(mr, "1.2.840.10008.1.2.1.99", deflate(dataSet))),
          write("fuzz_oom.dcm", {0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xBD, 0x55, 0x53,
                                 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD})})
        reasons.push_back({f, "cannot extract DICOM information from: "});
    expectRefused(reasons);

    // A limit of 1 MiB turns away a 35-slice series before its volume is allocated and a
    // 520-frame enhanced file when its pixels are read; the small series loads.
    dicom::dicomSetMemoryLimit(uint64_t(1) << 20);
    std::vector<std::string> names = series,
                             big =
                                 vxtest::sharedDicomFiles("dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag");
    ASSERT_EQ(big.size(), 35u);
    const std::string enhanced = vxtest::sharedPath("dcm_qa_canon_61/In/enh/8000.dcm");
    names.insert(names.end(), big.begin(), big.end());
    names.push_back(enhanced);
    for (bool delayed : {true, false}) {
        resetLargestAllocation();
        const LoadOutcome outcome = loadFiles(names, delayed);
        EXPECT_LT(largestAllocation(), 4587520u) << "the refused volume was allocated";
        EXPECT_NE(outcome.console.find("its samples need 4587520 bytes, more than the memory "
                                       "limit of 1048576 bytes"),
                  std::string::npos)
            << outcome.console;
        EXPECT_TRUE(delayed || failureLine(outcome.console, enhanced)
                                       .find("520 frame(s) of 12800 bytes exceed the memory "
                                             "limit of 1048576") != std::string::npos)
            << outcome.console;
        ASSERT_GE(outcome.fields.size(), 1u) << outcome.console;
        EXPECT_EQ(outcome.fields[0].rfind("5 x 42 x 64,", 0), 0u);
    }
}

// The watch itself: a request it cannot miss.
TEST(AllocationWatchCheck, SeesALargeRequest)
{
    resetLargestAllocation();
    void *volatile p = std::malloc(kAllowedAllocation + 1);
    std::free(p);
    EXPECT_GE(largestAllocation(), kAllowedAllocation + 1);
}

} // namespace
