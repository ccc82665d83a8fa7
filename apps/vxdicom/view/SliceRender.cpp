#include "apps/vxdicom/view/SliceRender.h"

#include "platform/data/VxLattice3.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vxview {

namespace {

template <class T> double load(const unsigned char *p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return static_cast<double>(v);
}

double loadSample(const unsigned char *p, KcPrimType type)
{
    switch (type.id()) {
    case KcPrimType::UInt8:
        return *p;
    case KcPrimType::Int16:
        return load<int16_t>(p);
    case KcPrimType::UInt16:
        return load<uint16_t>(p);
    case KcPrimType::Int32:
        return load<int32_t>(p);
    case KcPrimType::Float:
        return load<float>(p);
    }
    return 0;
}

inline uint32_t argbOf(unsigned char r, unsigned char g, unsigned char b)
{
    return 0xff000000u | (uint32_t(r) << 16) | (uint32_t(g) << 8) | b;
}

// One row of the picture for one sample type: T is read straight from the
// lattice, so the switch over types stays out of the pixel loop.
template <class T>
void renderRow(const unsigned char *slice, size_t strideU, int components, const AxisSampling &u,
               double pu0, double puStep, int width, const RenderStyle &style, uint32_t *out)
{
    const size_t sampleBytes = sizeof(T);
    for (int px = 0; px < width; ++px) {
        const int iu = u.sampleAt(pu0 + px * puStep);
        if (iu < 0) {
            out[px] = style.background;
            continue;
        }
        const unsigned char *voxel = slice + static_cast<size_t>(iu) * strideU;
        if (components >= 3) {
            unsigned char rgb[3];
            for (int c = 0; c < 3; ++c)
                rgb[c] =
                    greyByte(style.scale.value(load<T>(voxel + c * sampleBytes)), style.window);
            out[px] = argbOf(rgb[0], rgb[1], rgb[2]);
        } else {
            const unsigned char g = greyByte(style.scale.value(load<T>(voxel)), style.window);
            out[px] = argbOf(g, g, g);
        }
    }
}

} // namespace

ViewPort fittedViewPort(const FieldFrame &frame, const PlaneFrame &plane, int width, int height)
{
    double box[4];
    planeExtent(frame, plane, box);
    ViewPort port;
    port.width = width;
    port.height = height;
    port.centreX = (box[0] + box[1]) / 2;
    port.centreY = (box[2] + box[3]) / 2;
    const double w = std::max(box[1] - box[0], 1e-6);
    const double h = std::max(box[3] - box[2], 1e-6);
    const double scale = std::min(width / w, height / h) * 0.92;
    port.pixelsPerMm = scale > 0 ? scale : 1;
    return port;
}

void zoomAbout(ViewPort &port, double factor, double sx, double sy)
{
    if (!(factor > 0))
        return;
    const double x = port.toPlaneX(sx), y = port.toPlaneY(sy);
    // From a whole body in a few pixels to a voxel filling the screen.
    port.pixelsPerMm = std::clamp(port.pixelsPerMm * factor, 0.01, 1000.0);
    port.centreX = x - (sx - port.width / 2.0) / port.pixelsPerMm;
    port.centreY = y - (sy - port.height / 2.0) / port.pixelsPerMm;
}

bool screenToVoxel(const FieldFrame &frame, const PlaneFrame &plane, const ViewPort &port,
                   double sx, double sy, int voxel[3])
{
    return planeToVoxel(frame, plane, port.toPlaneX(sx), port.toPlaneY(sy), voxel);
}

void voxelToScreen(const FieldFrame &frame, const PlaneFrame &plane, const ViewPort &port,
                   const int voxel[3], double &sx, double &sy)
{
    double x, y;
    voxelToPlane(frame, plane, voxel, x, y);
    sx = port.toScreenX(x);
    sy = port.toScreenY(y);
}

double sampleOf(const VxLattice3 &lattice, int i, int j, int k, int component)
{
    const int idx[3] = {i, j, k};
    for (int a = 0; a < 3; ++a)
        if (idx[a] < 0 || idx[a] >= lattice.dim(a))
            return 0;
    if (component < 0 || component >= lattice.nComponents() || !lattice.data())
        return 0;
    const size_t voxel =
        static_cast<size_t>(i) +
        static_cast<size_t>(lattice.dim(0)) *
            (static_cast<size_t>(j) + static_cast<size_t>(lattice.dim(1)) * static_cast<size_t>(k));
    const auto *base = static_cast<const unsigned char *>(lattice.data());
    return loadSample(base + voxel * static_cast<size_t>(lattice.voxelBytes()) +
                          static_cast<size_t>(component) * lattice.primType().size(),
                      lattice.primType());
}

void renderSlice(const VxLattice3 &lattice, const FieldFrame &frame, const PlaneFrame &plane,
                 int normalIndex, const ViewPort &port, const RenderStyle &style, uint32_t *argb,
                 int stride)
{
    const AxisSampling &u = frame.axis[plane.uAxis];
    const AxisSampling &v = frame.axis[plane.vAxis];
    const bool sliceInside = normalIndex >= 0 && normalIndex < lattice.dim(plane.normalAxis) &&
                             lattice.data() != nullptr;
    const size_t axisStride[3] = {1, static_cast<size_t>(lattice.dim(0)),
                                  static_cast<size_t>(lattice.dim(0)) *
                                      static_cast<size_t>(lattice.dim(1))};
    const size_t voxelBytes = static_cast<size_t>(lattice.voxelBytes());
    const auto *base = static_cast<const unsigned char *>(lattice.data());
    const int components = lattice.nComponents();

    // Along a screen row, the plane's y is fixed and its x grows by one
    // pixel's width per pixel: both axis positions are linear in px.
    const double dx = 1.0 / port.pixelsPerMm;
    for (int py = 0; py < port.height; ++py) {
        uint32_t *out = argb + static_cast<size_t>(py) * static_cast<size_t>(stride);
        const double y = port.toPlaneY(py + 0.5);
        const double pv = y / plane.vDown;
        const int iv = sliceInside ? v.sampleAt(pv) : -1;
        if (iv < 0) {
            std::fill(out, out + port.width, style.background);
            continue;
        }
        const double x0 = port.toPlaneX(0.5);
        const double pu0 = (x0 - pv * plane.vRight) / plane.uRight;
        const double puStep = dx / plane.uRight;
        const unsigned char *row =
            base + (static_cast<size_t>(normalIndex) * axisStride[plane.normalAxis] +
                    static_cast<size_t>(iv) * axisStride[plane.vAxis]) *
                       voxelBytes;
        const size_t strideU = axisStride[plane.uAxis] * voxelBytes;
        switch (lattice.primType().id()) {
        case KcPrimType::UInt8:
            renderRow<uint8_t>(row, strideU, components, u, pu0, puStep, port.width, style, out);
            break;
        case KcPrimType::Int16:
            renderRow<int16_t>(row, strideU, components, u, pu0, puStep, port.width, style, out);
            break;
        case KcPrimType::UInt16:
            renderRow<uint16_t>(row, strideU, components, u, pu0, puStep, port.width, style, out);
            break;
        case KcPrimType::Int32:
            renderRow<int32_t>(row, strideU, components, u, pu0, puStep, port.width, style, out);
            break;
        case KcPrimType::Float:
            renderRow<float>(row, strideU, components, u, pu0, puStep, port.width, style, out);
            break;
        }
    }
}

} // namespace vxview
