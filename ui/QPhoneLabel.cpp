#include "QPhoneLabel.h"

#include <QDebug>

QPhoneLabel::QPhoneLabel(QWidget *parent) : QLabel(parent)
{
    setMouseTracking(true);
    // A rich text would keep the moves of the mouse, and the title bar could not be dragged there.
    setTextInteractionFlags(Qt::NoTextInteraction);
    setFocusPolicy(Qt::TabFocus);
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

void QPhoneLabel::focusInEvent(QFocusEvent *event)
{
    emit showTooltip(x(), y());
    QLabel::focusInEvent(event);
}

void QPhoneLabel::focusOutEvent(QFocusEvent *event)
{
    emit hideTooltip();
    QLabel::focusOutEvent(event);
}
