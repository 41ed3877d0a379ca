#include "FocusRing.h"

#include "SwitchButton.h"

#include <QAbstractButton>
#include <QApplication>
#include <QPainter>

namespace
{
constexpr int Gap = 3;
constexpr int Line = 2;
constexpr int Corner = 4;
} // namespace

FocusRing::FocusRing(QWidget *area) : QWidget(area)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    // An inherited style sheet would fill the middle.
    setAttribute(Qt::WA_NoSystemBackground);
    hide();
    connect(qApp, &QApplication::focusChanged, this, &FocusRing::follow);
}

void FocusRing::follow(QWidget *old, QWidget *now)
{
    Q_UNUSED(old)
    QWidget *area = parentWidget();
    const bool isButton = qobject_cast<QAbstractButton *>(now) || qobject_cast<SwitchButton *>(now);
    const bool marked =
        isButton && area->isAncestorOf(now) && window()->testAttribute(Qt::WA_KeyboardFocusChange);
    setVisible(marked);
    if (!marked)
        return;
    setGeometry(QRect(now->mapTo(area, QPoint()), now->size()).adjusted(-Gap, -Gap, Gap, Gap));
    raise();
}

void FocusRing::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event)
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(0x70, 0x7f, 0xe2), Line));
    const qreal half = Line / 2.0;
    painter.drawRoundedRect(QRectF(rect()).adjusted(half, half, -half, -half), Corner, Corner);
}
