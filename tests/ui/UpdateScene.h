#pragma once

#include "UpdateServer.h"

#include <QStringList>
#include <QTemporaryDir>
#include <QTimer>

#include <functional>
#include <memory>

class MainWindow;
class QLabel;
class QPushButton;

/// The real main window with the real controller, in a folder of its own and against a server of
/// its own. One a process, since the controller is.
class UpdateScene : public QObject
{
public:
    UpdateScene();
    ~UpdateScene() override;

    /// Changes the settings file, before start(); keys are "group/key" or "key".
    void set(const QString &key, const QVariant &value);
    QVariant stored(const QString &key) const;

    void start(bool visible = true);
    void press(const char *button);
    template <typename Widget>
    Widget *widget(const char *name) const;

    /// Whether the game folder holds exactly the game and \a tree, and the record says so.
    bool isInstalled(const Files::Tree &tree, const QString &version) const;
    /// How often a debug line with \a text was written.
    int logged(const QString &text) const;
    int manifests() const { return server.count(UpdateServer::Manifest); }
    int packages() const { return server.count(UpdateServer::Package); }
    QString game() const { return m_dir.filePath("root/game"); }
    /// Everything that is neither in the game folder nor in the working folder.
    QStringList strays() const;

    UpdateServer server;
    Files::Tree plugin;
    QStringList messages;           ///< texts of the message boxes that were closed
    std::function<bool()> mayClose; ///< whether to close them yet; at once when there is none
    int mostMessages = 0;           ///< open at a time
    std::unique_ptr<MainWindow> window;

private:
    void answerMessageBox();

    QTemporaryDir m_dir;
    QTimer m_messageBoxes;
};

#include "MainWindow.h"

template <typename Widget>
Widget *UpdateScene::widget(const char *name) const
{
    return window->findChild<Widget *>(QLatin1String(name));
}
