#include "QPhoneLabel.h"

#include <QDebug>
#include <QPixmap>
#include <QTextDocument>
#include <QUrl>

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

void QPhoneLabel::paintEvent(QPaintEvent *event)
{
    fitPicture();
    QLabel::paintEvent(event);
}

// Texts scale their pictures by leaving out pixels, so ours gets one that needs no scaling.
void QPhoneLabel::fitPicture()
{
    const qreal ratio = devicePixelRatioF();
    auto *document = findChild<QTextDocument *>();
    if (!document || qFuzzyCompare(m_pictureRatio, ratio))
        return;
    m_pictureRatio = ratio;
    const QPixmap whole(QStringLiteral(":/images/phone.png"));
    document->addResource(QTextDocument::ImageResource,
                          QUrl(QStringLiteral("qrc:/images/phone.png")),
                          whole.scaled((QSizeF(whole.size()) / 2 * ratio).toSize(),
                                       Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
}
