#include "QPhoneLabel.h"

#include <QDebug>

QPhoneLabel::QPhoneLabel(QWidget *parent) : QLabel(parent)
{
    setMouseTracking(true);
    // A rich text would keep the moves of the mouse, and the title bar could not be dragged there.
    setTextInteractionFlags(Qt::NoTextInteraction);
}

void QPhoneLabel::enterEvent(QEvent *event)
{
    qDebug() << "mouse enter" << x() << "y=" << y();
    emit showTooltip(x(), y());
    QLabel::enterEvent(event);
}

void QPhoneLabel::leaveEvent(QEvent *event)
{
    qDebug() << "mouse leaveEvent" << x() << "y=" << y();
    emit hideTooltip();
    QLabel::leaveEvent(event);
}
