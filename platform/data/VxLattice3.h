#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcPrimType.h"
#include "platform/core/KcRawData3D.h"

#include <cstddef>

/// Coordinate types of regular fields: uniform (a bounding box) or stacked
/// (a box in x and y, one coordinate per slice along axis 2).
enum VxCoordType { VX_COORD_UNIFORM = 1, VX_COORD_STACKED = 2 };

/// The samples and coordinates of a regular 3D field. Samples are stored
/// with axis 0 fastest, then axis 1, then axis 2; each voxel holds
/// nComponents samples of primType, interleaved. The sample buffer is
/// allocated with the C allocator, or is the map of a write ahead
/// (WriteAhead::samples()), and is owned by the lattice.
class VxLattice3
{
public:
    /// Takes over `data` (malloc'd or a write ahead's map,
    /// dims[0]*dims[1]*dims[2]*components*size bytes; null allocates a
    /// zero-filled buffer). The coordinates start as
    /// the box (0, n0-1, 0, n1-1, 0, n2-1) and, for a stacked lattice, the
    /// slice coordinates 0, 1, ..., n2-1.
    VxLattice3(const int dims[3], KcPrimType type, int nComponents, void *data,
               VxCoordType coordType = VX_COORD_UNIFORM);
    ~VxLattice3();
    VxLattice3(const VxLattice3 &) = delete;
    VxLattice3 &operator=(const VxLattice3 &) = delete;

    const int *dims() const { return dimensions; }
    int dim(int axis) const { return dimensions[axis]; }
    KcPrimType primType() const { return type; }
    int nComponents() const { return components; }
    VxCoordType coordType() const { return coords; }
    /// Bytes of one voxel (all components).
    int voxelBytes() const { return type.size() * components; }
    size_t numVoxels() const;
    size_t numBytes() const { return numVoxels() * static_cast<size_t>(voxelBytes()); }
    void *data() { return samples; }
    const void *data() const { return samples; }
    /// A raw 3D view over the samples (valid while the lattice lives).
    KcRawData3D rawData() const;

    /// xmin, xmax, ymin, ymax, zmin, zmax in the field's local coordinates.
    /// For a stacked lattice z comes from the first and last slice coordinates.
    void getBoundingBox(float bbox[6]) const;
    /// Sets the box; for a stacked lattice only x and y are taken (z is the
    /// slice coordinates').
    void setBoundingBox(const float bbox[6]);
    /// Stacked lattices: one coordinate per index along axis 2.
    const KcDArray<float> &sliceCoords() const { return slices; }
    /// Stacked lattices: n must equal dim(2); returns false otherwise.
    bool setSliceCoords(const float *z, int n);
    /// Local coordinates of voxel (i, j, k) (no transformation).
    void voxelPosition(int i, int j, int k, float out[3]) const;

    /// Makes old axes i, j, k the new axes 0, 1, 2 (a permutation of 0, 1, 2),
    /// moving samples, dimensions and the box with them. A stacked lattice can
    /// only swap axes 0 and 1 (k must be 2); returns false otherwise. Needs
    /// one temporary copy of the samples (false, unchanged, when it cannot be
    /// allocated).
    bool swapDims(int i, int j, int k);
    /// Reverses the sample order along an axis (the box stays), in place.
    /// The slice coordinates of a stacked lattice stay too. An axis outside
    /// 0..2 is ignored.
    void mirror(int axis);

    /// Marks the coordinates as changed; the mark counts calls.
    void coordsChanged() { ++coordsChangedMark; }
    int coordsChangedCount() const { return coordsChangedMark; }

private:
    int dimensions[3];
    KcPrimType type;
    int components;
    VxCoordType coords;
    unsigned char *samples = nullptr;
    float box[6];
    KcDArray<float> slices;
    int coordsChangedMark = 0;
};
