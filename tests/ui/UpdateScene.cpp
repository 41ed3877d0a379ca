#include "UpdateScene.h"

#include "BusyButton.h"
#include "CustMessagebox.h"
#include "Paths.h"
#include "ReminderWidget.h"
#include "SettingsProcessor.h"

#include <QApplication>
#include <QDir>
#include <QMutex>
#include <QProgressBar>
#include <QSettings>

#include <algorithm>

namespace
{
QStringList *debugLines = nullptr;
QtMessageHandler standardHandler = nullptr;
constexpr int FirstSerial = 1001;

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
    qApp->installEventFilter(this);
    connect(&m_closing, &QTimer::timeout, this, &UpdateScene::closeBox);
    m_closing.start(20);
    QDir().mkpath(m_dir.filePath("root/app"));
    QDir::setCurrent(m_dir.filePath("root/app"));
    qputenv("WINEPREFIX", m_dir.path().toLocal8Bit()); // no game is registered there

    const Files::Tree plugin = UpdateServer::samplePlugin();
    offer("1.2.3");
    for (auto file = plugin.begin(); file != plugin.end(); ++file)
        Files::write(game() + '/' + file.key(), file.value());
    Files::write(game() + "/WorldOfTanks.exe", {});
    Files::write(Paths::packageFile(), server.archive);
    SettingsProcessor store;
    const std::pair<const char *, QVariant> settings[] = {
        {"filemd5", QVariant::fromValue(*server.offered.files)},
        {"packagecheck", *server.offered.packageMd5},
        {"game", game()},
        {"interval", 3600},
        {"pver", "1.2.3"},
        {"updatedate", "2021-03-05"},
        {"lastcheckret", true}};
    for (const auto &[key, value] : settings)
        store.WriteSetting(key, value);
}

UpdateScene::~UpdateScene()
{
    window.reset();
    qInstallMessageHandler(standardHandler);
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

void UpdateScene::sign()
{
    QString error;
    for (const char *name : {"key1", "key2", "key3"})
        m_signers.push_back(*SigningKey::create(m_dir.filePath(name), &error));
    signBy(1);
}

void UpdateScene::trust()
{
    sign();
    m_trusted = {m_signers[0].publicKey(), m_signers[1].publicKey()};
    offer("1.2.3");
    // Packed a moment later, it is another archive.
    Files::write(Paths::packageFile(), server.archive);
    set("packagecheck", *server.offered.packageMd5);
    set("manifestserial", *server.offered.serial);
    set("packagesha256", *server.offered.packageSha256);
}

void UpdateScene::start(bool visible)
{
    window = std::make_unique<MainWindow>(Hosts{server.authority(), {}, {}, {}}, m_trusted);
    if (visible)
        window->show();
}

void UpdateScene::startAndSettle()
{
    start();
    WAIT_FOR(logged("本地插件文件正确，自动更新完成") == 1);
    m_manifestsBefore = server.count(UpdateServer::Manifest);
    m_packagesBefore = server.count(UpdateServer::Package);
}

void UpdateScene::offer(const QString &version)
{
    Files::Tree tree = UpdateServer::samplePlugin();
    if (version != "1.2.3")
        tree["mods/a.pyc"] = version.toUtf8();
    m_offered[version] = tree;
    server.publish(tree, version);
}

QString UpdateScene::installedVersion() const
{
    Files::Tree found = Files::readTree(game());
    found.remove("WorldOfTanks.exe");
    // Its options are the player's, and the program's to rewrite.
    const QString config = QStringLiteral("mods/configs/corvane.xml");
    if (found.contains(config))
        found[config] = UpdateServer::samplePlugin().value(config);
    return found.isEmpty() ? "none" : m_offered.key(found, "other");
}

bool UpdateScene::isInstalled(const QString &version) const
{
    return installedVersion() == version && stored("pver") == version &&
           stored("lastcheckret").toBool();
}

QStringList UpdateScene::state(bool requests) const
{
    QStringList state;
    const auto add = [&state](bool differs, const QString &what) {
        if (differs)
            state += what;
    };
    const QString version = installedVersion(), pver = stored("pver").toString();
    const QString label = widget<QPushButton>("m_installPlugin")->text();
    add(requests, QString("%1+%2")
                      .arg(server.count(UpdateServer::Manifest) - m_manifestsBefore)
                      .arg(server.count(UpdateServer::Package) - m_packagesBefore));
    add(version != "1.2.3", "game " + version);
    add(pver != "1.2.3", "pver " + pver);
    const QString check = stored("packagecheck").toString();
    add(check.isEmpty(), "no check");
    add(!check.isEmpty() && check != server.offered.packageMd5, "check old");
    const int serial = stored("manifestserial").toInt();
    add(serial > FirstSerial, QString("serial +%1").arg(serial - FirstSerial));
    add((serial > 0) != stored("packagesha256").isValid(), "half signed");
    add(stored("plugins/mods/more").isValid(), "lists more");
    add(!stored("lastcheckret").toBool(), "unverified");
    add(!QFile::exists(Paths::packageFile()), "no package");
    add(label != "安装插件", label);
    add(widget<BusyButton>("m_installPlugin")->isBusy(), "at work");
    add(!widget<QLabel>("m_newversion")->isHidden(), "badge");
    add(!widget<QProgressBar>("m_installprogressbar")->isHidden(), "bar");
    add(hasTimer(500), "flashing");
    return state + shown;
}

bool UpdateScene::hasTimer(int interval) const
{
    const auto timers = window->findChildren<QTimer *>();
    return std::any_of(timers.begin(), timers.end(), [interval](const QTimer *timer) {
        return timer->isActive() && timer->interval() == interval;
    });
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
        if (!file.startsWith("key") && !file.startsWith("root/game/") &&
            !file.startsWith("root/app/brekka.ini"))
            strays += file;
    }
    return strays;
}

void UpdateScene::closeBox()
{
    auto *box = qobject_cast<QDialog *>(QApplication::activeModalWidget());
    if (box && (!mayClose || mayClose()))
        box->findChild<QDialogButtonBox *>()->buttons().first()->click();
}

bool UpdateScene::eventFilter(QObject *object, QEvent *event)
{
    const auto *widget = qobject_cast<QWidget *>(object);
    if (event->type() != QEvent::Show || !widget || !widget->isWindow())
        return false;
    if (qobject_cast<const CustMessagebox *>(widget)) {
        shown += "box " + widget->findChild<QLabel *>()->text();
    } else if (qobject_cast<const ReminderWidget *>(widget)) {
        const bool atWork = this->widget<BusyButton>("m_installPlugin")->isBusy();
        shown += (atWork ? "toast " : "unasked toast ") + widget->findChild<QLabel *>()->text();
    }
    return false;
}
