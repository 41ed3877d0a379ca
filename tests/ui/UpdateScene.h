#pragma once

#include "MainWindow.h"
#include "UpdateServer.h"
#include "WaitFor.h"

#include <QStringList>
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
    UpdateScene();
    ~UpdateScene() override;

    /// Makes the window, which reads the settings and begins an automatic check.
    void start(bool visible = true);
    /// As \a start, up to the end of that check, which then doesn't count any more.
    void startAndSettle();
    /// Changes the settings file; for the time before start().
    void set(const QString &key, const QVariant &value);
    QVariant stored(const QString &key) const;
    /// Makes three keys; from here on the server signs by the first.
    void sign();
    /// The same, and the window, still to be made, trusts the first two.
    void trust();
    void signBy(int key) { server.key = m_signers[size_t(key - 1)]; }

    /// Offers a plugin that differs from 1.2.3 in one file.
    void offer(const QString &version);

    /// Everything in which the world differs from 1.2.3 being installed, verified and shown, and
    /// what the user was shown meanwhile. \a requests counts them, too, as manifests + packages.
    QStringList state(bool requests) const;
    bool isInstalled(const QString &version) const;
    /// Whether the window has a timer of so many milliseconds at work.
    bool hasTimer(int interval) const;
    /// How often a debug line with \a text was written.
    int logged(const QString &text) const;
    /// Every file where none belongs.
    QStringList strays() const;
    QString game() const { return m_dir.filePath("root/game"); }
    template <typename Widget>
    Widget *widget(const char *name) const
    {
        return window->findChild<Widget *>(QLatin1String(name));
    }

    UpdateServer server;
    std::unique_ptr<MainWindow> window;
    QStringList shown; ///< "box TEXT" and "toast TEXT", in order
    /// Asked now and then while a box is open, whether to close it; without one it is closed. An
    /// open box keeps whoever waits for something from going on.
    std::function<bool()> mayClose;

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    QString installedVersion() const;
    void closeBox();

    QTemporaryDir m_dir;
    std::vector<SigningKey> m_signers;
    ManifestSignature::Keys m_trusted;
    QMap<QString, Files::Tree> m_offered; ///< by version
    QTimer m_closing;
    int m_manifestsBefore = 0;
    int m_packagesBefore = 0;
};
