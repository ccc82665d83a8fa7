#include "platform/core/KcRawData3D.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

// A 3 x 2 x 4 block of int16 whose value at (x, y, z) is 100 z + 10 y + x, so
// every expected slice below can be read off by hand.
std::vector<int16_t> codedBlock()
{
    std::vector<int16_t> v;
    for (int z = 0; z < 4; ++z)
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 3; ++x)
                v.push_back(static_cast<int16_t>(100 * z + 10 * y + x));
    return v;
}

const int kDims[3] = {3, 2, 4};

} // namespace

TEST(KcRawData3D, SliceDimsFollowTheCutAxis)
{
    const auto block = codedBlock();
    const KcRawData3D raw(block.data(), kDims, KcPrimType::Int16);
    int w = -1, h = -1, n = -1;
    ASSERT_TRUE(raw.sliceDims(2, w, h, n));
    EXPECT_EQ(w, 3);
    EXPECT_EQ(h, 2);
    EXPECT_EQ(n, 4);
    ASSERT_TRUE(raw.sliceDims(1, w, h, n));
    EXPECT_EQ(w, 3);
    EXPECT_EQ(h, 4);
    EXPECT_EQ(n, 2);
    ASSERT_TRUE(raw.sliceDims(0, w, h, n));
    EXPECT_EQ(w, 2);
    EXPECT_EQ(h, 4);
    EXPECT_EQ(n, 3);
    EXPECT_FALSE(raw.sliceDims(3, w, h, n));
    EXPECT_FALSE(raw.sliceDims(-1, w, h, n));
    EXPECT_EQ(raw.elementBytes(), 2);
}

TEST(KcRawData3D, ExtractsAxialSliceAsOnePlane)
{
    const auto block = codedBlock();
    const KcRawData3D raw(block.data(), kDims, KcPrimType::Int16);
    std::vector<int16_t> out(6, -1);
    ASSERT_TRUE(raw.extractSlice(2, 3, out.data()));
    EXPECT_EQ(out, (std::vector<int16_t>{300, 301, 302, 310, 311, 312}));
    ASSERT_TRUE(raw.extractSlice(2, 0, out.data()));
    EXPECT_EQ(out, (std::vector<int16_t>{0, 1, 2, 10, 11, 12}));
}

TEST(KcRawData3D, ExtractsSliceAlongSecondAxisWithXFastestThenZ)
{
    const auto block = codedBlock();
    const KcRawData3D raw(block.data(), kDims, KcPrimType::Int16);
    std::vector<int16_t> out(12, -1);
    ASSERT_TRUE(raw.extractSlice(1, 1, out.data()));
    EXPECT_EQ(out, (std::vector<int16_t>{10, 11, 12, 110, 111, 112, 210, 211, 212, 310, 311, 312}));
}

TEST(KcRawData3D, ExtractsSliceAlongFirstAxisWithYFastestThenZ)
{
    const auto block = codedBlock();
    const KcRawData3D raw(block.data(), kDims, KcPrimType::Int16);
    std::vector<int16_t> out(8, -1);
    ASSERT_TRUE(raw.extractSlice(0, 2, out.data()));
    EXPECT_EQ(out, (std::vector<int16_t>{2, 12, 102, 112, 202, 212, 302, 312}));
}

TEST(KcRawData3D, MultiComponentElementsStayTogether)
{
    // 2 x 2 x 2 RGB bytes; the red byte carries the voxel number 0..7, green
    // = red + 100, blue = red + 200.
    std::vector<uint8_t> rgb;
    for (int i = 0; i < 8; ++i) {
        rgb.push_back(static_cast<uint8_t>(i));
        rgb.push_back(static_cast<uint8_t>(i + 100));
        rgb.push_back(static_cast<uint8_t>(i + 200));
    }
    const int dims[3] = {2, 2, 2};
    const KcRawData3D asComponents(rgb.data(), dims, KcPrimType::UInt8, 3);
    const KcRawData3D asBytes(rgb.data(), dims, 3);
    EXPECT_EQ(asComponents.elementBytes(), 3);
    EXPECT_EQ(asBytes.elementBytes(), 3);

    // Slice x = 1: voxels 1, 3, 5, 7.
    const std::vector<uint8_t> expected{1, 101, 201, 3, 103, 203, 5, 105, 205, 7, 107, 207};
    std::vector<uint8_t> out(12, 0);
    ASSERT_TRUE(asComponents.extractSlice(0, 1, out.data()));
    EXPECT_EQ(out, expected);
    std::fill(out.begin(), out.end(), 0);
    ASSERT_TRUE(asBytes.extractSlice(0, 1, out.data()));
    EXPECT_EQ(out, expected);
}

TEST(KcRawData3D, RefusesOutOfRangeRequestsWithoutTouchingTheBuffer)
{
    const auto block = codedBlock();
    const KcRawData3D raw(block.data(), kDims, KcPrimType::Int16);
    std::vector<int16_t> out(12, -7);
    EXPECT_FALSE(raw.extractSlice(2, 4, out.data()));
    EXPECT_FALSE(raw.extractSlice(2, -1, out.data()));
    EXPECT_FALSE(raw.extractSlice(1, 2, out.data()));
    EXPECT_FALSE(raw.extractSlice(0, 3, out.data()));
    EXPECT_FALSE(raw.extractSlice(3, 0, out.data()));
    EXPECT_FALSE(raw.extractSlice(2, 0, nullptr));
    EXPECT_EQ(out, std::vector<int16_t>(12, -7));

    const KcRawData3D empty;
    EXPECT_FALSE(empty.extractSlice(2, 0, out.data()));
    const KcRawData3D noData(nullptr, kDims, KcPrimType::Int16);
    EXPECT_FALSE(noData.extractSlice(2, 0, out.data()));
}

TEST(KcRawData3D, SingleSliceVolumeAlongEveryAxis)
{
    // A 1 x 1 x 1 float volume: every cut is the one sample.
    const float v = 2.5f;
    const int dims[3] = {1, 1, 1};
    const KcRawData3D raw(&v, dims, KcPrimType::Float);
    for (int axis = 0; axis < 3; ++axis) {
        float out = 0.f;
        ASSERT_TRUE(raw.extractSlice(axis, 0, &out)) << "axis " << axis;
        EXPECT_EQ(out, 2.5f);
    }
}
