#include "UpdateScene.h"

#include "Http.h"
#include "Paths.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QtTest>

#include <algorithm>

namespace
{
QStringList *debugLines = nullptr;
QtMessageHandler standardHandler = nullptr;

void record(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    static QMutex mutex;
    {
        const QMutexLocker lock(&mutex);
        *debugLines += text;
    }
    standardHandler(type, context, text);
}
} // namespace

UpdateScene::UpdateScene()
{
    static QStringList lines;
    debugLines = &lines;
    standardHandler = qInstallMessageHandler(record);
    QDir().mkpath(m_dir.filePath("root/game"));
    QDir().mkpath(m_dir.filePath("root/app"));
    QDir::setCurrent(m_dir.filePath("root/app"));
    QDir(Paths::downloadFolder()).removeRecursively();
    Files::write(game() + "/WorldOfTanks.exe", {});
    qputenv("WINEPREFIX", m_dir.path().toLocal8Bit()); // no game is registered there

    set("hosts/update", server.authority());
    set("game", game());
    set("interval", 1);
    plugin = UpdateServer::samplePlugin();
    server.publish(plugin, "1.2.3");

    connect(&m_messageBoxes, &QTimer::timeout, this, &UpdateScene::answerMessageBox);
    m_messageBoxes.start(20);
}

UpdateScene::~UpdateScene()
{
    window.reset();
    qInstallMessageHandler(standardHandler);
    QDir(Paths::downloadFolder()).removeRecursively();
    QDir::setCurrent(QDir::rootPath());
}

void UpdateScene::set(const QString &key, const QVariant &value)
{
    QSettings("brekka.ini", QSettings::IniFormat).setValue(key, value);
}

QVariant UpdateScene::stored(const QString &key) const
{
    return QSettings("brekka.ini", QSettings::IniFormat).value(key);
}

void UpdateScene::start(bool visible)
{
    Http::setDefaultReadTimeout(300);
    window = std::make_unique<MainWindow>();
    if (visible)
        window->show();
}

void UpdateScene::press(const char *button)
{
    QTest::mouseClick(widget<QPushButton>(button), Qt::LeftButton);
}

bool UpdateScene::isInstalled(const Files::Tree &tree, const QString &version) const
{
    Files::Tree expected = tree;
    expected["WorldOfTanks.exe"] = {};
    Files::Tree found = Files::readTree(game());
    // Its options are the player's, and the program's to rewrite.
    const QString config = QStringLiteral("mods/configs/corvane.xml");
    if (expected.contains(config) && found.contains(config))
        found[config] = expected[config];
    return found == expected && stored("lastcheckret").toBool() && stored("pver") == version;
}

int UpdateScene::logged(const QString &text) const
{
    return debugLines->filter(text).size();
}

QStringList UpdateScene::strays() const
{
    QStringList strays;
    const QStringList files = Files::readTree(m_dir.path()).keys();
    for (const QString &file : files) {
        if (!file.startsWith("root/game/") && !file.startsWith("root/app/brekka.ini"))
            strays += file;
    }
    return strays;
}

void UpdateScene::answerMessageBox()
{
    auto *box = qobject_cast<QDialog *>(QApplication::activeModalWidget());
    const auto windows = QApplication::topLevelWidgets();
    const auto open = std::count_if(windows.begin(), windows.end(), [](const QWidget *any) {
        return any->isVisible() && any->isModal();
    });
    mostMessages = qMax(mostMessages, int(open));
    if (!box || (mayClose && !mayClose()))
        return;
    messages += box->findChild<QLabel *>("m_pLabel")->text();
    auto *buttons = box->findChild<QDialogButtonBox *>("m_pButtonBox");
    QTest::mouseClick(buttons->buttons().first(), Qt::LeftButton);
}
