#pragma once

#include "apps/vxdicom/view/SliceGeometry.h"
#include "apps/vxdicom/view/SliceRender.h"

#include <QImage>
#include <QWidget>

#include <array>

class VxField3;

namespace vxview {

/// One of the three slice views: the slice through the cursor, the
/// cross-hair, the letters on the edges and the view's name. A left click or
/// drag picks the cursor, the wheel steps through the slices (with Ctrl it
/// zooms about the pointer), a right drag changes the window, a middle drag
/// (or Shift with the left button) pans; a double click with the middle
/// button fits the slice again. The view keeps no state of the field's: the
/// viewer gives it the field, the cursor and the window.
class SliceView : public QWidget
{
    Q_OBJECT
public:
    explicit SliceView(View view, QWidget *parent = nullptr);

    /// The field and its frame (both borrowed; null clears the view).
    /// keepView keeps the zoom and pan (another time step of the same shape).
    void setField(const VxField3 *field, const FieldFrame *frame, bool keepView = false);
    void setCursorVoxel(const std::array<int, 3> &voxel);
    void setStyle(const RenderStyle &style);
    /// Fits the slice into the view again (after a zoom or pan).
    void fitToView();

    View view() const { return kind; }
    const PlaneFrame &plane() const { return planeOf; }
    const ViewPort &viewPort() const { return port; }
    EdgeLetters letters() const { return edges; }
    /// The slice's picture as drawn under the overlays (the widget's size).
    QImage picture();
    /// Where a voxel's centre is drawn, in widget coordinates.
    QPointF screenPointOf(const std::array<int, 3> &voxel) const;

signals:
    /// The user picked a voxel (its index along the view's normal is the
    /// cursor's).
    void voxelPicked(int i, int j, int k);
    /// The wheel asks for another slice.
    void sliceStepped(int delta);
    /// A right drag: dx, dy pixels from where it started; `starting` on
    /// the press.
    void windowDragged(int dx, int dy, bool starting);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;

private:
    void pick(const QPointF &pos);
    void renderIfNeeded();
    void drawOverlay(QPainter &painter);

    View kind;
    const VxField3 *field = nullptr;
    const FieldFrame *frame = nullptr;
    PlaneFrame planeOf;
    EdgeLetters edges;
    ViewPort port;
    bool fitted = true;
    std::array<int, 3> cursor{0, 0, 0};
    RenderStyle style;
    QImage image;
    bool dirty = true;

    enum class Drag { None, Pick, Window, Pan };
    Drag drag = Drag::None;
    QPointF dragStart;
    double panStartX = 0, panStartY = 0;
};

} // namespace vxview
