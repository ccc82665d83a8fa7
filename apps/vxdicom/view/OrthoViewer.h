#pragma once

#include "apps/vxdicom/view/SliceGeometry.h"
#include "apps/vxdicom/view/WindowLevel.h"

#include <QWidget>

#include <array>

class QComboBox;
class QLabel;
class QSlider;
class VxDynamicSeriesCtrl;
class VxField3;
class VxPoolObject;

namespace vxview {

class SliceView;

/// The three slice views of one data object with their sliders, the shared
/// cross-hair (voxel, patient position in millimetres, value), the window
/// (presets and right drag) and, for a time-series control, the time slider.
/// It borrows the object: the caller clears it (setData(nullptr)) before the
/// object goes.
class OrthoViewer : public QWidget
{
    Q_OBJECT
public:
    explicit OrthoViewer(QWidget *parent = nullptr);

    /// Shows a field, or the current step of a time-series control; null
    /// (or an object without a displayable field) clears the views. The
    /// cursor goes to the middle and the window to the first preset.
    void setData(VxPoolObject *object);
    VxPoolObject *data() const { return object; }
    /// The field on show (the current step's of a control), or null.
    VxField3 *field() const { return shown; }
    const FieldFrame &frame() const { return fieldFrame; }

    /// Moves the cross-hair (indexes are clamped to the field).
    void setCursorVoxel(const std::array<int, 3> &voxel);
    std::array<int, 3> cursorVoxel() const { return cursor; }
    /// The cursor's voxel centre in the patient (millimetres, LPS).
    Vec3 cursorPatientMm() const;
    /// The value under the cursor (first component, rescaled).
    double cursorValue() const;

    void setWindow(const Window &window);
    Window window() const { return current; }
    /// How much a right drag of one pixel changes the window: the field's
    /// range over 512.
    double windowStepPerPixel() const { return valuesPerPixel; }
    /// Picks a preset by name; false when the field has none of that name.
    bool applyPreset(const QString &name);

    /// Makes step i of a time-series control current; false without a
    /// control or for a step out of range.
    bool setTimeStep(int step);

    SliceView *sliceView(View view) const { return views[static_cast<int>(view)]; }
    QSlider *sliceSlider(View view) const { return sliders[static_cast<int>(view)]; }
    QSlider *timeSlider() const { return time; }
    QComboBox *presetBox() const { return presets; }
    /// "voxel (i, j, k)  value v" and "x, y, z mm (LPS)" lines.
    QLabel *cursorLabel() const { return cursorText; }
    QLabel *windowLabel() const { return windowText; }

signals:
    void cursorChanged();
    void timeStepChanged(int step);
    /// A field that cannot be shown: the reason, naming the field.
    void problem(const QString &text);

private:
    void showField(VxField3 *field, bool keepState);
    void updateCursor();
    void updateStyle();
    void stepSlice(View view, int delta);
    void dragWindow(int dx, int dy, bool starting);

    VxPoolObject *object = nullptr;
    VxDynamicSeriesCtrl *series = nullptr;
    VxField3 *shown = nullptr;
    FieldFrame fieldFrame;
    ValueScale scale;
    std::array<int, 3> cursor{0, 0, 0};
    Window current;
    Window dragStartWindow;
    double valuesPerPixel = 1;

    SliceView *views[3] = {nullptr, nullptr, nullptr};
    QSlider *sliders[3] = {nullptr, nullptr, nullptr};
    QSlider *time = nullptr;
    QLabel *timeText = nullptr;
    QComboBox *presets = nullptr;
    QLabel *cursorText = nullptr;
    QLabel *windowText = nullptr;
    QLabel *geometryText = nullptr;
};

} // namespace vxview
