#include "vxdicom/stacks/DicomStackIcons.h"

#include <QPainter>
#include <QPixmap>

namespace {

constexpr int kSize = 16;

// A slice seen edge-on: a slanted bar, like a plate in perspective.
void drawSlice(QPainter &p, qreal y, const QColor &colour)
{
    const QPointF plate[4] = {{2, y + 2}, {10, y + 2}, {14, y - 1}, {6, y - 1}};
    p.setBrush(colour);
    p.setPen(QPen(colour.darker(160), 1));
    p.drawPolygon(plate, 4);
}

QPixmap draw(DicomStackIcons::Kind kind)
{
    QPixmap pixmap(kSize, kSize);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    switch (kind) {
    case DicomStackIcons::Slice:
        drawSlice(p, 8, QColor(70, 130, 200));
        break;
    case DicomStackIcons::Uniform:
        for (qreal y : {3.0, 7.0, 11.0, 15.0})
            drawSlice(p, y - 1, QColor(60, 170, 80));
        break;
    case DicomStackIcons::NonUniform:
        for (qreal y : {3.0, 5.0, 10.0, 15.0})
            drawSlice(p, y - 1, QColor(230, 150, 30));
        break;
    case DicomStackIcons::NonMonotonous:
        for (qreal y : {3.0, 7.0, 11.0, 15.0})
            drawSlice(p, y - 1, QColor(150, 150, 150));
        p.setPen(QPen(QColor(210, 30, 30), 2));
        p.drawLine(QPointF(2, 2), QPointF(14, 14));
        p.drawLine(QPointF(14, 2), QPointF(2, 14));
        break;
    }
    return pixmap;
}

} // namespace

QIcon DicomStackIcons::icon(Kind kind)
{
    // Never destroyed: pixmaps must not outlive the application object, and
    // a static array would be torn down after it.
    static const QIcon *icons = new QIcon[4]{QIcon(draw(Slice)), QIcon(draw(Uniform)),
                                             QIcon(draw(NonUniform)), QIcon(draw(NonMonotonous))};
    return icons[kind];
}
