// How the window tells of a version that could not be installed by itself: the badge, the button's
// text and the flashing tray icon.

#include "MainWindow.h"

#include "InstallTexts.h"

#include <QApplication>
#include <QDebug>
#include <QTimer>

namespace
{
constexpr int FlashPeriod = 500; // milliseconds
} // namespace

void MainWindow::ShowNew()
{
    qDebug() << "void __thiscall MainWindow::ShowNew(void)";
    m_newversion->show();
    m_installPlugin->setText(InstallTexts::update());
    if (isHidden())
        TrayShan();
    if (isVisible())
        QApplication::alert(this);
}

void MainWindow::HideNew()
{
    qDebug() << "void __thiscall MainWindow::HideNew(void)";
    m_newversion->hide();
    m_installPlugin->setText(InstallTexts::install());
    StopTrayShan();
}

void MainWindow::TrayShan()
{
    qDebug() << "void __thiscall MainWindow::TrayShan(void)";
    m_shanTimer->start(FlashPeriod);
}

void MainWindow::OnTimerShanTray()
{
    ++m_shanCount;
    const bool blank = m_shanCount % 2 != 0;
    trayIcon()->setIcon(
        QIcon(blank ? QStringLiteral(":/images/null.png") : QStringLiteral(":/images/icon.png")));
}

void MainWindow::StopTrayShan()
{
    m_shanTimer->stop();
    trayIcon()->setIcon(QIcon(QStringLiteral(":/images/icon.png")));
}
