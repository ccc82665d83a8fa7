#pragma once

// The geometry of the viewer's slice views, without widgets: where each
// voxel of a field lies in the patient (millimetres, DICOM's LPS axes), which
// lattice axis each of the three views shows across and down the screen, the
// letters on the edges of a view, and the way from a point of a view back to
// its voxel.
//
// How oblique, stacked and sheared fields are shown: every view draws a
// lattice plane of the field in its own plane (no resampling). The lattice
// axis that runs closest to the patient's left-right axis goes across the
// axial and coronal views, and so on, so that a field from an axial, coronal
// or sagittal series is seen the way radiologists look at it; a tilted field
// keeps its tilt, and the letters on the edges say where the edges point
// ("PI" for a direction mostly posterior, a little inferior). Drawing the
// stored planes, rather than resampling along the patient axes, shows every
// stored value as it was acquired (no interpolation), makes each screen
// pixel one voxel whose value and position the cross-hair reports exactly,
// and lets the slider step one acquired slice at a time. Stacked fields keep
// their uneven slice distances (each row of a view across the slices is as
// tall as the slice's share of the gaps) and a sheared field is drawn as the
// parallelogram its planes are.

#include <array>
#include <string>
#include <vector>

class VxField3;

namespace vxview {

using Vec3 = std::array<double, 3>;

/// Where the samples along one lattice axis lie, in millimetres from sample
/// 0 along the axis' direction: increasing positions, evenly spaced or
/// (stacked slices) not. The cell of a sample reaches halfway to each
/// neighbour; the outer cells reach as far outwards as inwards.
class AxisSampling
{
public:
    AxisSampling() = default;
    /// n samples stepMm apart (stepMm > 0; with n == 1 the cell is stepMm wide).
    static AxisSampling uniform(int n, double stepMm);
    /// Samples at the given positions, which must increase strictly and
    /// start at 0; `singleWidthMm` is the cell width of a lone sample.
    /// False (out unchanged) otherwise.
    static bool listed(const std::vector<double> &positionsMm, double singleWidthMm,
                       AxisSampling &out);

    int size() const { return count; }
    bool isUniform() const { return positions.empty(); }
    /// Position of sample i (any i, extrapolated for a uniform axis).
    double position(int i) const;
    /// The sample at fractional index t (linear between samples).
    double positionAt(double t) const;
    /// Lower and upper end of the cells of all samples.
    double lowEdge() const;
    double highEdge() const;
    /// The sample whose cell holds posMm, or -1 outside every cell.
    int sampleAt(double posMm) const;
    /// The mean distance between neighbouring samples (the width of a lone one).
    double meanStep() const;

private:
    int count = 0;
    double step = 1.0;             ///< uniform spacing, or a lone sample's width
    std::vector<double> positions; ///< listed positions; empty when uniform
};

/// A field's voxels in the patient: voxel (i, j, k) lies at
/// originMm + sum over a of axis[a].position(index a) * direction[a].
struct FieldFrame
{
    int dims[3] = {0, 0, 0};
    Vec3 originMm{0, 0, 0};
    /// Unit patient direction in which the index of each lattice axis grows.
    Vec3 direction[3]{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    AxisSampling axis[3];

    /// Patient position (mm, LPS) of a voxel centre; fractional indexes
    /// interpolate between samples.
    Vec3 patientMm(double i, double j, double k) const;
    /// The spacing of each axis (mean for stacked slices), millimetres.
    double spacingMm(int a) const { return axis[a].meanStep(); }
};

/// The frame of a field with a regular lattice. Lengths are converted to
/// millimetres with the field's "UnitLength". False, with the reason in
/// *why, for a field without a lattice or samples, with a projective or
/// singular transformation, or with slice coordinates that are not in order.
bool frameOf(const VxField3 &field, FieldFrame &frame, std::string *why);

/// For each patient axis (x: left, y: posterior, z: superior), the lattice
/// axis whose direction runs closest to it: of the six assignments, the one
/// with the largest sum of |cosine|.
std::array<int, 3> latticeAxisOfPatient(const FieldFrame &frame);

/// How far the field's axes are from the patient axes: the largest angle
/// (degrees) between a lattice axis and the patient axis it is shown along.
double obliquityDeg(const FieldFrame &frame);
/// How far the field's axes are from perpendicular: the largest departure
/// (degrees) of the angle between two lattice axes from 90.
double shearDeg(const FieldFrame &frame);

enum class View { Axial = 0, Coronal = 1, Sagittal = 2 };
const char *viewName(View view);

/// How one view shows a field. The screen's right and down are unit patient
/// directions in the plane of the view's lattice plane: right runs along the
/// u axis, down is the part of the v axis perpendicular to it (the two are
/// not perpendicular when the field is sheared). Their signs follow the
/// radiological convention: axial views have the patient's left (+x) on the
/// right and anterior (-y) at the top; coronal views left on the right and
/// superior (+z) at the top; sagittal views posterior (+y) on the right and
/// superior at the top.
struct PlaneFrame
{
    View view = View::Axial;
    int normalAxis = 2; ///< the lattice axis the slider steps through
    int uAxis = 0;      ///< the lattice axis across the screen
    int vAxis = 1;      ///< the lattice axis down the screen
    Vec3 right{1, 0, 0};
    Vec3 down{0, 1, 0};
    double uRight = 1; ///< u direction . right: +1 or -1
    double vRight = 0; ///< v direction . right: the shear
    double vDown = 1;  ///< v direction . down: nonzero

    /// Plane coordinates (mm; x to the right, y down) of the point at pu
    /// and pv millimetres along the u and v axes from voxel 0.
    void toPlane(double pu, double pv, double &x, double &y) const;
    /// The way back.
    void fromPlane(double x, double y, double &pu, double &pv) const;
};

PlaneFrame planeFrame(const FieldFrame &frame, View view);

/// Plane coordinates of a voxel's centre in a view (its normal index does
/// not matter: the view's lattice planes are parallel).
void voxelToPlane(const FieldFrame &frame, const PlaneFrame &plane, const int voxel[3], double &x,
                  double &y);
/// The voxel (u and v indexes in voxel[plane.uAxis], voxel[plane.vAxis])
/// whose cell holds plane point (x, y); false when the point is outside the
/// slice. voxel[plane.normalAxis] is left alone.
bool planeToVoxel(const FieldFrame &frame, const PlaneFrame &plane, double x, double y,
                  int voxel[3]);
/// The box (xmin, xmax, ymin, ymax) that holds the whole slice in plane
/// coordinates, cells included.
void planeExtent(const FieldFrame &frame, const PlaneFrame &plane, double box[4]);

/// A component at least this large (the cosine of an angle of about 84
/// degrees, a tilt of about 6 degrees) gets a letter of its own.
constexpr double kSecondLetterComponent = 0.1;

/// The patient letters of a direction (LPS): L for +x, R for -x, P for +y,
/// A for -y, S for +z, I for -z; the largest component's letter first, then
/// those of the other components at least minComponent in size, largest
/// first. Empty for a null direction.
std::string directionLetters(const Vec3 &direction, double minComponent = kSecondLetterComponent);

struct EdgeLetters
{
    std::string left, right, top, bottom;
};
EdgeLetters edgeLetters(const PlaneFrame &plane);

} // namespace vxview
