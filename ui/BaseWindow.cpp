#include "BaseWindow.h"

#include "Accessibility.h"
#include "CustTitlebar.h"
#include "FillBackground.h"
#include "FocusRing.h"
#include "QtTranslation.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QFont>
#include <QMenu>
#include <QScreen>
#include <QScrollBar>

#include <cmath>

namespace
{
constexpr int TitleBarHeight = 48;
constexpr int TrayMenuWidth = 150;
constexpr int MaximisedOverhang = 3;

// Without these the forms' font would give way to one without Chinese glyphs, and every line would
// be pieced together from two fonts that don't match.
void nameSubstituteFonts()
{
    QFont::insertSubstitutions(QStringLiteral("Microsoft YaHei"),
                               {QStringLiteral("Noto Sans CJK SC"),
                                QStringLiteral("Source Han Sans SC"),
                                QStringLiteral("WenQuanYi Micro Hei"), QStringLiteral("SimHei")});
}
} // namespace

BaseWindow::BaseWindow(QWidget *parent) : QMainWindow(parent)
{
    nameSubstituteFonts();
    QtTranslation::load();
    Accessibility::install();
    setupUi(this);
    setWindowFlags(Qt::FramelessWindowHint);
    setAttribute(Qt::WA_TranslucentBackground);
    setWindowIcon(QIcon(QStringLiteral(":/images/icon.png")));
    // Its menu would be Qt's own, and holds what nobody needs a menu for.
    scrollArea->verticalScrollBar()->setContextMenuPolicy(Qt::NoContextMenu);
    createActions();
    createTrayIcon();
    createTitleBar();
    new FocusRing(this);
    setFocus(); // no control looks chosen before the user presses Tab
    connect(m_trayIcon, &QSystemTrayIcon::messageClicked, this, &QWidget::show);
    connect(m_trayIcon, &QSystemTrayIcon::activated, this, &BaseWindow::onTrayActivated);
    m_trayIcon->setVisible(true);
}

BaseWindow::~BaseWindow() = default;

void BaseWindow::createActions()
{
    m_showAction = new QAction(QStringLiteral("显示主界面"), this);
    m_quitAction = new QAction(QStringLiteral("&退出"), this);
    m_autoStartAction = new QAction(QStringLiteral("&自动启动"), this);
    connect(m_showAction, &QAction::triggered, this, &BaseWindow::showMainWindow);
    connect(m_quitAction, &QAction::triggered, qApp, &QCoreApplication::quit);
    connect(m_autoStartAction, &QAction::triggered, this, &BaseWindow::OnAutoUpdate);
    m_autoStartAction->setCheckable(true);
    m_autoStartAction->setChecked(true);
}

void BaseWindow::createTrayIcon()
{
    m_trayMenu = new QMenu(this);
    m_trayMenu->addAction(m_showAction);
    m_trayMenu->addSeparator();
    m_trayMenu->addAction(m_autoStartAction);
    m_trayMenu->addSeparator();
    m_trayMenu->addAction(m_quitAction);
    m_trayMenu->setMinimumWidth(TrayMenuWidth);

    m_trayIcon = new QSystemTrayIcon(this);
    m_trayIcon->setContextMenu(m_trayMenu);
    m_trayIcon->setIcon(QIcon(QStringLiteral(":/images/icon.png")));
    m_trayIcon->setToolTip(windowTitle());
}

void BaseWindow::createTitleBar()
{
    m_titleBar = new CustTitlebar(this);
    m_titleBar->move(0, 0);
    m_titleBar->setBackgroundColor(9, 20, 44);
    m_titleBar->setTitleIcon(QStringLiteral(":/images/logo.png"));
    m_titleBar->setButtonType(0);
    m_titleBar->setFixedWidth(width());
    m_titleBar->resize(width(), TitleBarHeight);
    connect(m_titleBar, &CustTitlebar::signalButtonMinClicked, this,
            &BaseWindow::onButtonMinClicked);
    connect(m_titleBar, &CustTitlebar::signalButtonRestoreClicked, this,
            &BaseWindow::onButtonRestoreClicked);
    connect(m_titleBar, &CustTitlebar::signalButtonMaxClicked, this,
            &BaseWindow::onButtonMaxClicked);
    connect(m_titleBar, &CustTitlebar::signalButtonCloseClicked, this,
            &BaseWindow::onButtonCloseClicked);
    m_titleBar->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_titleBar, &QWidget::customContextMenuRequested, this, &BaseWindow::openMenu);
}

void BaseWindow::openMenu(const QPoint &pos)
{
    // Where there is a tray, the menu is there and the title bar has none.
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        m_trayMenu->popup(m_titleBar->mapToGlobal(pos));
}

void BaseWindow::showMainWindow()
{
    show();
    activateWindow();
    setWindowState((windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    m_tab->setCurrentIndex(0);
}

void BaseWindow::onTrayActivated(QSystemTrayIcon::ActivationReason reason)
{
    if (reason == QSystemTrayIcon::DoubleClick || reason == QSystemTrayIcon::Trigger)
        showMainWindow();
}

void BaseWindow::onButtonMinClicked()
{
    // A tool window has no entry in the task bar to come back from.
    if ((windowFlags() & Qt::Tool) == Qt::Tool)
        hide();
    else
        showMinimized();
}

void BaseWindow::onButtonRestoreClicked()
{
    QPoint position;
    QSize size;
    m_titleBar->getRestoreInfo(position, size);
    setGeometry(QRect(position, size));
}

void BaseWindow::onButtonMaxClicked()
{
    m_titleBar->saveRestoreInfo(pos(), QSize(width(), height()));
    const QRect desktop = QGuiApplication::primaryScreen()->availableGeometry();
    setGeometry(desktop.adjusted(-MaximisedOverhang, -MaximisedOverhang, MaximisedOverhang,
                                 MaximisedOverhang));
}

void BaseWindow::onButtonCloseClicked()
{
    close();
}

void BaseWindow::OnAutoUpdate()
{
    emit SwitchAutoStartUp(m_autoStartAction->isChecked());
}

void BaseWindow::mouseMoveEvent(QMouseEvent *event)
{
    Q_UNUSED(event)
}

void BaseWindow::closeEvent(QCloseEvent *event)
{
    if (!m_trayIcon->isVisible())
        return;
    event->ignore();
    // Without a tray nothing would bring a hidden window back.
    if (QSystemTrayIcon::isSystemTrayAvailable())
        hide();
    else
        showMinimized();
}

void BaseWindow::paintEvent(QPaintEvent *event)
{
    fillBackground(this, Qt::white);
    // At a scale such as 110 % the edges of a part lie within pixels, where old and new colours mix
    // to a line that stays.
    if (event->rect() != rect() && !qFuzzyIsNull(std::fmod(devicePixelRatioF(), 1)))
        update();
    QMainWindow::paintEvent(event);
}
