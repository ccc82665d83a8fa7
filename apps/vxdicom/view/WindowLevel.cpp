#include "apps/vxdicom/view/WindowLevel.h"

#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace vxview {

unsigned char greyByte(double value, const Window &window)
{
    const double width = window.width > 0 ? window.width : std::numeric_limits<double>::min();
    const double low = window.centre - width / 2;
    if (!(value > low)) // NaN is drawn black as well
        return 0;
    if (value > window.centre + width / 2)
        return 255;
    const double grey = ((value - window.centre) / width + 0.5) * 255.0;
    return static_cast<unsigned char>(std::clamp(std::lround(grey), 0L, 255L));
}

ValueScale valueScaleOf(const VxParamBundle &parameters)
{
    ValueScale s;
    if (const VxParameter *p = parameters.parameter("DataWindowScale"))
        if (const double v = p->floatValue(); v != 0 && std::isfinite(v))
            s.scale = v;
    if (const VxParameter *p = parameters.parameter("DataWindowBias"))
        if (const double v = p->floatValue(); std::isfinite(v))
            s.bias = v;
    return s;
}

bool dataWindowOf(const VxParamBundle &parameters, Window &window)
{
    const VxParameter *p = parameters.parameter("DataWindow");
    if (!p)
        return false;
    double low, high;
    if (std::sscanf(p->stringValue().c_str(), "%lf %lf", &low, &high) != 2 || !std::isfinite(low) ||
        !std::isfinite(high))
        return false;
    const ValueScale s = valueScaleOf(parameters);
    double a = s.value(low), b = s.value(high);
    if (a > b)
        std::swap(a, b);
    window.centre = (a + b) / 2;
    window.width = b > a ? b - a : 1;
    return true;
}

std::vector<WindowPreset> windowPresets(const VxField3 &field)
{
    std::vector<WindowPreset> presets;
    Window w;
    if (dataWindowOf(field.parameters(), w))
        presets.push_back({"Data window", w});
    double low, high;
    if (field.getRange(low, high)) {
        const ValueScale s = valueScaleOf(field.parameters());
        double a = s.value(low), b = s.value(high);
        if (a > b)
            std::swap(a, b);
        presets.push_back({"Full range", {(a + b) / 2, b > a ? b - a : 1}});
    }
    if (field.parameters().getString("Modality") == "CT") {
        presets.push_back({"Brain", {40, 80}});
        presets.push_back({"Lung", {-600, 1500}});
        presets.push_back({"Bone", {400, 1800}});
    }
    return presets;
}

Window draggedWindow(const Window &start, int dx, int dy, double valuesPerPixel)
{
    Window w;
    w.width = start.width + dx * valuesPerPixel;
    // Never narrower than one pixel's step, so a drag back can widen it again.
    const double narrowest = valuesPerPixel > 0 ? valuesPerPixel : 1e-6;
    if (!(w.width >= narrowest))
        w.width = narrowest;
    w.centre = start.centre - dy * valuesPerPixel;
    return w;
}

} // namespace vxview
