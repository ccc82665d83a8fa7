#include "platform/data/VxLattice3.h"
#include "platform/data/VxField3.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

template <typename T> T *mallocCopy(const std::vector<T> &values)
{
    T *p = static_cast<T *>(std::malloc(values.size() * sizeof(T)));
    std::memcpy(p, values.data(), values.size() * sizeof(T));
    return p;
}

template <typename T> std::vector<T> samplesOf(const VxLattice3 &lat)
{
    const T *p = static_cast<const T *>(lat.data());
    return std::vector<T>(p, p + lat.numVoxels() * static_cast<size_t>(lat.nComponents()));
}

std::vector<float> boxOf(const VxLattice3 &lat)
{
    float b[6];
    lat.getBoundingBox(b);
    return std::vector<float>(b, b + 6);
}

struct SwapCase
{
    int perm[3];
    int dims[3];
    float box[6];
};

class VxLattice3Swap : public ::testing::TestWithParam<SwapCase>
{
};

} // namespace

// Every permutation of a 2 x 3 x 4 lattice with box x 10..11, y 20..22,
// z 30..33; each sample holds its old index as 100 i + 10 j + k.
TEST_P(VxLattice3Swap, MovesSamplesDimsAndBox)
{
    const SwapCase &c = GetParam();
    const int dims[3] = {2, 3, 4};
    std::vector<int32_t> values;
    for (int k = 0; k < 4; ++k)
        for (int j = 0; j < 3; ++j)
            for (int i = 0; i < 2; ++i)
                values.push_back(100 * i + 10 * j + k);
    VxLattice3 lat(dims, KcPrimType::Int32, 1, mallocCopy(values));
    const float box[6] = {10, 11, 20, 22, 30, 33};
    lat.setBoundingBox(box);
    EXPECT_FALSE(lat.swapDims(0, 0, 2));
    EXPECT_FALSE(lat.swapDims(-1, 1, 3));
    ASSERT_TRUE(lat.swapDims(c.perm[0], c.perm[1], c.perm[2]));
    for (int a = 0; a < 3; ++a)
        EXPECT_EQ(lat.dim(a), c.dims[a]);
    EXPECT_EQ(boxOf(lat), std::vector<float>(c.box, c.box + 6));
    const std::vector<int32_t> moved = samplesOf<int32_t>(lat);
    size_t n = 0;
    for (int z = 0; z < c.dims[2]; ++z)
        for (int y = 0; y < c.dims[1]; ++y)
            for (int x = 0; x < c.dims[0]; ++x) {
                const int v = moved[n++];
                const int old[3] = {v / 100, (v / 10) % 10, v % 10};
                EXPECT_EQ(old[c.perm[0]], x) << "value " << v;
                EXPECT_EQ(old[c.perm[1]], y) << "value " << v;
                EXPECT_EQ(old[c.perm[2]], z) << "value " << v;
            }
}

INSTANTIATE_TEST_SUITE_P(
    AllPermutations, VxLattice3Swap,
    ::testing::Values(SwapCase{{0, 1, 2}, {2, 3, 4}, {10, 11, 20, 22, 30, 33}},
                      SwapCase{{0, 2, 1}, {2, 4, 3}, {10, 11, 30, 33, 20, 22}},
                      SwapCase{{1, 0, 2}, {3, 2, 4}, {20, 22, 10, 11, 30, 33}},
                      SwapCase{{1, 2, 0}, {3, 4, 2}, {20, 22, 30, 33, 10, 11}},
                      SwapCase{{2, 0, 1}, {4, 2, 3}, {30, 33, 10, 11, 20, 22}},
                      SwapCase{{2, 1, 0}, {4, 3, 2}, {30, 33, 20, 22, 10, 11}}),
    [](const ::testing::TestParamInfo<SwapCase> &info) {
        const int *p = info.param.perm;
        return "Axes" + std::to_string(p[0]) + std::to_string(p[1]) + std::to_string(p[2]);
    });

TEST(VxField3, RangeCoversAllSamplesAndComponentsAndSkipsNaN)
{
    const int dims[3] = {3, 1, 1}, one[3] = {1, 1, 1}, none[3] = {0, 4, 4};
    VxUniformScalarField3 s(dims, KcPrimType::Int16, mallocCopy<int16_t>({-1024, 3071, 7}));
    VxUniformScalarField3 u(dims, KcPrimType::UInt16, mallocCopy<uint16_t>({65535, 4, 9}));
    VxUniformScalarField3 f(dims, KcPrimType::Float, mallocCopy<float>({NAN, -0.5f, 2.25f}));
    VxRegColorField3 c(one, VX_COORD_UNIFORM, 3, mallocCopy<uint8_t>({200, 3, 90}));
    const std::pair<const VxField3 *, std::pair<double, double>> rows[] = {
        {&s, {-1024, 3071}}, {&u, {4, 65535}}, {&f, {-0.5, 2.25}}, {&c, {3, 200}}};
    for (const auto &[field, range] : rows) {
        double lo = 0, hi = 0;
        ASSERT_TRUE(field->getRange(lo, hi)) << field->typeName();
        EXPECT_EQ(lo, range.first) << field->typeName();
        EXPECT_EQ(hi, range.second) << field->typeName();
    }
    double lo, hi;
    EXPECT_FALSE(VxUniformScalarField3(none, KcPrimType::Int32, nullptr).getRange(lo, hi));
}
