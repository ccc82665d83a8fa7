// The viewer's logic without a display, where the window tests over real
// series do not reach: letters at the tolerance, uneven and sheared cells,
// refused transformations, window/level and the pixels of a slice.

#include "apps/vxdicom/view/SliceGeometry.h"
#include "apps/vxdicom/view/SliceRender.h"
#include "apps/vxdicom/view/WindowLevel.h"

#include "platform/data/VxField3.h"

#include <Inventor/SbMatrix.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using namespace vxview;

TEST(DirectionLetters, NameTheComponentsFromOneTenthUpLargestFirst)
{
    const struct
    {
        Vec3 direction;
        const char *letters;
    } rows[] = {{{1, 0, 0}, "L"},
                {{-1, 0, 0}, "R"},
                {{0, 1, 0}, "P"},
                {{0, -1, 0}, "A"},
                {{0, 0, 1}, "S"},
                {{0, 0, -1}, "I"},
                {{0.9999863, 0.0052360, 0}, "L"},
                {{0.9949874, 0.1, 0}, "LP"},
                {{-0.1631759, 0.9254166, -0.3420201}, "PIR"},
                {{0, 0, 0}, ""}};
    for (const auto &row : rows)
        EXPECT_EQ(directionLetters(row.direction), row.letters) << row.letters;
}

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

TEST(WindowLevel, GreyBytesAndPresetsAreInRescaledValues)
{
    // Width 80, centre 40: 0 at and below 0, 255 from 80, 255/80 per unit.
    const double value[] = {-1000, 0, 0.1, 40, 60, 79.9, 80, 81};
    const int grey[] = {0, 0, 0, 128, 191, 255, 255, 255};
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(greyByte(value[i], Window{40, 80}), grey[i]) << value[i];
    EXPECT_EQ(greyByte(-1001, Window{-600, 1500}), 59); // (0.5 - 401/1500) x 255
    EXPECT_EQ(greyByte(std::nan(""), Window{40, 80}), 0);
    EXPECT_EQ(greyByte(0.25, Window{0.5, 1.0}), 64) << "a window narrower than 1 still spreads";

    // Stored 0..65535 with a bias of -1024 the sample type could not take.
    const int dims[3] = {2, 1, 1};
    auto *samples = static_cast<uint16_t *>(std::malloc(4));
    samples[0] = 0;
    samples[1] = 65535;
    VxUniformScalarField3 field(dims, KcPrimType::UInt16, samples);
    field.parameters().setString("DataWindow", "0 65535");
    field.parameters().setFloat("DataWindowBias", -1024);
    field.parameters().setString("Modality", "CT");
    const std::vector<WindowPreset> presets = windowPresets(field);
    ASSERT_EQ(presets.size(), 5u);
    EXPECT_EQ(presets[0].name + presets[1].name + presets[3].name, "Data windowFull rangeLung");
    EXPECT_DOUBLE_EQ(presets[0].window.centre, 31743.5);
    EXPECT_DOUBLE_EQ(presets[0].window.width, 65535);
    EXPECT_DOUBLE_EQ(presets[1].window.centre, 31743.5);
    EXPECT_DOUBLE_EQ(valueScaleOf(field.parameters()).value(1024), 0);
}

TEST(SliceRender, EachPixelShowsTheVoxelUnderItsCentre)
{
    // 2 x 2 voxels of 1 mm at 2 pixels per mm in 6 x 6 pixels: pixels 1..4.
    const int dims[3] = {2, 2, 1};
    auto *samples = static_cast<uint8_t *>(std::malloc(4));
    const uint8_t values[4] = {10, 20, 30, 40}; // (0,0) (1,0) (0,1) (1,1)
    std::memcpy(samples, values, 4);
    VxUniformScalarField3 field(dims, KcPrimType::UInt8, samples);
    const float box[6] = {0, 1, 0, 1, 0, 0};
    field.setBoundingBox(box);
    FieldFrame frame;
    ASSERT_TRUE(frameOf(field, frame, nullptr));
    const PlaneFrame plane = planeFrame(frame, View::Axial);
    ViewPort port;
    port.width = port.height = 6;
    port.pixelsPerMm = 2;
    port.centreX = port.centreY = 0.5;
    RenderStyle style;
    style.window = Window{127.5, 255}; // grey = value
    style.background = 0xff000001u;
    std::vector<uint32_t> pixels(36);
    renderSlice(*field.lattice(), frame, plane, 0, port, style, pixels.data(), 6);
    const struct
    {
        int x, y;
        uint32_t colour;
    } rows[] = {{0, 0, 0xff000001u}, {1, 1, 0xff0a0a0au}, {2, 2, 0xff0a0a0au}, {3, 1, 0xff141414u},
                {1, 3, 0xff1e1e1eu}, {4, 4, 0xff282828u}, {5, 4, 0xff000001u}};
    for (const auto &row : rows)
        EXPECT_EQ(pixels[size_t(row.y * 6 + row.x)], row.colour) << row.x << "," << row.y;
    int voxel[3] = {0, 0, 0};
    ASSERT_TRUE(screenToVoxel(frame, plane, port, 4.5, 1.5, voxel));
    EXPECT_EQ(voxel[0] * 10 + voxel[1], 10);
}
