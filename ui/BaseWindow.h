#pragma once

#include "ui_MainWindow.h"

#include <QMainWindow>
#include <QSystemTrayIcon>

class CustTitlebar;
class QAction;
class QMenu;

/// A frameless window with a title bar of its own that lives in the system tray: closing it only
/// hides it. On a desktop without a tray, a right click on the title bar opens the tray's menu.
/// Builds the main window's form onto itself.
class BaseWindow : public QMainWindow, protected Ui_MainWindow
{
    Q_OBJECT
public:
    explicit BaseWindow(QWidget *parent = nullptr);
    ~BaseWindow() override;

signals:
    /// The user clicked the tray menu's auto-start entry; its new state.
    void SwitchAutoStartUp(bool bStartUp);

protected slots:
    void onButtonMinClicked();
    void onButtonRestoreClicked();
    void onButtonMaxClicked();
    /// Does nothing: the window moves by its title bar alone.
    void mouseMoveEvent(QMouseEvent *event) override;
    void onButtonCloseClicked();
    /// The tray menu's auto-start entry was clicked: passes its new state on. It has nothing to do
    /// with the plugin's updates, whose handlers of that name are the main window's.
    void OnAutoUpdate();

protected:
    void paintEvent(QPaintEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

    QSystemTrayIcon *trayIcon() const { return m_trayIcon; }
    QAction *autoStartAction() const { return m_autoStartAction; }

private:
    void createActions();
    void createTrayIcon();
    void createTitleBar();
    void openMenu(const QPoint &pos);
    void showMainWindow();
    void onTrayActivated(QSystemTrayIcon::ActivationReason reason);

    CustTitlebar *m_titleBar = nullptr;
    QAction *m_showAction = nullptr;
    QAction *m_quitAction = nullptr;
    QAction *m_autoStartAction = nullptr;
    QSystemTrayIcon *m_trayIcon = nullptr;
    QMenu *m_trayMenu = nullptr;
};
