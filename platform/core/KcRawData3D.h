#pragma once

#include "platform/core/KcPrimType.h"

#include <cstddef>

/// A borrowed view of a 3D block of samples: dims[0] fastest, each element
/// `elementBytes` bytes (sample size x components). The view never owns or
/// frees the data.
class KcRawData3D
{
public:
    KcRawData3D() = default;
    KcRawData3D(const void *data, const int dims[3], KcPrimType type, int components = 1);
    /// The same for a bare type id: without it, `KcPrimType::Int16` would pick
    /// the element-bytes constructor below (an enum promotes to int before it
    /// converts to a class).
    KcRawData3D(const void *data, const int dims[3], KcPrimType::Id type, int components = 1)
        : KcRawData3D(data, dims, KcPrimType(type), components)
    {
    }
    /// A view whose elements are `elementBytes` bytes each (for colour data
    /// handed over as raw bytes).
    KcRawData3D(const void *data, const int dims[3], int elementBytes);

    const void *data() const { return samples; }
    int dim(int axis) const { return dimensions[axis]; }
    int elementBytes() const { return bytesPerElement; }
    KcPrimType primType() const { return type; }
    int components() const { return nComponents; }

    /// Dimensions of the 2D slices cut perpendicular to `axis` (width,
    /// height) and the number of such slices. For axis 2: (dim0, dim1, dim2);
    /// axis 1: (dim0, dim2, dim1); axis 0: (dim1, dim2, dim0). False for an
    /// axis outside 0..2.
    bool sliceDims(int axis, int &width, int &height, int &count) const;

    /// Copies slice k along axis into buffer (width x height elements, width
    /// fastest). False when axis or k is out of range or data is null.
    bool extractSlice(int axis, int k, void *buffer) const;

private:
    const void *samples = nullptr;
    int dimensions[3] = {0, 0, 0};
    int bytesPerElement = 0;
    KcPrimType type = KcPrimType::UInt8;
    int nComponents = 1;
};
