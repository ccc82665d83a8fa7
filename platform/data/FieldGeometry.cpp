#include "platform/data/FieldGeometry.h"

#include <Inventor/SbMatrix.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <strings.h>

namespace vxfield {

namespace {

Vec3 scaled(const Vec3 &v, double s)
{
    return {v[0] * s, v[1] * s, v[2] * s};
}

Vec3 cross(const Vec3 &a, const Vec3 &b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

// Gives axes without length (a single sample, a flat box) a direction and a
// length, so that the placement is invertible: the mean length of the other
// axes, or 1 mm.
void fillEmptyAxes(Vec3 axis[3], const Vec3 fallbackDir[3])
{
    double sum = 0.0;
    int count = 0;
    for (int k = 0; k < 3; ++k)
        if (norm(axis[k]) > 0.0) {
            sum += norm(axis[k]);
            ++count;
        }
    const double len = count ? sum / count : 1.0;
    for (int k = 0; k < 3; ++k) {
        if (norm(axis[k]) > 0.0)
            continue;
        Vec3 dir = fallbackDir[k];
        if (norm(dir) == 0.0) {
            const Vec3 &a = axis[(k + 1) % 3];
            const Vec3 &b = axis[(k + 2) % 3];
            dir = cross(a, b);
            if (norm(dir) == 0.0) {
                dir = {0, 0, 0};
                dir[static_cast<size_t>(k)] = 1.0;
            }
        }
        axis[k] = scaled(dir, len / norm(dir));
    }
}

} // namespace

double norm(const Vec3 &v)
{
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

bool geometryOf(const VxField3 &field, Geometry &g, KcString &why)
{
    const VxLattice3 *lat = field.lattice();
    if (!lat) {
        why = "the field has no regular lattice";
        return false;
    }
    const SbMatrix m = field.hasTransform() ? field.transform() : SbMatrix::identity();
    for (int r = 0; r < 3; ++r)
        if (std::fabs(m[r][3]) > 1e-6) {
            why = "the field's transformation is projective";
            return false;
        }
    if (std::fabs(m[3][3] - 1.0f) > 1e-6) {
        why = "the field's transformation is projective";
        return false;
    }

    float box[6];
    lat->getBoundingBox(box);
    const double mm = field.unitLength() * 1000.0;
    double step[3];
    for (int k = 0; k < 3; ++k)
        step[k] = lat->dim(k) > 1 ? (static_cast<double>(box[2 * k + 1]) - box[2 * k]) /
                                        (lat->dim(k) - 1)
                                  : 0.0;

    Vec3 row[3];
    for (int k = 0; k < 3; ++k)
        row[k] = {m[k][0], m[k][1], m[k][2]};
    if (std::fabs(row[0][0] * (row[1][1] * row[2][2] - row[1][2] * row[2][1]) -
                  row[0][1] * (row[1][0] * row[2][2] - row[1][2] * row[2][0]) +
                  row[0][2] * (row[1][0] * row[2][1] - row[1][1] * row[2][0])) < 1e-12) {
        why = "the field's transformation is singular";
        return false;
    }

    const double local[3] = {box[0], box[2], box[4]};
    for (int c = 0; c < 3; ++c)
        g.origin[static_cast<size_t>(c)] =
            (local[0] * m[0][c] + local[1] * m[1][c] + local[2] * m[2][c] + m[3][c]) * mm;
    for (int k = 0; k < 3; ++k)
        g.axis[k] = scaled(row[k], step[k] * mm);
    fillEmptyAxes(g.axis, row);

    g.stacked = lat->coordType() == VX_COORD_STACKED;
    g.sliceOffsetsMm.clear();
    g.unevenSlices = false;
    g.maxSliceErrorMm = 0.0;
    if (g.stacked) {
        const KcDArray<float> &z = lat->sliceCoords();
        // Offsets along the direction of axis 2, which points the way the
        // slices run (step[2] carries the sign).
        const double alongAxis = norm(row[2]) * mm * (step[2] < 0 ? -1.0 : 1.0);
        const double spacing = norm(g.axis[2]);
        for (int k = 0; k < z.size(); ++k) {
            const double off = (static_cast<double>(z[k]) - z[0]) * alongAxis;
            g.sliceOffsetsMm.push_back(off);
            g.maxSliceErrorMm = std::max(g.maxSliceErrorMm, std::fabs(off - k * spacing));
        }
        g.unevenSlices = g.maxSliceErrorMm > 1e-3;
    }
    return true;
}

bool sameGeometry(const Geometry &a, const Geometry &b, const int dims[3], double tolMm)
{
    // Corners of the lattice (and the origin) are enough: the maps are affine.
    for (int corner = 0; corner < 8; ++corner) {
        Vec3 pa = a.origin;
        Vec3 pb = b.origin;
        for (int k = 0; k < 3; ++k) {
            const double n = (corner >> k & 1) ? std::max(dims[k] - 1, 1) : 0;
            for (size_t c = 0; c < 3; ++c) {
                pa[c] += n * a.axis[k][c];
                pb[c] += n * b.axis[k][c];
            }
        }
        for (size_t c = 0; c < 3; ++c)
            if (std::fabs(pa[c] - pb[c]) > tolMm)
                return false;
    }
    if (a.stacked != b.stacked || a.sliceOffsetsMm.size() != b.sliceOffsetsMm.size())
        return false;
    for (size_t k = 0; k < a.sliceOffsetsMm.size(); ++k)
        if (std::fabs(a.sliceOffsetsMm[k] - b.sliceOffsetsMm[k]) > tolMm)
            return false;
    return true;
}

std::unique_ptr<VxRegScalarField3> makeField(const int dims[3], KcPrimType type, int components,
                                             void *data, Geometry g, double mmPerUnit)
{
    const bool stacked = g.stacked && static_cast<int>(g.sliceOffsetsMm.size()) == dims[2];
    std::unique_ptr<VxRegScalarField3> field;
    if (components > 1)
        field = std::make_unique<VxRegColorField3>(dims, stacked ? VX_COORD_STACKED
                                                                 : VX_COORD_UNIFORM,
                                                   components, data, type);
    else if (stacked)
        field = std::make_unique<VxStackedScalarField3>(dims, type, data);
    else
        field = std::make_unique<VxUniformScalarField3>(dims, type, data);
    VxLattice3 *lat = field->lattice();

    const Vec3 noDir[3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    fillEmptyAxes(g.axis, noDir);
    std::vector<double> offsets = g.sliceOffsetsMm;

    // The patient axis each file axis runs closest to.
    int nearest[3];
    for (int k = 0; k < 3; ++k) {
        nearest[k] = 0;
        for (int c = 1; c < 3; ++c)
            if (std::fabs(g.axis[k][static_cast<size_t>(c)]) >
                std::fabs(g.axis[k][static_cast<size_t>(nearest[k])]))
                nearest[k] = c;
    }
    const bool permutation =
        nearest[0] != nearest[1] && nearest[1] != nearest[2] && nearest[0] != nearest[2];
    // A stacked lattice keeps its slice axis last.
    const bool reorder = permutation && (!stacked || nearest[2] == 2);

    Vec3 axis[3] = {g.axis[0], g.axis[1], g.axis[2]};
    Vec3 origin = g.origin;
    if (reorder) {
        int perm[3];
        for (int k = 0; k < 3; ++k)
            perm[nearest[k]] = k;
        lat->swapDims(perm[0], perm[1], perm[2]);
        for (int w = 0; w < 3; ++w)
            axis[w] = g.axis[perm[w]];
        for (int w = 0; w < 3; ++w) {
            if (axis[w][static_cast<size_t>(w)] >= 0)
                continue;
            lat->mirror(w);
            const int n = lat->dim(w);
            if (w == 2 && stacked) {
                const Vec3 u = scaled(axis[2], 1.0 / norm(axis[2]));
                const double last = offsets.back();
                for (size_t c = 0; c < 3; ++c)
                    origin[c] += last * u[c];
                std::vector<double> mirrored(offsets.size());
                for (size_t k = 0; k < offsets.size(); ++k)
                    mirrored[k] = last - offsets[offsets.size() - 1 - k];
                offsets = mirrored;
            } else {
                for (size_t c = 0; c < 3; ++c)
                    origin[c] += (n - 1) * axis[w][c];
            }
            axis[w] = scaled(axis[w], -1.0);
        }
    }

    bool aligned = reorder;
    for (int w = 0; w < 3 && aligned; ++w)
        for (int c = 0; c < 3; ++c)
            if (c != w && std::fabs(axis[w][static_cast<size_t>(c)]) > 1e-6 * norm(axis[w]))
                aligned = false;

    float box[6];
    if (aligned) {
        for (int w = 0; w < 3; ++w) {
            const double lo = origin[static_cast<size_t>(w)];
            const double hi = lo + (lat->dim(w) - 1) * axis[w][static_cast<size_t>(w)];
            box[2 * w] = static_cast<float>(lo / mmPerUnit);
            box[2 * w + 1] = static_cast<float>(hi / mmPerUnit);
        }
        if (stacked) {
            std::vector<float> z(offsets.size());
            for (size_t k = 0; k < offsets.size(); ++k)
                z[k] = static_cast<float>((origin[2] + offsets[k]) / mmPerUnit);
            lat->setSliceCoords(z.data(), static_cast<int>(z.size()));
        }
        lat->setBoundingBox(box);
    } else {
        SbMatrix m = SbMatrix::identity();
        for (int w = 0; w < 3; ++w) {
            const double len = norm(axis[w]);
            box[2 * w] = 0.0f;
            box[2 * w + 1] = static_cast<float>((lat->dim(w) - 1) * len / mmPerUnit);
            for (int c = 0; c < 3; ++c)
                m[w][c] = static_cast<float>(axis[w][static_cast<size_t>(c)] / len);
        }
        for (int c = 0; c < 3; ++c)
            m[3][c] = static_cast<float>(origin[static_cast<size_t>(c)] / mmPerUnit);
        if (stacked) {
            std::vector<float> z(offsets.size());
            for (size_t k = 0; k < offsets.size(); ++k)
                z[k] = static_cast<float>(offsets[k] / mmPerUnit);
            lat->setSliceCoords(z.data(), static_cast<int>(z.size()));
        }
        lat->setBoundingBox(box);
        field->setTransform(m);
    }
    field->parameters().setFloat("UnitLength", mmPerUnit / 1000.0);
    return field;
}

KcString baseName(const char *path)
{
    std::string name = path ? path : "";
    const size_t slash = name.find_last_of('/');
    if (slash != std::string::npos)
        name.erase(0, slash + 1);
    for (const char *ext : {".nii.gz", ".nii", ".nrrd", ".nhdr"})
        if (endsWithNoCase(name.c_str(), ext) && name.size() > std::strlen(ext)) {
            name.erase(name.size() - std::strlen(ext));
            break;
        }
    return name;
}

bool endsWithNoCase(const char *s, const char *suffix)
{
    const size_t n = std::strlen(s);
    const size_t m = std::strlen(suffix);
    return n >= m && strcasecmp(s + n - m, suffix) == 0;
}

KcString systemError()
{
    return std::strerror(errno);
}

} // namespace vxfield
