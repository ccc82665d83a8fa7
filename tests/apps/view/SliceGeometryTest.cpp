// The viewer's geometry and pictures without a display: which lattice axis
// each view shows, the edge letters, voxel <-> patient millimetres, the cells
// of uneven and sheared axes, window/level and the pixels of a slice.

#include "apps/vxdicom/view/SliceGeometry.h"
#include "apps/vxdicom/view/ParameterRows.h"
#include "apps/vxdicom/view/SliceRender.h"
#include "apps/vxdicom/view/WindowLevel.h"

#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"

#include <Inventor/SbMatrix.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

using namespace vxview;

namespace {

// A uniform field of `dims` whose lattice axis a runs along rows[a] (unit
// patient directions) in steps of spacing[a] mm from `origin` (mm).
std::unique_ptr<VxUniformScalarField3> placedField(const int dims[3], const Vec3 rows[3],
                                                   const double spacing[3], const Vec3 &origin,
                                                   KcPrimType type = KcPrimType::Int16,
                                                   void *data = nullptr)
{
    auto field = std::make_unique<VxUniformScalarField3>(dims, type, data);
    float box[6];
    for (int a = 0; a < 3; ++a) {
        box[2 * a] = 0;
        box[2 * a + 1] = static_cast<float>((dims[a] - 1) * spacing[a]);
    }
    field->setBoundingBox(box);
    SbMatrix m = SbMatrix::identity();
    for (int a = 0; a < 3; ++a)
        for (int c = 0; c < 3; ++c)
            m[a][c] = static_cast<float>(rows[a][static_cast<size_t>(c)]);
    for (int c = 0; c < 3; ++c)
        m[3][c] = static_cast<float>(origin[static_cast<size_t>(c)]);
    field->setTransform(m);
    return field;
}

struct LetterCase
{
    const char *reason;
    Vec3 direction;
    const char *letters;
};

void PrintTo(const LetterCase &c, std::ostream *out)
{
    *out << c.reason;
}

class DirectionLetters : public testing::TestWithParam<LetterCase>
{
};

} // namespace

TEST_P(DirectionLetters, NameTheLargestComponentsFirst)
{
    const LetterCase &c = GetParam();
    EXPECT_EQ(directionLetters(c.direction), c.letters) << c.reason;
}

INSTANTIATE_TEST_SUITE_P(
    Table, DirectionLetters,
    testing::Values(
        LetterCase{"+x is the patient's left", {1, 0, 0}, "L"},
        LetterCase{"-x is the patient's right", {-1, 0, 0}, "R"},
        LetterCase{"+y is posterior", {0, 1, 0}, "P"},
        LetterCase{"-y is anterior", {0, -1, 0}, "A"}, LetterCase{"+z is superior", {0, 0, 1}, "S"},
        LetterCase{"-z is inferior", {0, 0, -1}, "I"},
        LetterCase{"column of dcm_qa's coronal series, tilted 8.8 degrees",
                   {0, -0.1529858, -0.9882284},
                   "IA"},
        LetterCase{
            "row of the Philips fMRI, 13.3 degrees about y", {0.9733205, 0, 0.2294497}, "LS"},
        LetterCase{"0.3 degrees off x: below the second letter", {0.9999863, 0.0052360, 0}, "L"},
        LetterCase{"column of make_series' oblique: 20 about x, then 10 about z",
                   {-0.1631759, 0.9254166, -0.3420201},
                   "PIR"},
        LetterCase{"0.1 exactly still counts", {0.9949874, 0.1, 0}, "LP"},
        LetterCase{"no direction, no letter", {0, 0, 0}, ""}),
    [](const testing::TestParamInfo<LetterCase> &info) {
        return std::to_string(info.index) + "_" +
               (*info.param.letters ? info.param.letters : "none");
    });

TEST(ViewAxes, EachViewShowsTheLatticeAxesClosestToItsPatientAxes)
{
    // Stored as a sagittal series is: axis 0 runs posterior (image rows),
    // axis 1 inferior (image columns), axis 2 (the slices) to the right.
    const int dims[3] = {4, 5, 6};
    const Vec3 rows[3] = {{0, 1, 0}, {0, 0, -1}, {-1, 0, 0}};
    const double spacing[3] = {1, 2, 3};
    auto field = placedField(dims, rows, spacing, {10, 20, 30});
    FieldFrame frame;
    std::string why;
    ASSERT_TRUE(frameOf(*field, frame, &why)) << why;
    EXPECT_EQ(latticeAxisOfPatient(frame), (std::array<int, 3>{2, 0, 1}));
    // Each view's normal, across and down lattice axes: axis 1 runs down
    // the patient, so the axial slider steps through it; the sagittal view
    // shows the stored images unmirrored; the axial and coronal views draw
    // the slices mirrored, the first at the screen's right (the patient's
    // left is on the right).
    const struct
    {
        View view;
        std::array<int, 3> axes;
        double uRight, vDown;
    } table[] = {{View::Axial, {1, 2, 0}, -1, 1},
                 {View::Coronal, {0, 2, 1}, -1, 1},
                 {View::Sagittal, {2, 0, 1}, 1, 1}};
    for (const auto &e : table) {
        const PlaneFrame p = planeFrame(frame, e.view);
        EXPECT_EQ((std::array<int, 3>{p.normalAxis, p.uAxis, p.vAxis}), e.axes) << viewName(e.view);
        EXPECT_EQ((std::array<double, 3>{p.uRight, p.vDown, p.vRight}),
                  (std::array<double, 3>{e.uRight, e.vDown, 0}))
            << viewName(e.view);
    }
    const EdgeLetters axial = edgeLetters(planeFrame(frame, View::Axial));
    EXPECT_EQ(axial.left + axial.right, "RL");

    // Voxel (1, 2, 3): 10 - 3 x 3 mm to the right, 20 + 1 x 1 posterior,
    // 30 - 2 x 2 up.
    const Vec3 p = frame.patientMm(1, 2, 3);
    EXPECT_NEAR(p[0], 1, 1e-5);
    EXPECT_NEAR(p[1], 21, 1e-5);
    EXPECT_NEAR(p[2], 26, 1e-5);
}

TEST(AxisCells, UnevenSlicesReachHalfwayToTheirNeighbours)
{
    AxisSampling a;
    ASSERT_TRUE(AxisSampling::listed({0, 2, 5}, 1, a));
    // Cells: [-1, 1), [1, 3.5), [3.5, 6.5).
    const struct
    {
        double mm;
        int sample;
    } table[] = {{-1.01, -1}, {-1.0, 0}, {0.99, 0}, {1.0, 1},
                 {3.49, 1},   {3.5, 2},  {6.49, 2}, {6.5, -1}};
    for (const auto &row : table)
        EXPECT_EQ(a.sampleAt(row.mm), row.sample) << row.mm << " mm";
    EXPECT_DOUBLE_EQ(a.meanStep(), 2.5);
    EXPECT_FALSE(AxisSampling::listed({0, 2, 2}, 1, a)) << "positions must increase";
}

TEST(AxisCells, AStackedFieldKeepsItsSlicePositions)
{
    // Slices at z = 10, 12 and 17 mm: the frame lists 0, 2 and 7 mm.
    const int dims[3] = {2, 2, 3};
    VxStackedScalarField3 field(dims, KcPrimType::UInt8, nullptr);
    const float box[6] = {0, 1, 0, 1, 0, 0};
    field.lattice()->setBoundingBox(box);
    const float z[3] = {10, 12, 17};
    ASSERT_TRUE(field.lattice()->setSliceCoords(z, 3));
    FieldFrame frame;
    std::string why;
    ASSERT_TRUE(frameOf(field, frame, &why)) << why;
    EXPECT_FALSE(frame.axis[2].isUniform());
    EXPECT_NEAR(frame.patientMm(0, 0, 2)[2], 17.0, 1e-6);
    EXPECT_NEAR(frame.patientMm(0, 0, 1.5)[2], 14.5, 1e-6);
    // The coronal view's rows follow the slices: z 13.0 mm is still slice 1
    // (its cell ends halfway to 17), z 14.5 slice 2.
    const PlaneFrame p = planeFrame(frame, View::Coronal);
    ASSERT_EQ(p.vAxis, 2);
    int voxel[3] = {0, 0, 0};
    int first[3] = {0, 0, 0};
    double x, y0;
    voxelToPlane(frame, p, first, x, y0);
    ASSERT_TRUE(planeToVoxel(frame, p, x, y0 - 3.0, voxel));
    EXPECT_EQ(voxel[2], 1);
    ASSERT_TRUE(planeToVoxel(frame, p, x, y0 - 4.5, voxel));
    EXPECT_EQ(voxel[2], 2);
}

TEST(AxisCells, AShearedPlaneIsAParallelogram)
{
    // Axis 1 runs 36.87 degrees off perpendicular to axis 0, in the axial
    // plane: one step of axis 1 moves 0.6 mm right and 0.8 mm down.
    const int dims[3] = {10, 10, 1};
    const Vec3 rows[3] = {{1, 0, 0}, {0.6, 0.8, 0}, {0, 0, 1}};
    const double spacing[3] = {1, 1, 1};
    auto field = placedField(dims, rows, spacing, {0, 0, 0});
    FieldFrame frame;
    ASSERT_TRUE(frameOf(*field, frame, nullptr));
    EXPECT_NEAR(shearDeg(frame), 36.8699, 1e-3);
    const PlaneFrame p = planeFrame(frame, View::Axial);
    EXPECT_NEAR(p.vRight, 0.6, 1e-6);
    EXPECT_NEAR(p.vDown, 0.8, 1e-6);
    int voxel[3] = {2, 5, 0};
    double x, y;
    voxelToPlane(frame, p, voxel, x, y);
    EXPECT_NEAR(x, 5.0, 1e-6); // 2 + 5 x 0.6
    EXPECT_NEAR(y, 4.0, 1e-6); // 5 x 0.8
    // 0.45 mm right of voxel (2, 5) is still it. One row lower the row
    // starts 0.6 mm further right, so the same x is still column 2 there
    // (an upright grid would put x = 5.45 in column 5).
    int back[3] = {0, 0, 0};
    ASSERT_TRUE(planeToVoxel(frame, p, 5.45, 4.0, back));
    EXPECT_EQ(back[0], 2);
    EXPECT_EQ(back[1], 5);
    ASSERT_TRUE(planeToVoxel(frame, p, 5.45, 4.8, back));
    EXPECT_EQ(back[0], 2);
    EXPECT_EQ(back[1], 6);
    EXPECT_FALSE(planeToVoxel(frame, p, -0.6, 0, back)) << "left of the parallelogram";
}

TEST(FieldFrame, ProjectiveAndSingularTransformationsAreRefusedWithAReason)
{
    const int dims[3] = {2, 2, 2};
    VxUniformScalarField3 field(dims, KcPrimType::UInt8, nullptr);
    SbMatrix m = SbMatrix::identity();
    m[0][3] = 0.5f;
    field.setTransform(m);
    FieldFrame frame;
    std::string why;
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
    // Width 80, centre 40: 0 at and below 0, 255 above 80, 255/80 per unit.
    const Window brain{40, 80};
    const struct
    {
        double value;
        int grey;
    } table[] = {{-1000, 0}, {0, 0},      {0.1, 0},  {40, 128},
                 {60, 191},  {79.9, 255}, {80, 255}, {81, 255}};
    for (const auto &row : table)
        EXPECT_EQ(greyByte(row.value, brain), row.grey) << row.value;
    // Lung, 1500/-600: -1001 is (0.5 - 401/1500) x 255 = 59.33.
    EXPECT_EQ(greyByte(-1001, Window{-600, 1500}), 59);
    EXPECT_EQ(greyByte(std::nan(""), brain), 0);
    // A window narrower than 1 still spreads a float field's values.
    EXPECT_EQ(greyByte(0.25, Window{0.5, 1.0}), 64); // 63.75
}

TEST(WindowLevel, DataWindowAndFullRangeAreInRescaledValues)
{
    // Stored 0..65535 with a bias of -1024 (an intercept the sample type
    // could not take): -1024..64511 shown.
    const int dims[3] = {2, 1, 1};
    auto *samples = static_cast<uint16_t *>(std::malloc(4));
    samples[0] = 0;
    samples[1] = 65535;
    VxUniformScalarField3 field(dims, KcPrimType::UInt16, samples);
    field.parameters().setString("DataWindow", "0 65535");
    field.parameters().setFloat("DataWindowBias", -1024);
    field.parameters().setString("Modality", "CT");
    const std::vector<WindowPreset> presets = windowPresets(field);
    std::vector<std::string> names;
    for (const WindowPreset &p : presets)
        names.push_back(p.name);
    EXPECT_EQ(names,
              (std::vector<std::string>{"Data window", "Full range", "Brain", "Lung", "Bone"}));
    ASSERT_EQ(presets.size(), 5u);
    EXPECT_DOUBLE_EQ(presets[0].window.centre, 31743.5);
    EXPECT_DOUBLE_EQ(presets[0].window.width, 65535);
    EXPECT_DOUBLE_EQ(presets[1].window.centre, 31743.5);
    EXPECT_DOUBLE_EQ(presets[3].window.centre, -600);
    EXPECT_DOUBLE_EQ(valueScaleOf(field.parameters()).value(1024), 0);
}

TEST(SliceRender, EachPixelShowsTheVoxelUnderItsCentre)
{
    // 2 x 2 voxels of 1 mm, drawn at 2 pixels per mm into 6 x 6 pixels:
    // the slice covers pixels 1..4 in both directions.
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
    auto grey = [&](int x, int y) { return pixels[static_cast<size_t>(y * 6 + x)]; };
    EXPECT_EQ(grey(0, 0), 0xff000001u);
    EXPECT_EQ(grey(1, 1), 0xff0a0a0au); // voxel (0, 0): 10
    EXPECT_EQ(grey(2, 2), 0xff0a0a0au);
    EXPECT_EQ(grey(3, 1), 0xff141414u); // voxel (1, 0): 20, to the patient's left
    EXPECT_EQ(grey(1, 3), 0xff1e1e1eu); // voxel (0, 1): 30, posterior
    EXPECT_EQ(grey(4, 4), 0xff282828u);
    EXPECT_EQ(grey(5, 4), 0xff000001u);
    int voxel[3] = {0, 0, 0};
    ASSERT_TRUE(screenToVoxel(frame, plane, port, 4.5, 1.5, voxel));
    EXPECT_EQ(voxel[0], 1);
    EXPECT_EQ(voxel[1], 0);
}

TEST(ParameterRows, AttributesAreDecodedAndTheFilterKeepsWhatHoldsTheText)
{
    VxParamBundle root("Parameters");
    auto *dicom = new VxParamBundle("DICOM");
    auto *all = new VxParamBundle("All");
    all->setString("G0010-0010", "patient name: Doe^John");
    all->setString("G0029-1010", "CSA image header info [OB]: 5356");
    dicom->insert(all);
    root.insert(dicom);
    root.setString("Modality", "MR");
    root.setFloat("UnitLength", 0.001);
    const std::vector<ParameterRow> rows = parameterRows(root);
    ASSERT_EQ(rows.size(), 3u);
    ASSERT_TRUE(rows[0].bundle);
    const ParameterRow &name = rows[0].children.at(0).children.at(0);
    EXPECT_EQ(name.name, "(0010,0010)");
    EXPECT_EQ(name.description, "patient name");
    EXPECT_EQ(name.vr, "PN");
    EXPECT_EQ(name.value, "Doe^John");
    const ParameterRow &csa = rows[0].children.at(0).children.at(1);
    EXPECT_EQ(csa.vr, "OB") << "the VR the text names";
    EXPECT_EQ(rows[1].vr, "string");
    EXPECT_EQ(rows[2].vr, "float");

    EXPECT_TRUE(rowMatches(name, "doe"));
    EXPECT_TRUE(rowMatches(name, "0010,0010"));
    EXPECT_FALSE(rowMatches(name, "modality"));
    EXPECT_TRUE(rowMatches(rows[0], "dic"));
    EXPECT_FALSE(rowMatches(rows[0], "entries")) << "a bundle matches by its name only";
}
