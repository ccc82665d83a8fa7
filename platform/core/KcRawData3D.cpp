#include "platform/core/KcRawData3D.h"

#include <cstring>

KcRawData3D::KcRawData3D(const void *data, const int dims[3], KcPrimType primType, int components)
    : samples(data), bytesPerElement(primType.size() * components), type(primType),
      nComponents(components)
{
    for (int i = 0; i < 3; ++i)
        dimensions[i] = dims ? dims[i] : 0;
}

KcRawData3D::KcRawData3D(const void *data, const int dims[3], int elementBytes)
    : samples(data), bytesPerElement(elementBytes), type(KcPrimType::UInt8),
      nComponents(elementBytes)
{
    for (int i = 0; i < 3; ++i)
        dimensions[i] = dims ? dims[i] : 0;
}

bool KcRawData3D::sliceDims(int axis, int &width, int &height, int &count) const
{
    switch (axis) {
    case 0:
        width = dimensions[1];
        height = dimensions[2];
        count = dimensions[0];
        return true;
    case 1:
        width = dimensions[0];
        height = dimensions[2];
        count = dimensions[1];
        return true;
    case 2:
        width = dimensions[0];
        height = dimensions[1];
        count = dimensions[2];
        return true;
    default:
        return false;
    }
}

bool KcRawData3D::extractSlice(int axis, int k, void *buffer) const
{
    int width = 0, height = 0, count = 0;
    if (!samples || !buffer || bytesPerElement <= 0 || !sliceDims(axis, width, height, count))
        return false;
    if (k < 0 || k >= count || width < 0 || height < 0)
        return false;

    const size_t eb = static_cast<size_t>(bytesPerElement);
    const size_t d0 = static_cast<size_t>(dimensions[0]);
    const size_t d1 = static_cast<size_t>(dimensions[1]);
    const size_t plane = d0 * d1;
    const auto *src = static_cast<const unsigned char *>(samples);
    auto *dst = static_cast<unsigned char *>(buffer);
    const size_t sk = static_cast<size_t>(k);

    switch (axis) {
    case 2:
        // The slice is one contiguous plane.
        std::memcpy(dst, src + sk * plane * eb, plane * eb);
        break;
    case 1:
        // Row k of every plane: each output row is contiguous in the source.
        for (size_t z = 0; z < static_cast<size_t>(height); ++z)
            std::memcpy(dst + z * d0 * eb, src + (z * plane + sk * d0) * eb, d0 * eb);
        break;
    case 0:
        // Column k of every row: one element at a time, stride dim0.
        for (size_t z = 0; z < static_cast<size_t>(height); ++z)
            for (size_t y = 0; y < d1; ++y)
                std::memcpy(dst + (z * d1 + y) * eb, src + (z * plane + y * d0 + sk) * eb, eb);
        break;
    }
    return true;
}
