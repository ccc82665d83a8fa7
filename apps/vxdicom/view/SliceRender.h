#pragma once

// Drawing a slice view's picture, without widgets: the mapping between the
// view's pixels and its plane, and the pixels themselves.

#include "apps/vxdicom/view/SliceGeometry.h"
#include "apps/vxdicom/view/WindowLevel.h"

#include <cstdint>

class VxLattice3;

namespace vxview {

/// Which part of a view's plane its pixels show: the plane point
/// (centreX, centreY) sits at the middle of the width x height pixels, and
/// one millimetre is pixelsPerMm pixels in both directions. Screen
/// coordinates are continuous: pixel (px, py) covers px..px+1, py..py+1.
struct ViewPort
{
    int width = 0;
    int height = 0;
    double pixelsPerMm = 1;
    double centreX = 0;
    double centreY = 0;

    double toScreenX(double x) const { return width / 2.0 + (x - centreX) * pixelsPerMm; }
    double toScreenY(double y) const { return height / 2.0 + (y - centreY) * pixelsPerMm; }
    double toPlaneX(double sx) const { return centreX + (sx - width / 2.0) / pixelsPerMm; }
    double toPlaneY(double sy) const { return centreY + (sy - height / 2.0) / pixelsPerMm; }
};

/// The view port that shows the whole slice, centred, in width x height
/// pixels with a margin of 4% on each side.
ViewPort fittedViewPort(const FieldFrame &frame, const PlaneFrame &plane, int width, int height);

/// Zooms by factor about screen point (sx, sy): the plane point under it
/// stays under it. The scale stays within 0.01 and 1000 pixels per mm.
void zoomAbout(ViewPort &port, double factor, double sx, double sy);

/// The voxel under a screen point, as planeToVoxel.
bool screenToVoxel(const FieldFrame &frame, const PlaneFrame &plane, const ViewPort &port,
                   double sx, double sy, int voxel[3]);
/// The screen point of a voxel's centre.
void voxelToScreen(const FieldFrame &frame, const PlaneFrame &plane, const ViewPort &port,
                   const int voxel[3], double &sx, double &sy);

/// One stored sample of a lattice (component c of voxel i, j, k), as a
/// double; 0 outside the lattice.
double sampleOf(const VxLattice3 &lattice, int i, int j, int k, int component = 0);

/// What renderSlice draws with.
struct RenderStyle
{
    Window window;
    ValueScale scale;
    uint32_t background = 0xff101418u; ///< pixels outside the slice (ARGB)
};

/// Draws slice `normalIndex` (along plane.normalAxis) into `argb` (port.width
/// x port.height pixels, rows `stride` pixels apart, 0xAARRGGBB): each pixel
/// shows the voxel whose cell holds the pixel's centre, its value (sample
/// times the scale) through the window as a grey level; colour fields (3 or
/// 4 components) put each of their first three components through the
/// window. Pixels outside the slice get the background. The lattice must be
/// the frame's.
void renderSlice(const VxLattice3 &lattice, const FieldFrame &frame, const PlaneFrame &plane,
                 int normalIndex, const ViewPort &port, const RenderStyle &style, uint32_t *argb,
                 int stride);

} // namespace vxview
