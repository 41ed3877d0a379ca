#include "QPhoneLabel.h"

#include <QDebug>

QPhoneLabel::QPhoneLabel(QWidget *parent) : QLabel(parent)
{
    setMouseTracking(true);
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
