#pragma once

// Window and level of the slice views, without widgets: the grey byte of a
// value, the value of a sample, and the windows a user can pick.

#include <string>
#include <vector>

class VxField3;
class VxParamBundle;

namespace vxview {

/// A window in the field's values as the user reads them (rescaled).
struct Window
{
    double centre = 0;
    double width = 1; ///< > 0
};

/// The grey byte of a value: 0 at and below centre - width/2, 255 above
/// centre + width/2, linear in between and rounded to the nearest byte
/// (DICOM's LINEAR_EXACT VOI function, PS3.3 C.11.2.1.3.2, which also suits
/// floating-point fields whose useful windows are narrower than 1). A width
/// that is not positive is taken as the smallest positive one.
unsigned char greyByte(double value, const Window &window);

/// The way from a stored sample to the value shown: sample * scale + bias.
/// Fields whose rescale had to be adjusted to fit their sample type carry
/// it as "DataWindowScale" and "DataWindowBias".
struct ValueScale
{
    double scale = 1;
    double bias = 0;
    double value(double sample) const { return sample * scale + bias; }
};
ValueScale valueScaleOf(const VxParamBundle &parameters);

/// The window of a "DataWindow" parameter ("low high", stored samples),
/// turned into values; false without one or when it cannot be read.
bool dataWindowOf(const VxParamBundle &parameters, Window &window);

struct WindowPreset
{
    std::string name;
    Window window;
};

/// The windows offered for a field: "Data window" (from "DataWindow"), "Full
/// range" (the smallest and largest sample) and, for "Modality" CT, "Brain"
/// (80/40), "Lung" (1500/-600) and "Bone" (1800/400) in Hounsfield units
/// (width/centre).
std::vector<WindowPreset> windowPresets(const VxField3 &field);

/// The window a drag leaves: dx pixels to the right widen it, dy pixels
/// downwards lower its centre (the image gets brighter), each pixel by
/// valuesPerPixel. The width stays positive.
Window draggedWindow(const Window &start, int dx, int dy, double valuesPerPixel);

} // namespace vxview
