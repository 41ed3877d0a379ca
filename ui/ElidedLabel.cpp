#include "ElidedLabel.h"

#include "ElidedText.h"

#include <QEvent>
#include <QPainter>

QSize ElidedLabel::minimumSizeHint() const
{
    const int date = fontMetrics().horizontalAdvance(QStringLiteral("0000-00-00"));
    const QSize whole = QLabel::minimumSizeHint();
    return {qMin(whole.width(), date), whole.height()};
}

bool ElidedLabel::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip)
        ElidedText::updateToolTip(this, text(), contentsRect().width());
    return QLabel::event(event);
}

void ElidedLabel::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event)
    QPainter painter(this);
    drawFrame(&painter);
    painter.drawText(contentsRect(), int(alignment()) | Qt::TextSingleLine,
                     ElidedText::fit(text(), fontMetrics(), contentsRect().width()));
}
