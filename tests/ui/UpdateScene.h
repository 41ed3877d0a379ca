#pragma once

#include "BusyButton.h"
#include "MainWindow.h"
#include "UpdateServer.h"
#include "WaitFor.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <functional>
#include <memory>
#include <vector>

#define WAIT_FOR(condition) WAIT_FOR_MS(condition, 150000)

/// The real main window with the real controller, in a folder of its own, against a server of its
/// own, with version 1.2.3 of the plugin installed and verified. One a process, since the
/// controller is. The periodic check is an hour away: who wants one calls OnAutoUpdate().
class UpdateScene : public QObject
{
public:
    /// With \a signs, there are three keys: the server signs by the first, and the window trusts
    /// the first two.
    explicit UpdateScene(bool signs);
    ~UpdateScene() override;

    /// Makes the window, which reads the settings and begins an automatic check.
    void start(bool visible);
    QSettings stored() const { return QSettings("brekka.ini", QSettings::IniFormat); }
    /// Changes the settings file, before start().
    void store(const QString &key, const QVariant &value);
    void signBy(int key) { server.key = m_signers[size_t(key - 1)]; }
    /// Offers a plugin that differs from 1.2.3 in one file.
    void offer(const QString &version);

    /// How often the server was asked, as manifests + packages, everything in which the world
    /// differs from 1.2.3 being installed, verified and shown, and what the user was shown.
    QStringList state() const;
    bool isInstalled(const QString &version) const;
    /// Whether the button shows that a run of the user's is under way.
    bool isAtWork() const { return window->findChild<BusyButton *>()->isBusy(); }
    /// Whether the window has a timer of so many milliseconds at work.
    bool hasTimer(int interval) const;
    /// How often a debug line with \a text was written.
    int logged(const QString &text) const;
    /// Every file where none belongs.
    QStringList strays() const;
    QString game() const { return m_dir.filePath("root/game"); }
    /// What a widget of the window says.
    QString text(const QString &name) const;

    UpdateServer server;
    std::unique_ptr<MainWindow> window;
    quint64 lowestSerial = 0; ///< that the window is made with
    QStringList shown;        ///< "box TEXT" and "toast TEXT", in order
    /// Asked now and then while a box is open, whether to close it. An open box keeps whoever waits
    /// for something from going on.
    std::function<bool()> mayClose = [] { return true; };

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    QString installedVersion() const;

    QTemporaryDir m_dir;
    std::vector<SigningKey> m_signers;
    QMap<QString, Files::Tree> m_offered; ///< by version
    QTimer m_closing;
};
