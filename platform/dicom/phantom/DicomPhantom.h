#pragma once

#include "platform/core/KcString.h"

namespace dicom {

/// What the built-in example series looks like.
struct PhantomOptions
{
    int columns = 64;
    int rows = 64;
    int slices = 24;
    float pixelSpacingMm = 3.0f;   ///< in-plane spacing, square pixels
    float sliceSpacingMm = 4.0f;   ///< distance between slice positions
    float firstPositionMm[3] = {-94.5f, -120.0f, -40.0f}; ///< (0020,0032) of the first slice
    KcString patientName = "Phantom^Vx";
    KcString modality = "CT";      ///< "CT" (signed, intercept -1024) or "MR" (unsigned, no rescale)
};

/// Writes an axial phantom series, one single-frame file per slice
/// ("IM0001.dcm", ...), with DCMTK in explicit VR little endian: a water
/// ellipsoid holding a bone sphere and an air sphere. Returns false with an
/// error naming the file when a file cannot be written.
bool writePhantomSeries(const KcString &directory, const PhantomOptions &options, KcString *error);

/// The stored sample value of the phantom at a voxel (what a reader must find).
int phantomStoredValue(const PhantomOptions &options, int x, int y, int z);

} // namespace dicom
