#include "FocusRing.h"

#include <QApplication>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QTabBar>

namespace
{
constexpr int Gap = 3;
constexpr int Line = 2;
constexpr int Corner = 4;
constexpr QMargins TabRoom(0, 16, 0, 16); // above and below the text of a tab

/// What the ring goes around, in the coordinates of \a widget.
QRect markedRect(const QWidget *widget)
{
    if (const auto *tabs = qobject_cast<const QTabBar *>(widget))
        return tabs->tabRect(tabs->currentIndex()) - TabRoom;
    return widget->rect() + QMargins(Gap, Gap, Gap, Gap);
}
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
    disconnect(m_tabChange);
    // A field for text has a tint of its own.
    const bool isMarked = parentWidget()->isAncestorOf(now) && !qobject_cast<QLineEdit *>(now) &&
                          window()->testAttribute(Qt::WA_KeyboardFocusChange);
    m_marked = isMarked ? now : nullptr;
    setVisible(isMarked);
    if (!isMarked) {
        qApp->removeEventFilter(this);
        return;
    }
    qApp->installEventFilter(this);
    if (auto *tabs = qobject_cast<QTabBar *>(now))
        m_tabChange = connect(tabs, &QTabBar::currentChanged, this, &FocusRing::place);
    place();
}

void FocusRing::place()
{
    const QRect rect = markedRect(m_marked);
    const QPoint origin = m_marked->mapTo(parentWidget(), QPoint());
    setGeometry(rect.translated(origin) & parentWidget()->rect());
    raise();
}

bool FocusRing::eventFilter(QObject *object, QEvent *event)
{
    if (event->type() == QEvent::MouseButtonPress && object->isWidgetType() &&
        static_cast<QWidget *>(object)->window() == window()) {
        // Qt forgets the keyboard only when the mouse moves the focus.
        window()->setAttribute(Qt::WA_KeyboardFocusChange, false);
        hide();
    } else if (object == m_marked &&
               (event->type() == QEvent::Move || event->type() == QEvent::Resize)) {
        place();
    }
    return QWidget::eventFilter(object, event);
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
