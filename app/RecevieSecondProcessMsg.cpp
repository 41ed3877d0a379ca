#include "RecevieSecondProcessMsg.h"

#include <QApplication>
#include <QDebug>
#include <QWidget>

RecevieSecondProcessMsg::RecevieSecondProcessMsg(QObject *parent) : QObject(parent) {}

void RecevieSecondProcessMsg::setMainWindow(QWidget *window)
{
    m_window = window;
}

void RecevieSecondProcessMsg::receivedMessage(int instanceId, QByteArray message)
{
    Q_UNUSED(instanceId)
    Q_UNUSED(message)
    qDebug() << "Active main wnd";
    if (!m_window)
        return;
    QApplication::setActiveWindow(m_window);
    // Window managers that refuse a plain activation still raise a window that comes back from
    // its icon.
    m_window->showMinimized();
    m_window->showNormal();
    m_window->activateWindow();
    m_window->setWindowState((m_window->windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    m_window->setWindowState(Qt::WindowActive);
}
