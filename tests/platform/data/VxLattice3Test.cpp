#include "platform/data/VxField3.h"
#include "platform/data/VxLattice3.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

template <typename T>
T *mallocCopy(const std::vector<T> &values)
{
    T *p = static_cast<T *>(std::malloc(values.size() * sizeof(T)));
    std::memcpy(p, values.data(), values.size() * sizeof(T));
    return p;
}

template <typename T>
std::vector<T> samplesOf(const VxLattice3 &lat)
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

} // namespace

TEST(VxLattice3, NewLatticeHasIndexBoxAndZeroedSamples)
{
    const int dims[3] = {4, 3, 2};
    VxLattice3 lat(dims, KcPrimType::Int16, 1, nullptr);
    EXPECT_EQ(lat.numVoxels(), 24u);
    EXPECT_EQ(lat.numBytes(), 48u);
    EXPECT_EQ(lat.voxelBytes(), 2);
    EXPECT_EQ(boxOf(lat), (std::vector<float>{0, 3, 0, 2, 0, 1}));
    for (int16_t v : samplesOf<int16_t>(lat))
        EXPECT_EQ(v, 0);

    VxLattice3 stacked(dims, KcPrimType::UInt8, 1, nullptr, VX_COORD_STACKED);
    ASSERT_EQ(stacked.sliceCoords().size(), 2);
    EXPECT_EQ(stacked.sliceCoords()[1], 1.0f);

    KcRawData3D raw = lat.rawData();
    EXPECT_EQ(raw.data(), lat.data());
    EXPECT_EQ(raw.dim(0), 4);
    EXPECT_EQ(raw.elementBytes(), 2);
}

TEST(VxLattice3, VoxelPositionInterpolatesTheBox)
{
    const int dims[3] = {2, 3, 4};
    VxLattice3 lat(dims, KcPrimType::UInt8, 1, nullptr);
    const float box[6] = {10, 11, 20, 22, 30, 33};
    lat.setBoundingBox(box);
    float p[3];
    lat.voxelPosition(1, 2, 3, p);
    EXPECT_FLOAT_EQ(p[0], 11);
    EXPECT_FLOAT_EQ(p[1], 22);
    EXPECT_FLOAT_EQ(p[2], 33);
    lat.voxelPosition(0, 1, 1, p);
    EXPECT_FLOAT_EQ(p[0], 10);
    EXPECT_FLOAT_EQ(p[1], 21);
    EXPECT_FLOAT_EQ(p[2], 31);

    // One sample along an axis sits at the box minimum.
    const int flat[3] = {3, 3, 1};
    VxLattice3 single(flat, KcPrimType::UInt8, 1, nullptr);
    const float box2[6] = {0, 1, 0, 1, 5, 9};
    single.setBoundingBox(box2);
    single.voxelPosition(2, 1, 0, p);
    EXPECT_FLOAT_EQ(p[0], 1);
    EXPECT_FLOAT_EQ(p[1], 0.5f);
    EXPECT_FLOAT_EQ(p[2], 5);
}

TEST(VxLattice3, SwapOfTwoInPlaneAxesTransposesEachSlice)
{
    // 2 x 3 x 1, rows (0 1) (2 3) (4 5); the transposed slice is 3 x 2:
    // rows (0 2 4) (1 3 5).
    const int dims[3] = {2, 3, 1};
    VxLattice3 lat(dims, KcPrimType::UInt8, 1, mallocCopy<uint8_t>({0, 1, 2, 3, 4, 5}));
    ASSERT_TRUE(lat.swapDims(1, 0, 2));
    EXPECT_EQ(lat.dim(0), 3);
    EXPECT_EQ(lat.dim(1), 2);
    EXPECT_EQ(lat.dim(2), 1);
    EXPECT_EQ(samplesOf<uint8_t>(lat), (std::vector<uint8_t>{0, 2, 4, 1, 3, 5}));
}

TEST(VxLattice3, SwapOfSliceAxisReordersAcrossSlices)
{
    // 2 x 1 x 3 int16, slices k hold (10k, 10k+1); swap (2, 1, 0) gives a
    // 3 x 1 x 2 lattice whose rows run along the old slice axis.
    const int dims[3] = {2, 1, 3};
    VxLattice3 lat(dims, KcPrimType::Int16, 1,
                   mallocCopy<int16_t>({0, 1, -10, -11, 20, 21}));
    ASSERT_TRUE(lat.swapDims(2, 1, 0));
    EXPECT_EQ(lat.dim(0), 3);
    EXPECT_EQ(lat.dim(1), 1);
    EXPECT_EQ(lat.dim(2), 2);
    EXPECT_EQ(samplesOf<int16_t>(lat), (std::vector<int16_t>{0, -10, 20, 1, -11, 21}));
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

// Every permutation of a 2 x 3 x 4 lattice with box x 10..11, y 20..22,
// z 30..33. Each sample encodes its old index as 100 i + 10 j + k, so that
// the new position of every sample can be checked against where it came from.
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

    ASSERT_TRUE(lat.swapDims(c.perm[0], c.perm[1], c.perm[2]));
    EXPECT_EQ(lat.dim(0), c.dims[0]);
    EXPECT_EQ(lat.dim(1), c.dims[1]);
    EXPECT_EQ(lat.dim(2), c.dims[2]);
    EXPECT_EQ(boxOf(lat), std::vector<float>(c.box, c.box + 6));

    const std::vector<int32_t> moved = samplesOf<int32_t>(lat);
    ASSERT_EQ(moved.size(), 24u);
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

TEST(VxLattice3, SwapRejectsWhatIsNotAPermutation)
{
    const int dims[3] = {2, 3, 4};
    VxLattice3 lat(dims, KcPrimType::UInt8, 1, nullptr);
    EXPECT_FALSE(lat.swapDims(0, 0, 2));
    EXPECT_FALSE(lat.swapDims(0, 1, 3));
    EXPECT_FALSE(lat.swapDims(-1, 1, 2));
    EXPECT_EQ(lat.dim(0), 2);
    EXPECT_EQ(lat.dim(2), 4);
}

TEST(VxLattice3, MirrorReversesOneAxisInPlaceAndKeepsTheBox)
{
    // 3 x 2 x 2, values 0..11.
    const int dims[3] = {3, 2, 2};
    std::vector<uint16_t> v(12);
    for (int n = 0; n < 12; ++n)
        v[n] = static_cast<uint16_t>(n);
    const float box[6] = {1, 2, 3, 4, 5, 6};

    VxLattice3 x(dims, KcPrimType::UInt16, 1, mallocCopy(v));
    x.setBoundingBox(box);
    const void *before = x.data();
    x.mirror(0);
    EXPECT_EQ(x.data(), before);
    EXPECT_EQ(samplesOf<uint16_t>(x),
              (std::vector<uint16_t>{2, 1, 0, 5, 4, 3, 8, 7, 6, 11, 10, 9}));
    EXPECT_EQ(boxOf(x), std::vector<float>(box, box + 6));

    VxLattice3 y(dims, KcPrimType::UInt16, 1, mallocCopy(v));
    y.mirror(1);
    EXPECT_EQ(samplesOf<uint16_t>(y),
              (std::vector<uint16_t>{3, 4, 5, 0, 1, 2, 9, 10, 11, 6, 7, 8}));

    VxLattice3 z(dims, KcPrimType::UInt16, 1, mallocCopy(v));
    z.mirror(2);
    EXPECT_EQ(samplesOf<uint16_t>(z),
              (std::vector<uint16_t>{6, 7, 8, 9, 10, 11, 0, 1, 2, 3, 4, 5}));
    z.mirror(2);
    EXPECT_EQ(samplesOf<uint16_t>(z), v);

    // An odd count leaves the middle in place; a single sample is a no-op.
    const int odd[3] = {1, 1, 3};
    VxLattice3 o(odd, KcPrimType::Float, 1, mallocCopy<float>({1.5f, 2.5f, 3.5f}));
    o.mirror(2);
    EXPECT_EQ(samplesOf<float>(o), (std::vector<float>{3.5f, 2.5f, 1.5f}));
    o.mirror(0);
    o.mirror(7);
    EXPECT_EQ(samplesOf<float>(o), (std::vector<float>{3.5f, 2.5f, 1.5f}));
}

TEST(VxLattice3, MultiComponentVoxelsMoveAsAWhole)
{
    // 2 x 2 x 1 RGB voxels (1,2,3) (4,5,6) / (7,8,9) (10,11,12).
    const int dims[3] = {2, 2, 1};
    const std::vector<uint8_t> rgb = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};

    VxLattice3 swapped(dims, KcPrimType::UInt8, 3, mallocCopy(rgb));
    EXPECT_EQ(swapped.voxelBytes(), 3);
    ASSERT_TRUE(swapped.swapDims(1, 0, 2));
    EXPECT_EQ(samplesOf<uint8_t>(swapped),
              (std::vector<uint8_t>{1, 2, 3, 7, 8, 9, 4, 5, 6, 10, 11, 12}));

    VxLattice3 mirrored(dims, KcPrimType::UInt8, 3, mallocCopy(rgb));
    mirrored.mirror(0);
    EXPECT_EQ(samplesOf<uint8_t>(mirrored),
              (std::vector<uint8_t>{4, 5, 6, 1, 2, 3, 10, 11, 12, 7, 8, 9}));
    mirrored.mirror(1);
    EXPECT_EQ(samplesOf<uint8_t>(mirrored),
              (std::vector<uint8_t>{10, 11, 12, 7, 8, 9, 4, 5, 6, 1, 2, 3}));

    // Two int16 components (6-byte voxels are not a special case of the copy loops).
    const int line[3] = {1, 1, 3};
    VxLattice3 pairs(line, KcPrimType::Int16, 3,
                     mallocCopy<int16_t>({1, -1, 2, 3, -3, 4, 5, -5, 6}));
    EXPECT_EQ(pairs.voxelBytes(), 6);
    ASSERT_TRUE(pairs.swapDims(2, 0, 1));
    EXPECT_EQ(pairs.dim(0), 3);
    EXPECT_EQ(samplesOf<int16_t>(pairs), (std::vector<int16_t>{1, -1, 2, 3, -3, 4, 5, -5, 6}));
    pairs.mirror(0);
    EXPECT_EQ(samplesOf<int16_t>(pairs), (std::vector<int16_t>{5, -5, 6, 3, -3, 4, 1, -1, 2}));
}

TEST(VxLattice3, StackedLatticeTakesZFromTheSlices)
{
    const int dims[3] = {2, 3, 3};
    VxLattice3 lat(dims, KcPrimType::UInt8, 1, nullptr, VX_COORD_STACKED);
    const float z[3] = {-5.0f, -4.0f, -1.5f};
    EXPECT_FALSE(lat.setSliceCoords(z, 2));
    ASSERT_TRUE(lat.setSliceCoords(z, 3));
    const float box[6] = {0, 10, 100, 120, 777, 888};
    lat.setBoundingBox(box); // z is ignored
    EXPECT_EQ(boxOf(lat), (std::vector<float>{0, 10, 100, 120, -5, -1.5f}));

    float p[3];
    lat.voxelPosition(1, 1, 2, p);
    EXPECT_FLOAT_EQ(p[0], 10);
    EXPECT_FLOAT_EQ(p[1], 110);
    EXPECT_FLOAT_EQ(p[2], -1.5f);

    // Only the in-plane axes can trade places.
    EXPECT_FALSE(lat.swapDims(2, 1, 0));
    EXPECT_FALSE(lat.swapDims(0, 2, 1));
    ASSERT_TRUE(lat.swapDims(1, 0, 2));
    EXPECT_EQ(boxOf(lat), (std::vector<float>{100, 120, 0, 10, -5, -1.5f}));
    EXPECT_EQ(lat.sliceCoords()[2], -1.5f);

    VxLattice3 uniform(dims, KcPrimType::UInt8, 1, nullptr);
    EXPECT_FALSE(uniform.setSliceCoords(z, 3));
}

TEST(VxLattice3, CoordinatesChangedMarkCountsCalls)
{
    const int dims[3] = {1, 1, 1};
    VxLattice3 lat(dims, KcPrimType::UInt8, 1, nullptr);
    EXPECT_EQ(lat.coordsChangedCount(), 0);
    lat.coordsChanged();
    lat.coordsChanged();
    EXPECT_EQ(lat.coordsChangedCount(), 2);
}

TEST(VxField3, VoxelToWorldAppliesTheRowVectorTransform)
{
    const int dims[3] = {2, 2, 2};
    VxUniformScalarField3 f(dims, KcPrimType::UInt8, nullptr);
    const float box[6] = {0, 1, 0, 1, 0, 1};
    f.setBoundingBox(box);
    EXPECT_FALSE(f.hasTransform());

    // Rotation by 90 degrees about z, then a translation (100, 200, 300):
    // world = local * M, so row 0 is where local x goes.
    const SbMatrix m(0, 1, 0, 0, //
                     -1, 0, 0, 0, //
                     0, 0, 1, 0,  //
                     100, 200, 300, 1);
    f.setTransform(m);
    ASSERT_TRUE(f.hasTransform());
    float w[3];
    f.voxelToWorld(1, 0, 0, w);
    EXPECT_FLOAT_EQ(w[0], 100);
    EXPECT_FLOAT_EQ(w[1], 201);
    EXPECT_FLOAT_EQ(w[2], 300);
    f.voxelToWorld(0, 1, 1, w);
    EXPECT_FLOAT_EQ(w[0], 99);
    EXPECT_FLOAT_EQ(w[1], 200);
    EXPECT_FLOAT_EQ(w[2], 301);

    f.clearTransform();
    f.voxelToWorld(0, 1, 1, w);
    EXPECT_FLOAT_EQ(w[0], 0);
    EXPECT_FLOAT_EQ(w[1], 1);
    EXPECT_FLOAT_EQ(w[2], 1);
}

TEST(VxField3, RangeCoversAllSamplesAndComponents)
{
    const int dims[3] = {3, 1, 1};
    VxUniformScalarField3 s(dims, KcPrimType::Int16, mallocCopy<int16_t>({-1024, 3071, 7}));
    double lo = 0, hi = 0;
    ASSERT_TRUE(s.getRange(lo, hi));
    EXPECT_EQ(lo, -1024);
    EXPECT_EQ(hi, 3071);

    VxUniformScalarField3 u(dims, KcPrimType::UInt16, mallocCopy<uint16_t>({65535, 4, 9}));
    ASSERT_TRUE(u.getRange(lo, hi));
    EXPECT_EQ(lo, 4);
    EXPECT_EQ(hi, 65535);

    VxUniformScalarField3 f(dims, KcPrimType::Float, mallocCopy<float>({NAN, -0.5f, 2.25f}));
    ASSERT_TRUE(f.getRange(lo, hi));
    EXPECT_EQ(lo, -0.5);
    EXPECT_EQ(hi, 2.25);

    const int one[3] = {1, 1, 1};
    VxRegColorField3 c(one, VX_COORD_UNIFORM, 3, mallocCopy<uint8_t>({200, 3, 90}));
    ASSERT_TRUE(c.getRange(lo, hi));
    EXPECT_EQ(lo, 3);
    EXPECT_EQ(hi, 200);
    EXPECT_EQ(c.lattice()->nComponents(), 3);

    const int none[3] = {0, 4, 4};
    VxUniformScalarField3 empty(none, KcPrimType::Int32, nullptr);
    EXPECT_FALSE(empty.getRange(lo, hi));
}

TEST(VxField3, UnitLengthComesFromTheParameter)
{
    const int dims[3] = {1, 1, 1};
    VxStackedScalarField3 f(dims, KcPrimType::UInt8, nullptr);
    EXPECT_EQ(f.coordType(), VX_COORD_STACKED);
    EXPECT_DOUBLE_EQ(f.unitLength(), 0.001);
    f.parameters().setFloat("UnitLength", 0.01);
    EXPECT_DOUBLE_EQ(f.unitLength(), 0.01);
    f.parameters().setString("UnitLength", "1");
    EXPECT_DOUBLE_EQ(f.unitLength(), 1.0);
    EXPECT_STREQ(f.typeName(), "VxStackedScalarField3");
}
