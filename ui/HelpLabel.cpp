#include "HelpLabel.h"

#include <QPainter>
#include <QTextLayout>

namespace
{
constexpr int LineHeight = 19; // pixels
} // namespace

void HelpLabel::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event)
    QTextLayout layout(text(), font());
    QPainter painter(this);
    qreal top = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(contentsRect().width());
        line.setPosition({0, top + qRound((LineHeight - line.height()) / 2)});
        top += LineHeight;
    }
    layout.endLayout();
    layout.draw(&painter, contentsRect().topLeft());
}
