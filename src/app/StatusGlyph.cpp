#include "StatusGlyph.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

namespace {

// Every shape is laid out on a 22-unit grid, the size of a tray icon.
constexpr qreal kGrid = 22.0;

const QColor kInk(0x26, 0x26, 0x26);
const QColor kPaper(0xf5, 0xf5, 0xf5);
const QColor kSelectedBox(0x2a, 0x76, 0xdd);
const QColor kRunningDot(0x2f, 0xb3, 0x44);
const QColor kStoppedDot(0xb4, 0xb4, 0xb4);

const QRectF kBox(2.0, 3.0, 16.0, 16.0);
const QPointF kDotCentre(17.25, 17.25);
constexpr qreal kDotRadius = 4.0;
constexpr qreal kDotGap = 1.4;

QPainterPath playMark()
{
    QPainterPath path;
    path.moveTo(7.4, 6.9);
    path.lineTo(14.2, 11.0);
    path.lineTo(7.4, 15.1);
    path.closeSubpath();
    return path;
}

QPainterPath stopMark()
{
    QPainterPath path;
    path.addRoundedRect(QRectF(6.6, 7.4, 6.2, 6.2), 1.0, 1.0);
    return path;
}

// A transparent square image with `draw` run on the 22-unit grid.
template <typename Draw>
QImage drawOnGrid(int size, Draw draw)
{
    QImage image(qMax(size, 0), qMax(size, 0), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    if (size <= 0)
        return image;
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(size / kGrid, size / kGrid);
    draw(p);
    return image;
}

}

QImage StatusGlyph::render(int size, bool running, bool selected)
{
    return drawOnGrid(size, [running, selected](QPainter &p) {
        const QColor outline = selected ? Qt::white : kInk;
        const QColor fill = selected ? kSelectedBox : kPaper;
        const QColor mark = selected ? Qt::white : kInk;

        p.setPen(QPen(outline, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.setBrush(fill);
        p.drawRoundedRect(kBox, 4.0, 4.0);

        p.setPen(Qt::NoPen);
        p.setBrush(mark);
        p.drawPath(running ? playMark() : stopMark());

        // Cut a gap around the dot so that it stands apart from the box on any
        // panel colour.
        p.setCompositionMode(QPainter::CompositionMode_Clear);
        p.setBrush(Qt::black);
        p.drawEllipse(kDotCentre, kDotRadius + kDotGap, kDotRadius + kDotGap);
        p.setCompositionMode(QPainter::CompositionMode_SourceOver);

        p.setPen(QPen(outline, 1.2));
        p.setBrush(running ? kRunningDot : kStoppedDot);
        p.drawEllipse(kDotCentre, kDotRadius, kDotRadius);
    });
}

QImage StatusGlyph::appIcon(int size)
{
    return drawOnGrid(size, [](QPainter &p) {
        const QRectF box(1.5, 1.5, 19.0, 19.0);
        QLinearGradient shade(box.topLeft(), box.bottomLeft());
        shade.setColorAt(0.0, QColor(0x4d, 0x9a, 0xf0));
        shade.setColorAt(1.0, QColor(0x1d, 0x5c, 0xb8));
        p.setPen(QPen(QColor(0x16, 0x45, 0x8a), 0.6));
        p.setBrush(shade);
        p.drawRoundedRect(box, 4.5, 4.5);

        QPainterPath play;
        play.moveTo(8.4, 6.2);
        play.lineTo(16.2, 11.0);
        play.lineTo(8.4, 15.8);
        play.closeSubpath();
        p.setPen(QPen(Qt::white, 1.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.setBrush(Qt::white);
        p.drawPath(play);
    });
}
