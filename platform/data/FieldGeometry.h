#pragma once

// Internal to the field file code: the world placement of a field's samples
// in millimetres (LPS), and the way back from such a placement to a field.

#include "platform/core/KcPrimType.h"
#include "platform/core/KcString.h"
#include "platform/data/VxField3.h"

#include <array>
#include <memory>
#include <vector>

namespace vxfield {

using Vec3 = std::array<double, 3>;

/// Where the samples sit: voxel (i, j, k) is at origin + i*axis[0] + j*axis[1]
/// + k*axis[2] (millimetres, LPS). For stacked slices, slice k sits at
/// sliceOffsetsMm[k] along the direction of axis[2] from slice 0, and
/// axis[2] has the mean spacing.
struct Geometry
{
    Vec3 origin{0, 0, 0};
    Vec3 axis[3]{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    bool stacked = false;
    std::vector<double> sliceOffsetsMm;
    /// Stacked slices that are not evenly spaced (by more than 0.001 mm).
    bool unevenSlices = false;
    /// The largest distance of a slice from its evenly spaced position.
    double maxSliceErrorMm = 0.0;
};

double norm(const Vec3 &v);

/// The geometry of a field with a regular lattice. False (with why) for a
/// field without lattice or with a projective or singular transformation.
bool geometryOf(const VxField3 &field, Geometry &g, KcString &why);

/// True when the two place every voxel within tolMm of each other.
bool sameGeometry(const Geometry &a, const Geometry &b, const int dims[3], double tolMm);

/// A new field over `data` (malloc'd, taken over) of `dims` in the file's
/// axis order, placed by g: axes are swapped and mirrored to follow the
/// nearest patient axes with ascending coordinates; what remains oblique
/// becomes the transformation. Lengths in the field are divided by
/// mmPerUnit; "UnitLength" is set to mmPerUnit / 1000.
std::unique_ptr<VxRegScalarField3> makeField(const int dims[3], KcPrimType type, int components,
                                             void *data, Geometry g, double mmPerUnit);

/// The name without folders and without ".nii", ".nii.gz", ".nrrd" or ".nhdr".
KcString baseName(const char *path);

/// Case-insensitive suffix test.
bool endsWithNoCase(const char *s, const char *suffix);

/// Text of errno for messages.
KcString systemError();

} // namespace vxfield
