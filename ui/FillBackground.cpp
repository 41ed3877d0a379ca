#include "FillBackground.h"

#include <QPainter>
#include <QPainterPath>
#include <QWidget>

void fillBackground(QWidget *widget, const QColor &color)
{
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    path.addRect(0, 0, widget->width(), widget->height());
    QPainter painter(widget);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.fillPath(path, color);
}
