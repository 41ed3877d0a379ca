#include "BusyButton.h"

#include <QKeyEvent>
#include <QStyle>

void BusyButton::setBusy(bool busy)
{
    if (m_busy == busy)
        return;
    m_busy = busy;
    if (busy)
        setCursor(Qt::WaitCursor);
    else
        unsetCursor();
    setAccessibleDescription(busy ? QStringLiteral("正在安装") : QString());
    // A style sheet looks at properties only when it is put on.
    style()->unpolish(this);
    style()->polish(this);
}

bool BusyButton::hitButton(const QPoint &pos) const
{
    return !m_busy && QPushButton::hitButton(pos);
}

void BusyButton::keyPressEvent(QKeyEvent *event)
{
    if (m_busy && (event->key() == Qt::Key_Space || event->key() == Qt::Key_Select))
        return;
    QPushButton::keyPressEvent(event);
}
