// The viewer's logic where the window tests over real series do not reach:
// uneven and sheared cells, refused transformations, the grey of a window.

#include "apps/vxdicom/view/SliceGeometry.h"
#include "apps/vxdicom/view/WindowLevel.h"

#include "platform/data/VxField3.h"

#include <Inventor/SbMatrix.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using namespace vxview;

TEST(AxisCells, UnevenSlicesReachHalfwayToTheirNeighbours)
{
    AxisSampling a;
    ASSERT_TRUE(AxisSampling::listed({0, 2, 5}, 1, a));
    // Cells: [-1, 1), [1, 3.5), [3.5, 6.5).
    const double mm[] = {-1.01, -1.0, 0.99, 1.0, 3.49, 3.5, 6.49, 6.5};
    const int sample[] = {-1, 0, 0, 1, 1, 2, 2, -1};
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(a.sampleAt(mm[i]), sample[i]) << mm[i] << " mm";
    EXPECT_DOUBLE_EQ(a.meanStep(), 2.5);
    EXPECT_FALSE(AxisSampling::listed({0, 2, 2}, 1, a)) << "positions must increase";
}

TEST(AxisCells, AShearedPlaneIsAParallelogramAndOddTransformationsAreRefused)
{
    // Axis 1 runs 36.87 degrees off perpendicular: a step moves 0.6 mm right, 0.8 mm down.
    const int dims[3] = {10, 10, 1};
    VxUniformScalarField3 field(dims, KcPrimType::Int16, nullptr);
    const float box[6] = {0, 9, 0, 9, 0, 0};
    field.setBoundingBox(box);
    SbMatrix m = SbMatrix::identity();
    m[1][0] = 0.6f;
    m[1][1] = 0.8f;
    field.setTransform(m);
    FieldFrame frame;
    std::string why;
    ASSERT_TRUE(frameOf(field, frame, &why)) << why;
    EXPECT_NEAR(shearDeg(frame), 36.8699, 1e-3);
    const PlaneFrame p = planeFrame(frame, View::Axial);
    int voxel[3] = {2, 5, 0};
    double x, y;
    voxelToPlane(frame, p, voxel, x, y);
    EXPECT_NEAR(x, 5.0, 1e-6); // 2 + 5 x 0.6
    EXPECT_NEAR(y, 4.0, 1e-6); // 5 x 0.8
    // One row lower the row starts 0.6 mm further right: x = 5.45 is column 2
    // in both rows (an upright grid would put it in column 5).
    for (const double rowY : {4.0, 4.8}) {
        int back[3] = {0, 0, 0};
        ASSERT_TRUE(planeToVoxel(frame, p, 5.45, rowY, back));
        EXPECT_EQ(back[0] * 10 + back[1], rowY < 4.5 ? 25 : 26);
    }
    EXPECT_FALSE(planeToVoxel(frame, p, -0.6, 0, voxel)) << "left of the parallelogram";

    m = SbMatrix::identity();
    m[0][3] = 0.5f;
    field.setTransform(m);
    EXPECT_FALSE(frameOf(field, frame, &why));
    EXPECT_EQ(why, "the field's transformation is projective");
    m = SbMatrix::identity();
    m[2][2] = 0;
    field.setTransform(m);
    EXPECT_FALSE(frameOf(field, frame, &why));
    EXPECT_EQ(why, "the field's transformation is singular");
}

TEST(WindowLevel, GreyBytesFollowTheLinearExactFunction)
{
    // Width 80, centre 40: 0 at and below 0, 255 from 80, 255/80 per unit.
    const double value[] = {-1000, 0, 0.1, 40, 60, 79.9, 80, 81};
    const int grey[] = {0, 0, 0, 128, 191, 255, 255, 255};
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(greyByte(value[i], Window{40, 80}), grey[i]) << value[i];
    EXPECT_EQ(greyByte(-1001, Window{-600, 1500}), 59); // (0.5 - 401/1500) x 255
    EXPECT_EQ(greyByte(std::nan(""), Window{40, 80}), 0);
    EXPECT_EQ(greyByte(0.25, Window{0.5, 1.0}), 64) << "a window narrower than 1 still spreads";
}
