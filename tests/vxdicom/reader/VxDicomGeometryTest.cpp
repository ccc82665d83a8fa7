// World positions of loaded fields against the positions the DICOM files
// give (read by pydicom), for every orientation the series generator
// offers, uniform and stacked, and the samples found there.

#include "platform/data/VxField3.h"
#include "platform/data/VxLattice3.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/reader/DicomReaderSettings.h"
#include "vxdicom/reader/VxDicomField.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <set>

using namespace readertest;

namespace {

struct Slice
{
    std::array<double, 3> position, row, column;
    double rowSpacing, columnSpacing; // mm between rows, between columns
    // A step along a row crosses columns: the column spacing (PS3.3 10.7.1.3).
    double stepAlongRow, stepDownColumn;
    int rows, columns;
};

std::vector<Slice> slicesOf(const QJsonArray &reference)
{
    std::vector<Slice> out;
    for (const QJsonValue &v : reference) {
        const QJsonObject r = v.toObject();
        Slice s;
        for (int k = 0; k < 3; ++k) {
            s.position[k] = r["position"].toArray()[k].toDouble();
            s.row[k] = r["rowDirection"].toArray()[k].toDouble();
            s.column[k] = r["columnDirection"].toArray()[k].toDouble();
        }
        s.rowSpacing = r["pixelSpacing"].toArray()[0].toDouble();
        s.columnSpacing = r["pixelSpacing"].toArray()[1].toDouble();
        s.stepAlongRow = s.columnSpacing;
        s.stepDownColumn = s.rowSpacing;
        s.rows = r["rows"].toInt();
        s.columns = r["columns"].toInt();
        out.push_back(s);
    }
    return out;
}

double dot(const std::array<double, 3> &a, const std::array<double, 3> &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// make_series.py's signal at a patient position (mm): the CT series stores
// round(signal + 1024) with intercept -1024.
double signalAt(const double p[3])
{
    return 300.0 * std::sin(p[0] / 13.0) + 200.0 * std::cos(p[1] / 17.0) + 2.0 * p[2];
}

struct Placement
{
    int slice = -1, column = -1, row = -1;
    double error = 1e30; // mm off the nearest source pixel
};

// The source pixel at a world position (mm): the slice whose plane holds the
// point, then its column and row from the position along row and column, on
// the module's grid.
Placement locate(const std::vector<Slice> &slices, const double w[3])
{
    Placement best;
    for (size_t s = 0; s < slices.size(); ++s) {
        const Slice &sl = slices[s];
        std::array<double, 3> d = {w[0] - sl.position[0], w[1] - sl.position[1],
                                   w[2] - sl.position[2]};
        const double i = dot(d, sl.row) / sl.stepAlongRow;
        const double j = dot(d, sl.column) / sl.stepDownColumn;
        const double ri = std::round(i), rj = std::round(j);
        double off[3];
        for (int k = 0; k < 3; ++k)
            off[k] =
                d[k] - ri * sl.stepAlongRow * sl.row[k] - rj * sl.stepDownColumn * sl.column[k];
        const double e = std::sqrt(off[0] * off[0] + off[1] * off[1] + off[2] * off[2]);
        if (e < best.error) {
            best.error = e;
            best.slice = static_cast<int>(s);
            best.column = static_cast<int>(ri);
            best.row = static_cast<int>(rj);
        }
    }
    return best;
}

struct GeometryCase
{
    const char *orientation;
    bool gap;
    bool reversedNames;
    float unit;
};

void PrintTo(const GeometryCase &c, std::ostream *os)
{
    *os << c.orientation << (c.gap ? " with a gap" : "")
        << (c.reversedNames ? ", names reversed" : "") << ", unit " << c.unit;
}

std::string caseName(const testing::TestParamInfo<GeometryCase> &info)
{
    std::string n = info.param.orientation;
    for (char &c : n)
        if (c == '-')
            c = '_';
    if (info.param.gap)
        n += "_gap";
    if (info.param.reversedNames)
        n += "_reversed_names";
    if (info.param.unit == 1.0f)
        n += "_mm";
    return n;
}

class DicomFieldGeometry : public testing::TestWithParam<GeometryCase>
{
protected:
    void TearDown() override { setDicomUnitFactor(0.1f); }
};

} // namespace

// Every voxel of the field lies on a pixel of the source images, no two
// voxels on the same one, and holds that pixel's value.
TEST_P(DicomFieldGeometry, EveryVoxelSitsOnItsSourcePixel)
{
    const GeometryCase &c = GetParam();
    vxtest::TempDir dir;
    std::vector<std::string> args = {"--rows",      "7",   "--columns",     "5",
                                     "--slices",    "4",   "--orientation", c.orientation,
                                     "--spacing",   "0.8", "--row-spacing", "1.1",
                                     "--thickness", "2.0", "--origin",      "12.5,-30.25,47"};
    if (c.gap) {
        args.push_back("--gaps");
        args.push_back("1");
    }
    if (c.reversedNames) {
        args.push_back("--name-order");
        args.push_back("reverse");
    }
    makeSeries(dir.file("s"), args);
    const std::vector<std::string> files = filesIn(dir.file("s"));
    const std::vector<Slice> slices = slicesOf(pydicomReference(files));
    ASSERT_EQ(slices.size(), 4u);

    setDicomUnitFactor(c.unit);
    OpenedFiles opened(files);
    auto stack = stackOf(opened.images());
    std::unique_ptr<VxField3> field(createField3(*stack));
    ASSERT_TRUE(field);
    EXPECT_STREQ(field->typeName(), c.gap ? "VxStackedScalarField3" : "VxUniformScalarField3");
    flipField3(field.get(), *stack);

    const VxLattice3 *lat = field->lattice();
    ASSERT_EQ(lat->primType(), KcPrimType::Int16);
    ASSERT_EQ(lat->numVoxels(), 7u * 5u * 4u);
    const short *values = static_cast<const short *>(lat->data());
    const double toMm = 1.0 / c.unit;
    std::set<std::array<int, 3>> seen;
    int valueMismatches = 0;
    double worst = 0;
    for (int k = 0; k < lat->dim(2); ++k)
        for (int j = 0; j < lat->dim(1); ++j)
            for (int i = 0; i < lat->dim(0); ++i) {
                float w[3];
                field->voxelToWorld(i, j, k, w);
                const double mm[3] = {w[0] * toMm, w[1] * toMm, w[2] * toMm};
                const Placement p = locate(slices, mm);
                worst = std::max(worst, p.error);
                if (p.error > 2e-3) {
                    ADD_FAILURE() << "voxel (" << i << "," << j << "," << k << ") at (" << mm[0]
                                  << ", " << mm[1] << ", " << mm[2] << ") mm is " << p.error
                                  << " mm off every source pixel";
                    return;
                }
                ASSERT_GE(p.column, 0);
                ASSERT_LT(p.column, slices[p.slice].columns);
                ASSERT_GE(p.row, 0);
                ASSERT_LT(p.row, slices[p.slice].rows);
                seen.insert({p.slice, p.column, p.row});
                // The value made for that pixel's position (rounding may differ by one).
                const Slice &sl = slices[p.slice];
                double at[3];
                for (int a = 0; a < 3; ++a)
                    at[a] = sl.position[a] + p.column * sl.columnSpacing * sl.row[a] +
                            p.row * sl.rowSpacing * sl.column[a];
                const short v =
                    values[i + lat->dim(0) * (j + lat->dim(1) * static_cast<size_t>(k))];
                if (std::fabs(v - std::round(signalAt(at))) > 1)
                    ++valueMismatches;
            }
    EXPECT_EQ(seen.size(), lat->numVoxels()) << "each voxel has its own source pixel";
    EXPECT_EQ(valueMismatches, 0);
    EXPECT_LT(worst, 2e-3);
}

INSTANTIATE_TEST_SUITE_P(
    EveryOrientation, DicomFieldGeometry,
    testing::Values(
        GeometryCase{"axial", false, false, 0.1f}, GeometryCase{"coronal", false, false, 0.1f},
        GeometryCase{"sagittal", false, false, 0.1f}, GeometryCase{"axial-rev", false, false, 0.1f},
        GeometryCase{"coronal-rev", false, false, 0.1f},
        GeometryCase{"sagittal-rev", false, false, 0.1f},
        GeometryCase{"axial-rot", false, false, 0.1f}, GeometryCase{"oblique", false, false, 0.1f},
        GeometryCase{"axial", false, true, 0.1f}, GeometryCase{"sagittal", false, true, 0.1f},
        GeometryCase{"oblique", false, false, 1.0f}, GeometryCase{"coronal", false, false, 1.0f},
        GeometryCase{"axial", true, false, 0.1f}, GeometryCase{"coronal", true, false, 0.1f},
        GeometryCase{"sagittal", true, false, 0.1f}, GeometryCase{"axial-rev", true, false, 0.1f},
        GeometryCase{"coronal-rev", true, false, 0.1f},
        GeometryCase{"sagittal-rev", true, false, 0.1f},
        GeometryCase{"axial-rot", true, false, 0.1f}, GeometryCase{"oblique", true, false, 0.1f},
        GeometryCase{"axial-rot", true, true, 1.0f}),
    caseName);

// A single slice: no slice axis to orient, still in place.
TEST(DicomFieldGeometrySingle, OneSliceSitsOnItsImage)
{
    for (const char *orientation : {"axial", "coronal", "sagittal", "axial-rev", "oblique"}) {
        SCOPED_TRACE(orientation);
        vxtest::TempDir dir;
        makeSeries(dir.file("s"),
                   {"--rows", "3", "--columns", "4", "--slices", "1", "--orientation", orientation,
                    "--spacing", "0.8", "--row-spacing", "1.1", "--origin=-3,4,5"});
        const std::vector<std::string> files = filesIn(dir.file("s"));
        const std::vector<Slice> slices = slicesOf(pydicomReference(files));
        OpenedFiles opened(files);
        auto stack = stackOf(opened.images());
        std::unique_ptr<VxField3> field(createField3(*stack));
        ASSERT_TRUE(field);
        flipField3(field.get(), *stack);
        const VxLattice3 *lat = field->lattice();
        std::set<std::array<int, 2>> seen;
        for (int k = 0; k < lat->dim(2); ++k)
            for (int j = 0; j < lat->dim(1); ++j)
                for (int i = 0; i < lat->dim(0); ++i) {
                    float w[3];
                    field->voxelToWorld(i, j, k, w);
                    const double mm[3] = {w[0] * 10.0, w[1] * 10.0, w[2] * 10.0};
                    const Placement p = locate(slices, mm);
                    EXPECT_LT(p.error, 2e-3) << i << "," << j << "," << k;
                    seen.insert({p.column, p.row});
                }
        EXPECT_EQ(seen.size(), 12u);
    }
}
