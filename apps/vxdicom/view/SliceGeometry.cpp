#include "apps/vxdicom/view/SliceGeometry.h"

#include "platform/data/VxField3.h"

#include <Inventor/SbMatrix.h>

#include <algorithm>
#include <cmath>

namespace vxview {

namespace {

double dot(const Vec3 &a, const Vec3 &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

double norm(const Vec3 &v)
{
    return std::sqrt(dot(v, v));
}

Vec3 scaled(const Vec3 &v, double s)
{
    return {v[0] * s, v[1] * s, v[2] * s};
}

bool fail(std::string *why, const char *text)
{
    if (why)
        *why = text;
    return false;
}

} // namespace

AxisSampling AxisSampling::uniform(int n, double stepMm)
{
    AxisSampling a;
    a.count = n > 0 ? n : 0;
    a.step = stepMm > 0 ? stepMm : 1.0;
    return a;
}

bool AxisSampling::listed(const std::vector<double> &positionsMm, double singleWidthMm,
                          AxisSampling &out)
{
    if (positionsMm.empty() || positionsMm[0] != 0.0)
        return false;
    for (size_t i = 1; i < positionsMm.size(); ++i)
        if (!(positionsMm[i] > positionsMm[i - 1]) || !std::isfinite(positionsMm[i]))
            return false;
    if (positionsMm.size() == 1) {
        out = uniform(1, singleWidthMm);
        return true;
    }
    out = AxisSampling();
    out.count = static_cast<int>(positionsMm.size());
    out.positions = positionsMm;
    out.step = out.meanStep();
    return true;
}

double AxisSampling::position(int i) const
{
    if (isUniform())
        return i * step;
    return positions[static_cast<size_t>(std::clamp(i, 0, count - 1))];
}

double AxisSampling::positionAt(double t) const
{
    if (isUniform())
        return t * step;
    if (t <= 0)
        return positions.front();
    if (t >= count - 1)
        return positions.back();
    const int i = static_cast<int>(std::floor(t));
    const double f = t - i;
    return positions[static_cast<size_t>(i)] * (1 - f) + positions[static_cast<size_t>(i) + 1] * f;
}

double AxisSampling::lowEdge() const
{
    if (isUniform())
        return -step / 2;
    return -(positions[1] - positions[0]) / 2;
}

double AxisSampling::highEdge() const
{
    if (isUniform())
        return (count - 0.5) * step;
    const size_t n = positions.size();
    return positions[n - 1] + (positions[n - 1] - positions[n - 2]) / 2;
}

int AxisSampling::sampleAt(double posMm) const
{
    if (count < 1 || !(posMm >= lowEdge()) || !(posMm < highEdge()))
        return -1;
    if (isUniform())
        return std::clamp(static_cast<int>(std::floor(posMm / step + 0.5)), 0, count - 1);
    // The first sample past the point and the one before it; the boundary
    // between two cells belongs to the upper one, as for uniform axes.
    const auto next = std::upper_bound(positions.begin(), positions.end(), posMm);
    if (next == positions.begin())
        return 0;
    if (next == positions.end())
        return count - 1;
    const int upper = static_cast<int>(next - positions.begin());
    const double mid = (positions[static_cast<size_t>(upper) - 1] + *next) / 2;
    return posMm >= mid ? upper : upper - 1;
}

double AxisSampling::meanStep() const
{
    if (isUniform())
        return step;
    return (positions.back() - positions.front()) / (count - 1);
}

Vec3 FieldFrame::patientMm(double i, double j, double k) const
{
    const double t[3] = {i, j, k};
    Vec3 p = originMm;
    for (int a = 0; a < 3; ++a) {
        const double along = axis[a].positionAt(t[a]);
        for (int c = 0; c < 3; ++c)
            p[static_cast<size_t>(c)] += along * direction[a][static_cast<size_t>(c)];
    }
    return p;
}

bool frameOf(const VxField3 &field, FieldFrame &frame, std::string *why)
{
    const VxLattice3 *lat = field.lattice();
    if (!lat)
        return fail(why, "the field has no regular lattice");
    if (lat->numVoxels() == 0 || !lat->data())
        return fail(why, "the field has no samples");
    const SbMatrix m = field.hasTransform() ? field.transform() : SbMatrix::identity();
    for (int r = 0; r < 3; ++r)
        if (std::fabs(m[r][3]) > 1e-6)
            return fail(why, "the field's transformation is projective");
    if (std::fabs(m[3][3] - 1.0f) > 1e-6)
        return fail(why, "the field's transformation is projective");

    Vec3 row[3];
    for (int a = 0; a < 3; ++a)
        row[a] = {m[a][0], m[a][1], m[a][2]};
    const double det = row[0][0] * (row[1][1] * row[2][2] - row[1][2] * row[2][1]) -
                       row[0][1] * (row[1][0] * row[2][2] - row[1][2] * row[2][0]) +
                       row[0][2] * (row[1][0] * row[2][1] - row[1][1] * row[2][0]);
    if (!std::isfinite(det) || std::fabs(det) < 1e-12)
        return fail(why, "the field's transformation is singular");

    const double mm = field.unitLength() * 1000.0;
    float box[6];
    lat->getBoundingBox(box);
    float local[3];
    lat->voxelPosition(0, 0, 0, local);
    for (int c = 0; c < 3; ++c)
        frame.originMm[static_cast<size_t>(c)] =
            (local[0] * m[0][c] + local[1] * m[1][c] + local[2] * m[2][c] + m[3][c]) * mm;

    const bool stacked = lat->coordType() == VX_COORD_STACKED;
    double stepMm[3] = {0, 0, 0};
    std::vector<double> slicePositions;
    for (int a = 0; a < 3; ++a) {
        frame.dims[a] = lat->dim(a);
        const double len = norm(row[a]);
        Vec3 dir = scaled(row[a], 1.0 / len);
        const int n = lat->dim(a);
        if (stacked && a == 2) {
            const KcDArray<float> &z = lat->sliceCoords();
            if (z.size() != n)
                return fail(why, "the field's slice coordinates do not match its slices");
            for (int k = 0; k < n; ++k)
                slicePositions.push_back((static_cast<double>(z[k]) - z[0]) * len * mm);
            // The index runs the other way when the slices descend.
            if (n > 1 && slicePositions.back() < 0) {
                dir = scaled(dir, -1.0);
                for (double &p : slicePositions)
                    p = -p;
            }
            stepMm[a] = n > 1 ? slicePositions.back() / (n - 1) : 0.0;
        } else {
            const double s =
                n > 1 ? (static_cast<double>(box[2 * a + 1]) - box[2 * a]) / (n - 1) * len * mm
                      : 0.0;
            if (s < 0)
                dir = scaled(dir, -1.0);
            stepMm[a] = std::fabs(s);
            if (n > 1 && !(stepMm[a] > 0))
                return fail(why, "the field's box is flat or not finite along an axis with "
                                 "several samples");
        }
        frame.direction[a] = dir;
    }
    for (int c = 0; c < 3; ++c)
        if (!std::isfinite(frame.originMm[static_cast<size_t>(c)]))
            return fail(why, "the field's position is not finite");

    // A lone sample has no spacing of its own: it is drawn as thick as the
    // others are apart.
    double sum = 0;
    int count = 0;
    for (int a = 0; a < 3; ++a)
        if (frame.dims[a] > 1) {
            sum += stepMm[a];
            ++count;
        }
    const double lone = count > 0 ? sum / count : 1.0;
    for (int a = 0; a < 3; ++a) {
        if (stacked && a == 2) {
            if (!AxisSampling::listed(slicePositions, lone, frame.axis[a]))
                return fail(why, "the field's slice coordinates are not in order");
        } else {
            frame.axis[a] =
                AxisSampling::uniform(frame.dims[a], frame.dims[a] > 1 ? stepMm[a] : lone);
        }
    }
    return true;
}

std::array<int, 3> latticeAxisOfPatient(const FieldFrame &frame)
{
    static const int perms[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                    {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    int best = 0;
    double bestScore = -1;
    for (int p = 0; p < 6; ++p) {
        double score = 0;
        for (int c = 0; c < 3; ++c)
            score += std::fabs(frame.direction[perms[p][c]][static_cast<size_t>(c)]);
        if (score > bestScore + 1e-12) {
            bestScore = score;
            best = p;
        }
    }
    return {perms[best][0], perms[best][1], perms[best][2]};
}

double obliquityDeg(const FieldFrame &frame)
{
    const std::array<int, 3> axisOf = latticeAxisOfPatient(frame);
    double worst = 0;
    for (int c = 0; c < 3; ++c) {
        const double cosine = std::fabs(frame.direction[axisOf[c]][static_cast<size_t>(c)]);
        worst = std::max(worst, std::acos(std::min(cosine, 1.0)));
    }
    return worst * 180.0 / M_PI;
}

double shearDeg(const FieldFrame &frame)
{
    double worst = 0;
    for (int a = 0; a < 3; ++a)
        for (int b = a + 1; b < 3; ++b) {
            const double cosine =
                std::clamp(dot(frame.direction[a], frame.direction[b]), -1.0, 1.0);
            worst = std::max(worst, std::fabs(90.0 - std::acos(cosine) * 180.0 / M_PI));
        }
    return worst;
}

const char *viewName(View view)
{
    switch (view) {
    case View::Axial:
        return "axial";
    case View::Coronal:
        return "coronal";
    case View::Sagittal:
        return "sagittal";
    }
    return "";
}

void PlaneFrame::toPlane(double pu, double pv, double &x, double &y) const
{
    x = pu * uRight + pv * vRight;
    y = pv * vDown;
}

void PlaneFrame::fromPlane(double x, double y, double &pu, double &pv) const
{
    pv = y / vDown;
    pu = (x - pv * vRight) / uRight;
}

PlaneFrame planeFrame(const FieldFrame &frame, View view)
{
    const std::array<int, 3> axisOf = latticeAxisOfPatient(frame);
    PlaneFrame p;
    p.view = view;
    Vec3 preferRight{1, 0, 0}, preferDown{0, 1, 0};
    switch (view) {
    case View::Axial:
        p.normalAxis = axisOf[2];
        p.uAxis = axisOf[0];
        p.vAxis = axisOf[1];
        break;
    case View::Coronal:
        p.normalAxis = axisOf[1];
        p.uAxis = axisOf[0];
        p.vAxis = axisOf[2];
        preferRight = {1, 0, 0};
        preferDown = {0, 0, -1};
        break;
    case View::Sagittal:
        p.normalAxis = axisOf[0];
        p.uAxis = axisOf[1];
        p.vAxis = axisOf[2];
        preferRight = {0, 1, 0};
        preferDown = {0, 0, -1};
        break;
    }
    const Vec3 &du = frame.direction[p.uAxis];
    const Vec3 &dv = frame.direction[p.vAxis];
    p.right = scaled(du, dot(du, preferRight) < 0 ? -1.0 : 1.0);
    // Down is the part of v perpendicular to right: the plane's own second
    // axis, which v leaves only when the field is sheared.
    const double along = dot(dv, p.right);
    Vec3 w = {dv[0] - along * p.right[0], dv[1] - along * p.right[1], dv[2] - along * p.right[2]};
    const double wLen = norm(w);
    w = scaled(w, 1.0 / wLen);
    p.down = scaled(w, dot(w, preferDown) < 0 ? -1.0 : 1.0);
    p.uRight = dot(du, p.right);
    p.vRight = along;
    p.vDown = dot(dv, p.down);
    return p;
}

void voxelToPlane(const FieldFrame &frame, const PlaneFrame &plane, const int voxel[3], double &x,
                  double &y)
{
    plane.toPlane(frame.axis[plane.uAxis].position(voxel[plane.uAxis]),
                  frame.axis[plane.vAxis].position(voxel[plane.vAxis]), x, y);
}

bool planeToVoxel(const FieldFrame &frame, const PlaneFrame &plane, double x, double y,
                  int voxel[3])
{
    double pu, pv;
    plane.fromPlane(x, y, pu, pv);
    const int iu = frame.axis[plane.uAxis].sampleAt(pu);
    const int iv = frame.axis[plane.vAxis].sampleAt(pv);
    if (iu < 0 || iv < 0)
        return false;
    voxel[plane.uAxis] = iu;
    voxel[plane.vAxis] = iv;
    return true;
}

void planeExtent(const FieldFrame &frame, const PlaneFrame &plane, double box[4])
{
    const AxisSampling &u = frame.axis[plane.uAxis];
    const AxisSampling &v = frame.axis[plane.vAxis];
    box[0] = box[2] = 1e300;
    box[1] = box[3] = -1e300;
    for (double pu : {u.lowEdge(), u.highEdge()})
        for (double pv : {v.lowEdge(), v.highEdge()}) {
            double x, y;
            plane.toPlane(pu, pv, x, y);
            box[0] = std::min(box[0], x);
            box[1] = std::max(box[1], x);
            box[2] = std::min(box[2], y);
            box[3] = std::max(box[3], y);
        }
}

std::string directionLetters(const Vec3 &d, double minComponent)
{
    static const char positive[3] = {'L', 'P', 'S'};
    static const char negative[3] = {'R', 'A', 'I'};
    int order[3] = {0, 1, 2};
    std::stable_sort(order, order + 3, [&d](int a, int b) {
        return std::fabs(d[static_cast<size_t>(a)]) > std::fabs(d[static_cast<size_t>(b)]);
    });
    std::string letters;
    for (int n = 0; n < 3; ++n) {
        const double c = d[static_cast<size_t>(order[n])];
        if (c == 0 || (n > 0 && std::fabs(c) < minComponent))
            break;
        letters += c > 0 ? positive[order[n]] : negative[order[n]];
    }
    return letters;
}

EdgeLetters edgeLetters(const PlaneFrame &plane)
{
    EdgeLetters e;
    e.right = directionLetters(plane.right);
    e.left = directionLetters(scaled(plane.right, -1.0));
    e.bottom = directionLetters(plane.down);
    e.top = directionLetters(scaled(plane.down, -1.0));
    return e;
}

} // namespace vxview
