#include "FocusRing.h"

#include "SwitchButton.h"

#include <QAbstractButton>
#include <QApplication>
#include <QPainter>

namespace
{
constexpr int Gap = 2;   // pixels between the button and the ring
constexpr int Width = 2; // pixels
constexpr int Radius = 4;
} // namespace

FocusRing::FocusRing(QWidget *window) : QWidget(window)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    hide();
    connect(qApp, &QApplication::focusChanged, this,
            [this](QWidget *, QWidget *focused) { follow(focused); });
}

void FocusRing::follow(const QWidget *focused)
{
    const bool isButton = qobject_cast<const QAbstractButton *>(focused) ||
                          qobject_cast<const SwitchButton *>(focused);
    if (!isButton || !parentWidget()->isAncestorOf(focused)) {
        hide();
        return;
    }
    const QPoint corner = focused->mapTo(parentWidget(), QPoint(0, 0));
    const int margin = Gap + Width;
    setGeometry(QRect(corner, focused->size()).adjusted(-margin, -margin, margin, margin));
    raise();
    show();
}

void FocusRing::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event)
    const qreal middle = Width / 2.0;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(0x70, 0x7f, 0xe2), Width));
    painter.drawRoundedRect(QRectF(rect()).adjusted(middle, middle, -middle, -middle), Radius,
                            Radius);
}
