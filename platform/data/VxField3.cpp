#include "platform/data/VxField3.h"

#include <Inventor/SbVec3f.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

namespace {

template <typename T>
bool rangeOf(const void *data, size_t n, double &min, double &max)
{
    const T *p = static_cast<const T *>(data);
    if constexpr (std::is_floating_point_v<T>) {
        bool any = false;
        T lo{};
        T hi{};
        for (size_t i = 0; i < n; ++i) {
            const T v = p[i];
            if (std::isnan(v))
                continue;
            if (!any) {
                lo = hi = v;
                any = true;
            }
            lo = v < lo ? v : lo;
            hi = v > hi ? v : hi;
        }
        if (any) {
            min = static_cast<double>(lo);
            max = static_cast<double>(hi);
        }
        return any;
    } else {
        if (n == 0)
            return false;
        // Branch-free, so that it vectorises.
        T lo = p[0];
        T hi = p[0];
        for (size_t i = 1; i < n; ++i) {
            lo = std::min(lo, p[i]);
            hi = std::max(hi, p[i]);
        }
        min = static_cast<double>(lo);
        max = static_cast<double>(hi);
        return true;
    }
}

} // namespace

VxField3::~VxField3() = default;

void VxField3::getBoundingBox(float bbox[6]) const
{
    if (const VxLattice3 *lat = lattice()) {
        lat->getBoundingBox(bbox);
        return;
    }
    for (int i = 0; i < 6; ++i)
        bbox[i] = 0.0f;
}

void VxField3::setTransform(const SbMatrix &m)
{
    matrix = m;
    transformSet = true;
}

void VxField3::clearTransform()
{
    matrix = SbMatrix::identity();
    transformSet = false;
}

void VxField3::voxelToWorld(int i, int j, int k, float out[3]) const
{
    const VxLattice3 *lat = lattice();
    if (!lat) {
        out[0] = out[1] = out[2] = 0.0f;
        return;
    }
    lat->voxelPosition(i, j, k, out);
    if (transformSet) {
        SbVec3f world;
        matrix.multVecMatrix(SbVec3f(out[0], out[1], out[2]), world);
        out[0] = world[0];
        out[1] = world[1];
        out[2] = world[2];
    }
}

bool VxField3::getRange(double &min, double &max) const
{
    const VxLattice3 *lat = lattice();
    if (!lat || !lat->data() || lat->numVoxels() == 0)
        return false;
    const size_t n = lat->numVoxels() * static_cast<size_t>(lat->nComponents());
    switch (lat->primType().id()) {
    case KcPrimType::UInt8: return rangeOf<uint8_t>(lat->data(), n, min, max);
    case KcPrimType::Int16: return rangeOf<int16_t>(lat->data(), n, min, max);
    case KcPrimType::UInt16: return rangeOf<uint16_t>(lat->data(), n, min, max);
    case KcPrimType::Int32: return rangeOf<int32_t>(lat->data(), n, min, max);
    case KcPrimType::Float: return rangeOf<float>(lat->data(), n, min, max);
    }
    return false;
}

double VxField3::unitLength() const
{
    const VxParameter *p = parameters().parameter("UnitLength");
    if (!p)
        return 0.001;
    const double v = p->floatValue();
    return v > 0.0 ? v : 0.001;
}

VxRegScalarField3::VxRegScalarField3(const int dims[3], KcPrimType type, int components,
                                     void *data, VxCoordType coordType)
    : lat(std::make_unique<VxLattice3>(dims, type, components, data, coordType))
{
}

VxUniformScalarField3::VxUniformScalarField3(const int dims[3], KcPrimType type, void *data)
    : VxRegScalarField3(dims, type, 1, data, VX_COORD_UNIFORM)
{
}

VxStackedScalarField3::VxStackedScalarField3(const int dims[3], KcPrimType type, void *data)
    : VxRegScalarField3(dims, type, 1, data, VX_COORD_STACKED)
{
}

VxRegColorField3::VxRegColorField3(const int dims[3], VxCoordType coordType, int components,
                                   void *data, KcPrimType type)
    : VxRegScalarField3(dims, type, components, data, coordType)
{
}
