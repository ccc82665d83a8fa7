#pragma once

// What the browser tells the user about one stack and one image, built from
// image records and headers only (no widget), so that it is tested on real
// files without a display.

#include "platform/core/KcDArray.h"

#include <QString>

class VxDicomImage;

/// Facts of a stack as the stack pane shows them (rich text): number of
/// images, size, voxel size, slice spacing and whether it is uniform, value
/// range, modality, orientation and `breakReason` (why the next stack broke
/// off; empty for the last stack). `images` are in stack order.
QString dicomStackInfoText(const KcDArray<VxDicomImage *> &images, bool uniform, bool monotonous,
                           const QString &breakReason);

/// The DICOM information of one image (plain text, one "name: value" per
/// line): its file, the identifying attributes of its header and its image
/// record (size, samples, spacing, location, position, directions, rescale).
QString dicomImageInfoText(const VxDicomImage *image);

/// The anatomical plane of an image from its directions: "axial", "coronal"
/// or "sagittal" by the axis its normal is closest to, with the angle to that
/// axis when it is more than 0.5 degrees ("axial, tilted by 18.5 degrees");
/// "unknown" without directions.
QString dicomOrientationText(const VxDicomImage *image);
