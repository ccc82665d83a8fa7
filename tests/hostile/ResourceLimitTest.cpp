// Files whose headers claim more memory than any machine has are refused
// with a message before anything of the claimed size is allocated: the
// largest allocation of the whole load is watched. The intact series of the
// same load still gives its field.

#include "tests/hostile/AllocationWatch.h"
#include "tests/hostile/BrokenFiles.h"
#include "tests/hostile/HostileLoad.h"
#include "tests/support/TestSupport.h"

#include "platform/dicom/dicom.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

using namespace hostile;

namespace {

// Far more than the loads below need for their real images (a few MB), far
// less than anything the broken headers claim.
constexpr size_t kAllowedAllocation = size_t(256) << 20;

class ResourceLimits : public ::testing::Test
{
protected:
    void SetUp() override
    {
        VX_REQUIRE_SHARED_DATA();
        series = vxtest::sharedDicomFiles(kSeriesDir);
        ASSERT_EQ(series.size(), 5u);
        source = vxtest::readFileBytes(vxtest::sharedPath(kSource));
    }
    void TearDown() override { dicom::dicomSetMemoryLimit(0); }

    std::string write(const std::string &name, const Bytes &bytes)
    {
        const std::string path = dir.file(name);
        vxtest::writeFileBytes(path, bytes);
        return path;
    }

    // Loads the series with `broken`, header only and with all pixels; each
    // broken file must be named with `reason`, the series must give its 5 x
    // 42 x 64 field, and no allocation may reach kAllowedAllocation.
    void expectRefusedWithoutAllocating(const std::vector<std::string> &broken,
                                        const std::string &reason)
    {
        std::vector<std::string> names = series;
        names.insert(names.end(), broken.begin(), broken.end());
        for (bool delayed : {true, false}) {
            SCOPED_TRACE(delayed ? "header only" : "all pixels");
            resetLargestAllocation();
            const LoadOutcome outcome = loadFiles(names, delayed);
            EXPECT_LT(largestAllocation(), kAllowedAllocation);
            for (const std::string &name : broken) {
                const std::string line = failureLine(outcome.console, name);
                EXPECT_NE(line.find(reason), std::string::npos)
                    << name << ": \"" << reason << "\" expected in:\n"
                    << outcome.console;
            }
            ASSERT_GE(outcome.fields.size(), 1u) << outcome.console;
            EXPECT_EQ(outcome.fields[0].dims[0], 5);
            EXPECT_EQ(outcome.fields[0].dims[1], 42);
            EXPECT_EQ(outcome.fields[0].dims[2], 64);
        }
    }

    vxtest::TempDir dir;
    std::vector<std::string> series;
    Bytes source;
};

// 65535 x 65535 pixels of four 8-bit samples: 17 GB for one frame.
Bytes claimHugeFrame(Bytes file)
{
    file = withUS(file, 0x0028, 0x0010, 65535);
    file = withUS(file, 0x0028, 0x0011, 65535);
    file = withUS(file, 0x0028, 0x0002, 4);
    file = withUS(file, 0x0028, 0x0100, 8);
    file = withUS(file, 0x0028, 0x0101, 8);
    return withUS(file, 0x0028, 0x0102, 7);
}

TEST_F(ResourceLimits, FrameOf65535By65535PixelsOfFourSamplesIsRefusedBeforeAllocation)
{
    std::vector<std::string> broken = {write("huge_native.dcm", claimHugeFrame(source))};
    for (const char *name : {"4.dcm", "7.dcm", "9.dcm"}) { // RLE, JPEG-LS, JPEG 2000
        const Bytes file =
            vxtest::readFileBytes(vxtest::sharedPath(std::string("dcm_qa_ts/In/") + name));
        broken.push_back(write(std::string("huge_") + name, claimHugeFrame(file)));
    }
    expectRefusedWithoutAllocating(broken, "a frame of 65535x65535 pixels is too large");
}

// RLE frames of 32768 x 32768 8-bit pixels (1 GiB each) from fragments of
// 66 bytes: a valid RLE header and one replicate run, which can never
// decode to that much (two bytes give 128 at most).
Bytes claimRleFrames(const Bytes &rle, int frames)
{
    Bytes file = withUS(rle, 0x0028, 0x0010, 32768);
    file = withUS(file, 0x0028, 0x0011, 32768);
    file = withUS(file, 0x0028, 0x0100, 8);
    file = withUS(file, 0x0028, 0x0101, 8);
    file = withUS(file, 0x0028, 0x0102, 7);
    if (frames > 1)
        file =
            insertedBefore(file, 0x0028, 0x0010,
                           encodeElement(0x0028, 0x0008, "IS",
                                         {uint8_t('0' + frames / 10), uint8_t('0' + frames % 10)}));
    const Element pixels = findElement(file, 0x7FE0, 0x0010);
    file.resize(pixels.value);
    Bytes fragments = encodeItem({}); // empty basic offset table
    for (int k = 0; k < frames; ++k) {
        Bytes frame(64, 0);
        put32(frame, 0, 1);                      // one segment
        put32(frame, 4, 64);                     // right after the header
        frame.insert(frame.end(), {0x81, 0x00}); // 128 zero bytes, then nothing
        const Bytes item = encodeItem(frame);
        fragments.insert(fragments.end(), item.begin(), item.end());
    }
    const Bytes end = sequenceDelimiter();
    fragments.insert(fragments.end(), end.begin(), end.end());
    file.insert(file.end(), fragments.begin(), fragments.end());
    return file;
}

TEST_F(ResourceLimits, RleFramesClaimingMoreThanTheirDataCanHoldAreRefusedBeforeAllocation)
{
    const Bytes rle = vxtest::readFileBytes(vxtest::sharedPath("dcm_qa_ts/In/4.dcm"));
    const std::string one = write("rle_1g.dcm", claimRleFrames(rle, 1));
    const std::string many = write("rle_64g.dcm", claimRleFrames(rle, 64));
    expectRefusedWithoutAllocating(
        {one}, "RLE data of 66 bytes cannot hold 1 frame(s) of 1073741824 bytes");
    expectRefusedWithoutAllocating(
        {many}, "RLE data of 4224 bytes cannot hold 64 frame(s) of 1073741824 bytes");
}

// A series of native slices of 32768 x 32768 8-bit pixels, 1 GiB each, with
// one slice more than the memory limit holds: the files are real (sparse)
// and their headers true, so the header-only load makes one stack of them,
// whose field is refused before its volume is allocated. (Read with their
// pixels, every slice on its own fits the limit and would really be read.)
TEST_F(ResourceLimits, StackLargerThanTheMemoryLimitIsRefusedBeforeItsVolumeIsAllocated)
{
    const uint64_t slice = uint64_t(1) << 30;
    const int count = int(dicom::dicomMemoryLimit() / slice) + 2;
    ASSERT_LT(count, 4096) << "a machine with more than 4 TiB";
    Bytes header = withUS(source, 0x0028, 0x0010, 32768);
    header = withUS(header, 0x0028, 0x0011, 32768);
    header = withUS(header, 0x0028, 0x0100, 8);
    header = withUS(header, 0x0028, 0x0101, 8);
    header = withUS(header, 0x0028, 0x0102, 7);
    header = withUS(header, 0x0028, 0x0103, 0);
    header = withLength(header, 0x7FE0, 0x0010, uint32_t(slice));
    header.resize(findElement(header, 0x7FE0, 0x0010).value);
    // Slices 1 mm apart along the normal of the file's orientation.
    const Element orientation = findElement(header, 0x0020, 0x0037);
    const std::string cosines(header.begin() + long(orientation.value),
                              header.begin() + long(orientation.value + orientation.length));
    double r[3], c[3];
    ASSERT_EQ(std::sscanf(cosines.c_str(), "%lf\\%lf\\%lf\\%lf\\%lf\\%lf", &r[0], &r[1], &r[2],
                          &c[0], &c[1], &c[2]),
              6);
    const double normal[3] = {r[1] * c[2] - r[2] * c[1], r[2] * c[0] - r[0] * c[2],
                              r[0] * c[1] - r[1] * c[0]};
    std::vector<std::string> names = series;
    for (int k = 0; k < count; ++k) {
        char position[96];
        std::snprintf(position, sizeof position, "%.4f\\%.4f\\%.4f", k * normal[0], k * normal[1],
                      k * normal[2]);
        Bytes file = withText(header, 0x0020, 0x0013, std::to_string(k + 1));
        file = withText(file, 0x0020, 0x0032, position);
        file = withText(file, 0x0020, 0x1041, std::to_string(k));
        const std::string path = write("slice" + std::to_string(k) + ".dcm", file);
        std::filesystem::resize_file(path, file.size() + slice);
        names.push_back(path);
    }
    resetLargestAllocation();
    const LoadOutcome outcome = loadFiles(names, true);
    EXPECT_LT(largestAllocation(), kAllowedAllocation);
    const std::string refusal = "its samples need " + std::to_string(slice * count) +
                                " bytes, more than the memory limit of " +
                                std::to_string(dicom::dicomMemoryLimit()) + " bytes";
    EXPECT_NE(outcome.console.find(refusal), std::string::npos) << outcome.console;
    ASSERT_EQ(outcome.fields.size(), 1u) << outcome.console;
    EXPECT_EQ(outcome.fields[0].dims[0] * outcome.fields[0].dims[1] * outcome.fields[0].dims[2],
              5 * 42 * 64);
}

// A lower limit turns real files away the same way: a 35-slice series of
// 256 x 256 16-bit samples (4.6 MB) and a 520-frame enhanced file (6.6 MB)
// against a limit of 1 MiB, while the 27 KB series still loads.
TEST_F(ResourceLimits, MemoryLimitAppliesToRealVolumes)
{
    dicom::dicomSetMemoryLimit(uint64_t(1) << 20);
    const std::vector<std::string> big =
        vxtest::sharedDicomFiles("dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag");
    ASSERT_EQ(big.size(), 35u);
    const std::string enhanced = vxtest::sharedPath("dcm_qa_canon_61/In/enh/8000.dcm");
    std::vector<std::string> names = series;
    names.insert(names.end(), big.begin(), big.end());
    names.push_back(enhanced);
    for (bool delayed : {true, false}) {
        SCOPED_TRACE(delayed ? "header only" : "all pixels");
        const LoadOutcome outcome = loadFiles(names, delayed);
        EXPECT_NE(outcome.console.find("its samples need 4587520 bytes, more than the memory "
                                       "limit of 1048576 bytes"),
                  std::string::npos)
            << outcome.console;
        if (!delayed) {
            EXPECT_NE(failureLine(outcome.console, enhanced)
                          .find("520 frame(s) of 12800 bytes exceed the memory limit of 1048576"),
                      std::string::npos)
                << outcome.console;
        }
        ASSERT_GE(outcome.fields.size(), 1u) << outcome.console;
        EXPECT_EQ(outcome.fields[0].dims[0] * outcome.fields[0].dims[1] * outcome.fields[0].dims[2],
                  5 * 42 * 64);
    }
}

// Found by fuzzing: a length field claiming gigabytes made DCMTK allocate
// the claimed size before reading the value, from a file of a few hundred
// bytes; in a deflated data set as well.
TEST_F(ResourceLimits, LengthFieldsClaimingGigabytesAllocateNothingOfThatSize)
{
    Bytes dataSet = encodeElement(0x0008, 0x0060, "CS", {'M', 'R'});
    const Bytes creator =
        encodeElement(0x0009, 0x0010, "LO", {'V', 'X', 'T', 'E', 'S', 'T', ' ', ' '});
    dataSet.insert(dataSet.end(), creator.begin(), creator.end());
    Bytes claim = encodeElement(0x0009, 0x1001, "OB", Bytes(8, 0xBD));
    put32(claim, 8, 0xC0000000u); // 3 GiB
    dataSet.insert(dataSet.end(), claim.begin(), claim.end());
    const std::string mrClass = "1.2.840.10008.5.1.4.1.1.4";
    const std::string plain =
        write("claim.dcm", part10File(mrClass, "1.2.840.10008.1.2.1", dataSet));
    const std::string deflated = write(
        "claim_deflated.dcm", part10File(mrClass, "1.2.840.10008.1.2.1.99", deflate(dataSet)));
    // The input the fuzzer found, minimised: a bare data set whose second
    // tag claims 0xBDBDBDBD bytes.
    const std::string found =
        write("fuzz_oom.dcm", {0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xBD, 0x55, 0x53,
                               0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD});
    expectRefusedWithoutAllocating({plain, deflated, found},
                                   "cannot extract DICOM information from: ");
}

} // namespace

namespace {

// The watch itself: a request it cannot miss.
TEST(AllocationWatchCheck, SeesALargeRequest)
{
    resetLargestAllocation();
    void *volatile p = std::malloc(kAllowedAllocation + 1);
    std::free(p);
    EXPECT_GE(largestAllocation(), kAllowedAllocation + 1);
}

} // namespace
