// Headers that claim more memory than any machine has are refused with a
// message before anything of that size is allocated (the largest allocation
// of the whole load is watched); the intact series of the load still loads.

#include "tests/hostile/AllocationWatch.h"
#include "tests/hostile/Hostile.h"

#include "platform/dicom/dicom.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

using namespace hostile;

namespace {

// Far more than the real images need, far less than the broken headers claim.
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
        vxtest::writeFileBytes(dir.file(name), bytes);
        return dir.file(name);
    }

    // Loads the series with the broken files (name -> refusal) in both reading
    // modes: each refusal is named, the series gives its field, and no
    // allocation reaches the limit.
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
            const int *d = outcome.fields[0].dims;
            EXPECT_EQ(d[0] * d[1] * d[2], 5 * 42 * 64);
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

// 65535 x 65535 pixels of four samples (17 GB a frame), native, RLE, JPEG-LS,
// JPEG 2000; RLE frames of 1 GiB from 66-byte fragments (one replicate run
// gives 128 bytes at most).
TEST_F(ResourceLimits, FramesClaimingGigabytesAreRefusedBeforeAllocation)
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
        for (int k = 0; k < frames; ++k) {
            Bytes frame(64, 0);
            put32(frame, 0, 1);  // one segment
            put32(frame, 4, 64); // right after the header
            frame.insert(frame.end(), {0x81, 0x00});
            append(file, encodeItem(frame));
        }
        append(file, sequenceDelimiter());
        const std::string path = write("rle" + std::to_string(frames) + ".dcm", file);
        reasons.push_back({path, "RLE data of " + std::to_string(66 * frames) +
                                     " bytes cannot hold " + std::to_string(frames) +
                                     " frame(s) of 1073741824 bytes"});
    }
    expectRefused(reasons);
}

// Native slices of 1 GiB each (sparse files, true headers), one more than the
// memory limit holds: the header-only load makes one stack of them, whose
// field is refused before its volume is allocated.
TEST_F(ResourceLimits, StackLargerThanTheMemoryLimitIsRefusedBeforeItsVolumeIsAllocated)
{
    const uint64_t slice = uint64_t(1) << 30;
    const int count = int(dicom::dicomMemoryLimit() / slice) + 2;
    ASSERT_LT(count, 4096);
    Bytes header = withUS(withImage(source, 32768, 32768, 1), 0x0028, 0x0103, 0);
    header = withLength(header, 0x7FE0, 0x0010, uint32_t(slice));
    header.resize(findElement(header, 0x7FE0, 0x0010).value);
    const Element o = findElement(header, 0x0020, 0x0037);
    double r[3], c[3];
    ASSERT_EQ(std::sscanf(std::string(header.begin() + long(o.value),
                                      header.begin() + long(o.value + o.length))
                              .c_str(),
                          "%lf\\%lf\\%lf\\%lf\\%lf\\%lf", &r[0], &r[1], &r[2], &c[0], &c[1], &c[2]),
              6);
    const double n[3] = {r[1] * c[2] - r[2] * c[1], r[2] * c[0] - r[0] * c[2],
                         r[0] * c[1] - r[1] * c[0]};
    std::vector<std::string> names = series;
    for (int k = 0; k < count; ++k) {
        char position[96];
        std::snprintf(position, sizeof position, "%.4f\\%.4f\\%.4f", k * n[0], k * n[1], k * n[2]);
        Bytes file = withText(header, 0x0020, 0x0013, std::to_string(k + 1));
        file =
            withText(withText(file, 0x0020, 0x0032, position), 0x0020, 0x1041, std::to_string(k));
        names.push_back(write("slice" + std::to_string(k) + ".dcm", file));
        std::filesystem::resize_file(names.back(), file.size() + slice);
    }
    resetLargestAllocation();
    const LoadOutcome outcome = loadFiles(names, true);
    EXPECT_LT(largestAllocation(), kAllowedAllocation);
    EXPECT_NE(outcome.console.find("its samples need " + std::to_string(slice * count) +
                                   " bytes, more than the memory limit of " +
                                   std::to_string(dicom::dicomMemoryLimit()) + " bytes"),
              std::string::npos)
        << outcome.console;
    ASSERT_EQ(outcome.fields.size(), 1u) << outcome.console;
}

// A limit of 1 MiB turns away a 35-slice series (4.6 MB) and a 520-frame
// enhanced file (6.6 MB, refused when its pixels are read); the 27 KB series loads.
TEST_F(ResourceLimits, MemoryLimitAppliesToRealVolumes)
{
    dicom::dicomSetMemoryLimit(uint64_t(1) << 20);
    std::vector<std::string> big =
        vxtest::sharedDicomFiles("dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag");
    ASSERT_EQ(big.size(), 35u);
    const std::string enhanced = vxtest::sharedPath("dcm_qa_canon_61/In/enh/8000.dcm");
    std::vector<std::string> names = series;
    names.insert(names.end(), big.begin(), big.end());
    names.push_back(enhanced);
    for (bool delayed : {true, false}) {
        const LoadOutcome outcome = loadFiles(names, delayed);
        EXPECT_NE(outcome.console.find("its samples need 4587520 bytes, more than the memory "
                                       "limit of 1048576 bytes"),
                  std::string::npos)
            << outcome.console;
        EXPECT_TRUE(delayed || failureLine(outcome.console, enhanced)
                                       .find("520 frame(s) of 12800 bytes exceed the memory "
                                             "limit of 1048576") != std::string::npos)
            << outcome.console;
        ASSERT_GE(outcome.fields.size(), 1u) << outcome.console;
        const int *d = outcome.fields[0].dims;
        EXPECT_EQ(d[0] * d[1] * d[2], 5 * 42 * 64);
    }
}

// Found by fuzzing: a length claiming gigabytes made DCMTK allocate it before
// reading the value, in a deflated data set as well; the minimised input is a
// bare data set whose second tag claims 0xBDBDBDBD bytes.
TEST_F(ResourceLimits, LengthFieldsClaimingGigabytesAllocateNothingOfThatSize)
{
    Bytes dataSet = encodeElement(0x0008, 0x0060, "CS", text("MR"));
    append(dataSet, encodeElement(0x0009, 0x0010, "LO", text("VXTEST")));
    Bytes claim = encodeElement(0x0009, 0x1001, "OB", Bytes(8, 0xBD));
    put32(claim, 8, 0xC0000000u);
    append(dataSet, claim);
    const std::string mr = "1.2.840.10008.5.1.4.1.1.4";
    const std::vector<std::string> files = {
        write("claim.dcm", part10File(mr, "1.2.840.10008.1.2.1", dataSet)),
        write("claim_deflated.dcm", part10File(mr, "1.2.840.10008.1.2.1.99", deflate(dataSet))),
        write("fuzz_oom.dcm", {0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xBD, 0x55, 0x53,
                               0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD})};
    std::vector<std::pair<std::string, std::string>> reasons;
    for (const std::string &f : files)
        reasons.push_back({f, "cannot extract DICOM information from: "});
    expectRefused(reasons);
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
