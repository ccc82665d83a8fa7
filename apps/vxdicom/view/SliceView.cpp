#include "apps/vxdicom/view/SliceView.h"

#include "platform/data/VxField3.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <cmath>

namespace vxview {

namespace {

// Each view has a colour: its name, its frame, and the lines of the other
// views that show where it cuts them.
QColor colourOf(View view)
{
    switch (view) {
    case View::Axial:
        return QColor(235, 90, 80);
    case View::Coronal:
        return QColor(90, 200, 110);
    case View::Sagittal:
        return QColor(90, 150, 240);
    }
    return Qt::white;
}

void drawShadowedText(QPainter &p, const QRectF &rect, int flags, const QString &text,
                      const QColor &colour)
{
    p.setPen(QColor(0, 0, 0, 200));
    p.drawText(rect.translated(1, 1), flags, text);
    p.setPen(colour);
    p.drawText(rect, flags, text);
}

} // namespace

SliceView::SliceView(View view, QWidget *parent) : QWidget(parent), kind(view)
{
    setObjectName(QString::fromLatin1(viewName(view)));
    setMinimumSize(160, 160);
    setFocusPolicy(Qt::ClickFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void SliceView::setField(const VxField3 *f, const FieldFrame *fr, bool keepView)
{
    const bool hadField = frame != nullptr;
    field = f && fr ? f : nullptr;
    frame = f && fr ? fr : nullptr;
    if (frame) {
        planeOf = planeFrame(*frame, kind);
        edges = edgeLetters(planeOf);
        if (!keepView || !hadField || fitted) {
            port = fittedViewPort(*frame, planeOf, width(), height());
            fitted = true;
        }
    } else {
        edges = EdgeLetters();
    }
    dirty = true;
    update();
}

void SliceView::setCursorVoxel(const std::array<int, 3> &voxel)
{
    if (voxel == cursor)
        return;
    if (frame && voxel[planeOf.normalAxis] != cursor[planeOf.normalAxis])
        dirty = true;
    cursor = voxel;
    update();
}

void SliceView::setStyle(const RenderStyle &s)
{
    style = s;
    dirty = true;
    update();
}

void SliceView::fitToView()
{
    fitted = true;
    if (frame)
        port = fittedViewPort(*frame, planeOf, width(), height());
    dirty = true;
    update();
}

QImage SliceView::picture()
{
    renderIfNeeded();
    return image;
}

QPointF SliceView::screenPointOf(const std::array<int, 3> &voxel) const
{
    if (!frame)
        return QPointF();
    double sx, sy;
    voxelToScreen(*frame, planeOf, port, voxel.data(), sx, sy);
    return QPointF(sx, sy);
}

void SliceView::renderIfNeeded()
{
    if (!dirty && image.size() == size())
        return;
    if (image.size() != size())
        image = QImage(size(), QImage::Format_RGB32);
    if (image.isNull())
        return;
    if (!field || !frame) {
        image.fill(QColor::fromRgba(style.background));
    } else {
        ViewPort p = port;
        p.width = image.width();
        p.height = image.height();
        renderSlice(*field->lattice(), *frame, planeOf, cursor[planeOf.normalAxis], p, style,
                    reinterpret_cast<uint32_t *>(image.bits()),
                    static_cast<int>(image.bytesPerLine() / 4));
    }
    dirty = false;
}

void SliceView::paintEvent(QPaintEvent *)
{
    renderIfNeeded();
    QPainter painter(this);
    painter.drawImage(0, 0, image);
    drawOverlay(painter);
}

void SliceView::drawOverlay(QPainter &p)
{
    p.setRenderHint(QPainter::Antialiasing, true);
    const QColor own = colourOf(kind);
    p.setPen(QPen(own, 2));
    p.drawRect(QRectF(1, 1, width() - 2, height() - 2));

    QFont font = p.font();
    font.setPixelSize(13);
    p.setFont(font);
    const QRectF inner = QRectF(rect()).adjusted(8, 6, -8, -6);
    if (!frame) {
        drawShadowedText(p, inner, Qt::AlignLeft | Qt::AlignTop,
                         QString::fromLatin1(viewName(kind)), own);
        return;
    }
    const int n = frame->dims[planeOf.normalAxis];
    drawShadowedText(p, inner, Qt::AlignLeft | Qt::AlignTop,
                     QStringLiteral("%1  %2/%3")
                         .arg(QString::fromLatin1(viewName(kind)))
                         .arg(cursor[planeOf.normalAxis] + 1)
                         .arg(n),
                     own);

    // The cross-hair: the lines where the other two views cut this slice,
    // through the cursor's voxel centre, across the whole slice (slanted in
    // a sheared plane).
    const AxisSampling &u = frame->axis[planeOf.uAxis];
    const AxisSampling &v = frame->axis[planeOf.vAxis];
    const double pu = u.position(cursor[planeOf.uAxis]);
    const double pv = v.position(cursor[planeOf.vAxis]);
    auto screen = [this](double a, double b) {
        double x, y;
        planeOf.toPlane(a, b, x, y);
        return QPointF(port.toScreenX(x), port.toScreenY(y));
    };
    for (View other : {View::Axial, View::Coronal, View::Sagittal}) {
        if (other == kind)
            continue;
        const int normal = planeFrame(*frame, other).normalAxis;
        QColor c = colourOf(other);
        c.setAlpha(190);
        p.setPen(QPen(c, 1));
        if (normal == planeOf.vAxis)
            p.drawLine(screen(u.lowEdge(), pv), screen(u.highEdge(), pv));
        else if (normal == planeOf.uAxis)
            p.drawLine(screen(pu, v.lowEdge()), screen(pu, v.highEdge()));
    }

    font.setPixelSize(16);
    font.setBold(true);
    p.setFont(font);
    const QColor letterColour(255, 235, 150);
    const QRectF edge = QRectF(rect()).adjusted(6, 4, -6, -4);
    drawShadowedText(p, edge, Qt::AlignLeft | Qt::AlignVCenter, QString::fromStdString(edges.left),
                     letterColour);
    drawShadowedText(p, edge, Qt::AlignRight | Qt::AlignVCenter,
                     QString::fromStdString(edges.right), letterColour);
    drawShadowedText(p, edge, Qt::AlignHCenter | Qt::AlignTop, QString::fromStdString(edges.top),
                     letterColour);
    drawShadowedText(p, edge, Qt::AlignHCenter | Qt::AlignBottom,
                     QString::fromStdString(edges.bottom), letterColour);
}

void SliceView::resizeEvent(QResizeEvent *)
{
    if (frame) {
        if (fitted) {
            port = fittedViewPort(*frame, planeOf, width(), height());
        } else {
            port.width = width();
            port.height = height();
        }
    }
    dirty = true;
}

void SliceView::pick(const QPointF &pos)
{
    if (!frame)
        return;
    int voxel[3] = {cursor[0], cursor[1], cursor[2]};
    if (screenToVoxel(*frame, planeOf, port, pos.x(), pos.y(), voxel))
        emit voxelPicked(voxel[0], voxel[1], voxel[2]);
}

void SliceView::mousePressEvent(QMouseEvent *event)
{
    dragStart = event->position();
    if (event->button() == Qt::LeftButton && !(event->modifiers() & Qt::ShiftModifier)) {
        drag = Drag::Pick;
        pick(event->position());
    } else if (event->button() == Qt::RightButton) {
        drag = Drag::Window;
        emit windowDragged(0, 0, true);
    } else if (event->button() == Qt::MiddleButton || event->button() == Qt::LeftButton) {
        drag = Drag::Pan;
        panStartX = port.centreX;
        panStartY = port.centreY;
    }
}

void SliceView::mouseMoveEvent(QMouseEvent *event)
{
    const QPointF d = event->position() - dragStart;
    switch (drag) {
    case Drag::Pick:
        pick(event->position());
        break;
    case Drag::Window:
        emit windowDragged(static_cast<int>(std::lround(d.x())),
                           static_cast<int>(std::lround(d.y())), false);
        break;
    case Drag::Pan:
        port.centreX = panStartX - d.x() / port.pixelsPerMm;
        port.centreY = panStartY - d.y() / port.pixelsPerMm;
        fitted = false;
        dirty = true;
        update();
        break;
    case Drag::None:
        break;
    }
}

void SliceView::mouseReleaseEvent(QMouseEvent *)
{
    drag = Drag::None;
}

void SliceView::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() == Qt::MiddleButton)
        fitToView();
    else
        mousePressEvent(event);
}

void SliceView::wheelEvent(QWheelEvent *event)
{
    const int steps = event->angleDelta().y() / 120;
    if (steps == 0)
        return;
    if (event->modifiers() & Qt::ControlModifier) {
        if (!frame)
            return;
        zoomAbout(port, std::pow(1.25, steps), event->position().x(), event->position().y());
        fitted = false;
        dirty = true;
        update();
    } else {
        emit sliceStepped(steps);
    }
    event->accept();
}

} // namespace vxview
