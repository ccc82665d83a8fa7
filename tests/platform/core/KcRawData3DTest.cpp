#include "platform/core/KcRawData3D.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

// A 3 x 2 x 4 int16 block holding 100 z + 10 y + x, cut along each axis; an
// RGB block keeps the three bytes of a voxel together; requests outside the
// block are refused without touching the buffer.
TEST(KcRawData3D, SlicesAlongEachAxisKeepVoxelsWhole)
{
    std::vector<int16_t> block;
    for (int z = 0; z < 4; ++z)
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 3; ++x)
                block.push_back(static_cast<int16_t>(100 * z + 10 * y + x));
    const int dims[3] = {3, 2, 4};
    const KcRawData3D raw(block.data(), dims, KcPrimType::Int16);
    struct Row
    {
        int axis, index, width, height;
        std::vector<int16_t> expected;
    };
    const Row rows[] = {
        {2, 3, 3, 2, {300, 301, 302, 310, 311, 312}},
        {1, 1, 3, 4, {10, 11, 12, 110, 111, 112, 210, 211, 212, 310, 311, 312}},
        {0, 2, 2, 4, {2, 12, 102, 112, 202, 212, 302, 312}},
    };
    for (const Row &r : rows) {
        int w = -1, h = -1, n = -1;
        ASSERT_TRUE(raw.sliceDims(r.axis, w, h, n)) << r.axis;
        EXPECT_EQ(w, r.width) << r.axis;
        EXPECT_EQ(h, r.height) << r.axis;
        EXPECT_EQ(n, dims[r.axis]) << r.axis;
        std::vector<int16_t> out(r.expected.size(), -1);
        ASSERT_TRUE(raw.extractSlice(r.axis, r.index, out.data())) << r.axis;
        EXPECT_EQ(out, r.expected) << r.axis;
    }
    std::vector<int16_t> out(12, -7);
    const std::pair<int, int> outside[] = {{2, 4}, {2, -1}, {1, 2}, {0, 3}, {3, 0}};
    for (const auto &[axis, index] : outside)
        EXPECT_FALSE(raw.extractSlice(axis, index, out.data())) << axis << " " << index;
    EXPECT_FALSE(raw.extractSlice(2, 0, nullptr));
    EXPECT_EQ(out, std::vector<int16_t>(12, -7));

    std::vector<uint8_t> rgb;
    for (int i = 0; i < 8; ++i)
        for (int c : {0, 100, 200})
            rgb.push_back(static_cast<uint8_t>(i + c));
    const int cube[3] = {2, 2, 2};
    const std::vector<uint8_t> xIs1{1, 101, 201, 3, 103, 203, 5, 105, 205, 7, 107, 207};
    for (const KcRawData3D &colour :
         {KcRawData3D(rgb.data(), cube, KcPrimType::UInt8, 3), KcRawData3D(rgb.data(), cube, 3)}) {
        std::vector<uint8_t> slice(12, 0);
        ASSERT_TRUE(colour.extractSlice(0, 1, slice.data()));
        EXPECT_EQ(slice, xIs1);
    }
}
