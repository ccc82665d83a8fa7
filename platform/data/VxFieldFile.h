#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcString.h"
#include "platform/data/VxField3.h"

#include <memory>

/// Saving fields to files other tools read, and loading such files, with the
/// field's place in the world intact.
///
/// Geometry. A field's world axes are DICOM patient axes (LPS: x toward the
/// patient's left, y toward posterior, z toward the head). The world position
/// of voxel (i, j, k) is its lattice position times the field's transformation
/// (when set), in the field's length unit ("UnitLength", metres per unit).
/// Files are written in millimetres:
/// - NIfTI-1 is RAS, so the x and y rows of the affine are negated. The
///   sform holds the exact affine (code 2, aligned); the qform holds its
///   rotation, voxel size and offset (code 1, scanner), so tools that read
///   either one place the volume alike (a sheared transformation fits the
///   sform only).
/// - NRRD writes "space: left-posterior-superior", "space directions" and
///   "space origin" (and "space units" of "mm").
/// An axis with a single sample has no spacing in the field; it is written
/// with the mean spacing of the other axes (1 mm when there is none).
///
/// Stacked fields (one coordinate per slice). NIfTI cannot store uneven
/// slices: the file gets the mean spacing between the first and the last
/// slice, and a warning on the console says so. NRRD gets the same mean
/// spacing in "space directions" (what other tools use) and, in addition,
/// the exact slice offsets in millimetres from the first slice as the key
/// "vx:SliceOffsets", from which loading restores a stacked field.
///
/// Samples. uint8, int16, uint16, int32 and float, one component per voxel,
/// or colour: 3 or 4 unsigned 8-bit components (NIfTI RGB24 / RGBA32; NRRD a
/// first axis of kind "RGB-color" / "RGBA-color"). NRRD also takes other
/// component counts and types (kind "vector").
///
/// Parameters. NRRD carries the field's whole parameter bundle as key:=value
/// pairs; nested bundles become paths ("DICOM/All/G0010-0010"), with "%", "/",
/// ":", "=", blanks and control characters of names percent-encoded, and
/// newlines and backslashes of values escaped as NRRD requires ("\n", "\\").
/// The key "vx:ParameterTypes" lists the integer and floating-point
/// parameters, so loading restores them with their types. NIfTI keeps only
/// the label (in "descrip").
///
/// Failures return false (or null) and put a reason that names the file in
/// `error`: "saving /tmp/a.nii failed: cannot open for writing: Permission
/// denied". A file that fails half-way is removed.
class VxFieldFile
{
public:
    enum Format { Unknown = 0, Nifti = 1, Nrrd = 2 };

    /// By the name's ending, case-insensitive: ".nii" and ".nii.gz" NIfTI;
    /// ".nrrd" and ".nhdr" NRRD.
    static Format formatOf(const char *path);

    /// Whether every corner of the field lies at a finite place (no NaN or
    /// infinity in its bounding box, slice coordinates or transformation).
    /// A field that fails is never saved: its affine would be unusable.
    static bool hasFiniteGeometry(const VxField3 &field);

    /// Saves by the name's ending (NRRD with raw encoding).
    [[nodiscard]] static bool save(const VxField3 &field, const char *path,
                                   KcString *error = nullptr);
    /// NIfTI-1, one file; ".gz" at the end compresses it.
    [[nodiscard]] static bool saveNifti(const VxField3 &field, const char *path,
                                        KcString *error = nullptr);
    /// NRRD with attached data, raw or gzip-encoded.
    [[nodiscard]] static bool saveNrrd(const VxField3 &field, const char *path, bool gzip = false,
                                       KcString *error = nullptr);
    /// Several fields (time steps, in order) as one 4D NIfTI-1 file. The fields
    /// must share dimensions, sample type, components and geometry (same voxel
    /// positions within 0.001 mm); otherwise nothing is written and the reason
    /// names the first step that differs. stepSeconds goes to pixdim[4].
    [[nodiscard]] static bool saveNiftiSeries(const KcDArray<const VxField3 *> &fields,
                                              const char *path, KcString *error = nullptr,
                                              double stepSeconds = 1.0);

    /// Loads by the name's ending. The result is a VxUniformScalarField3, a
    /// VxRegColorField3 (several components per voxel) or, from an NRRD file
    /// written with slice offsets, a VxStackedScalarField3. Its label is the
    /// file's base name. The axes are reordered and mirrored so that they run
    /// along the nearest patient axes with ascending coordinates; what remains
    /// (an oblique or sheared file) becomes the field's transformation. Lengths
    /// are in millimetres ("UnitLength" 0.001) unless the NRRD file restores
    /// another "UnitLength". NIfTI scaling (scl_slope, scl_inter other than 1
    /// and 0) gives float samples; int8 samples become int16 and float64
    /// become float. Of a file with several volumes, the first is loaded and a
    /// warning is printed.
    static std::unique_ptr<VxRegScalarField3> load(const char *path, KcString *error = nullptr);
    static std::unique_ptr<VxRegScalarField3> loadNifti(const char *path,
                                                         KcString *error = nullptr);
    /// Raw, gzip and ascii encodings; attached data or a single detached data
    /// file ("data file: name", relative to the header).
    static std::unique_ptr<VxRegScalarField3> loadNrrd(const char *path,
                                                        KcString *error = nullptr);
};
