#include "UpdateScene.h"

#include "CustMessagebox.h"
#include "Paths.h"
#include "ReminderWidget.h"
#include "SettingsProcessor.h"

#include <QApplication>
#include <QDir>
#include <QMutex>
#include <QRegularExpression>

#include <algorithm>

namespace
{
QtMessageHandler standardHandler = nullptr;
constexpr int FirstSerial = 1001;

/// The debug lines of all threads so far, after adding \a more.
QStringList debugLines(const QStringList &more = {})
{
    static QMutex mutex;
    static QStringList lines;
    const QMutexLocker lock(&mutex);
    return lines += more;
}
} // namespace

UpdateScene::UpdateScene(bool signs)
{
    standardHandler = qInstallMessageHandler([](auto type, auto &context, auto &text) {
        debugLines({text});
        standardHandler(type, context, text);
    });
    qApp->installEventFilter(this);
    connect(&m_closing, &QTimer::timeout, this, [this] {
        auto *box = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (box && mayClose())
            box->findChild<QDialogButtonBox *>()->buttons().first()->click();
    });
    m_closing.start(20);
    QDir().mkpath(m_dir.filePath("root/app"));
    QDir::setCurrent(m_dir.filePath("root/app"));
    qputenv("WINEPREFIX", m_dir.path().toLocal8Bit()); // no game is registered there

    if (signs) {
        QString error;
        for (const char *name : {"key1", "key2", "key3"})
            m_signers.push_back(*SigningKey::create(m_dir.filePath(name), &error));
        signBy(1);
    }
    const Files::Tree plugin = UpdateServer::samplePlugin();
    offer("1.2.3");
    for (auto file = plugin.begin(); file != plugin.end(); ++file)
        Files::write(game() + '/' + file.key(), file.value());
    Files::write(game() + "/WorldOfTanks.exe", {});
    Files::write(Paths::packageFile(), server.archive);
    SettingsProcessor().WriteSetting("filemd5", QVariant::fromValue(*server.offered.files));
    store("packagecheck", *server.offered.packageMd5);
    store("game", game());
    store("interval", 3600);
    store("pver", "1.2.3");
    store("updatedate", "2021-03-05");
    store("lastcheckret", true);
    if (signs) {
        store("manifestserial", *server.offered.serial);
        store("packagesha256", *server.offered.packageSha256);
    }
}

UpdateScene::~UpdateScene()
{
    window.reset();
    qInstallMessageHandler(standardHandler);
    QDir::setCurrent(QDir::rootPath());
}

void UpdateScene::store(const QString &key, const QVariant &value)
{
    QSettings settings = stored();
    settings.setValue(key, value);
}

void UpdateScene::start(bool visible)
{
    ManifestSignature::Keys trusted;
    if (server.key)
        trusted = {m_signers[0].publicKey(), m_signers[1].publicKey()};
    window =
        std::make_unique<MainWindow>(Hosts{server.authority(), {}, {}, {}}, trusted, lowestSerial);
    window->setVisible(visible);
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
    return installedVersion() == version && stored().value("pver") == version &&
           stored().value("lastcheckret").toBool();
}

QStringList UpdateScene::state() const
{
    QStringList state{QString("%1+%2")
                          .arg(server.count(UpdateServer::Manifest))
                          .arg(server.count(UpdateServer::Package))};
    const auto add = [&state](bool differs, const QString &what) {
        if (differs)
            state += what;
    };
    const QString version = installedVersion(), pver = stored().value("pver").toString();
    const QString check = stored().value("packagecheck").toString(),
                  label = text("m_installPlugin");
    const QString newest = stored().value("manifestserials").toString().section(' ', 0, 0);
    const int serial = newest.section(':', 1).toInt();
    add(version != "1.2.3", "game " + version);
    add(pver != "1.2.3", "pver " + pver);
    add(check.isEmpty(), "no check");
    add(!check.isEmpty() && check != server.offered.packageMd5, "check old");
    add(serial > FirstSerial, QString("serial +%1").arg(serial - FirstSerial));
    add((serial > 0) != stored().value("packagesha256").isValid(), "half signed");
    add(serial > 0 && !stored().value("needssignature2").toBool(), "needs no signature2");
    add(stored().value("plugins/mods/more").isValid(), "lists more");
    add(!stored().value("lastcheckret").toBool(), "unverified");
    add(!QFile::exists(Paths::packageFile()), "no package");
    add(label != "安装插件", label);
    add(isAtWork(), "at work");
    add(!window->findChild<QWidget *>("m_newversion")->isHidden(), "badge");
    add(!window->findChild<QWidget *>("m_installprogressbar")->isHidden(), "bar");
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
    return debugLines().filter(text).size();
}

QStringList UpdateScene::strays() const
{
    const QStringList files = Files::readTree(m_dir.path()).keys();
    return files.filter(QRegularExpression("^(?!key|root/game/|root/app/brekka.ini)"));
}

QString UpdateScene::text(const QString &name) const
{
    return window->findChild<QWidget *>(name)->property("text").toString();
}

bool UpdateScene::eventFilter(QObject *object, QEvent *event)
{
    const auto *widget = qobject_cast<QWidget *>(object);
    if (event->type() != QEvent::Show || !widget || !widget->isWindow())
        return false;
    if (qobject_cast<const CustMessagebox *>(widget))
        shown += "box " + widget->findChild<QLabel *>()->text().replace(QDir::currentPath(), ".");
    else if (qobject_cast<const ReminderWidget *>(widget))
        shown += (isAtWork() ? "toast " : "unasked toast ") + widget->findChild<QLabel *>()->text();
    return false;
}
