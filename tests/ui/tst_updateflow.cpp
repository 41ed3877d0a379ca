#include "MainController.h"
#include "Paths.h"
#include "RowRunner.h"
#include "UpdateScene.h"

#include <QApplication>
#include <QDir>
#include <QJsonDocument>
#include <QTextCodec>

using Step = std::function<void(UpdateScene &)>;
using Steps = QVector<Step>;
Q_DECLARE_METATYPE(Steps)

namespace
{
const char *const Failed = "box 安装失败\n 请您检查游戏路径并关闭游戏!";
const char *const Toast = "toast 安装成功";
const char *const Update = "更新插件";

// What the server does.

Step offer(const QString &version)
{
    return [=](UpdateScene &scene) { scene.offer(version); };
}

/// Changes what is offered; the package's checksum follows the package.
Step offer(const QString &version, const std::function<void(UpdateServer &)> &change)
{
    return [=](UpdateScene &scene) {
        scene.offer(version);
        change(scene.server);
        scene.server.serve();
    };
}

Step offerPackage(const QString &version, const std::function<QByteArray(Files::Tree)> &archive)
{
    return offer(version, [=](UpdateServer &server) {
        Files::Tree tree = UpdateServer::samplePlugin();
        tree["mods/a.pyc"] = version.toUtf8();
        server.archive = archive(tree);
        server.offered.packageMd5 = Files::md5(server.archive);
    });
}

QByteArray noArchive(const Files::Tree &)
{
    return "no archive";
}

/// Lists a file that is not in the package.
void listMore(UpdateServer &server)
{
    (*server.offered.files)["mods/more"] = "0";
}

void listAnother(UpdateServer &server)
{
    (*server.offered.files)["mods/a.pyc"] = "0";
}

void announceAnother(UpdateServer &server)
{
    server.offered.packageMd5 = "0";
}

void nameNoLink(UpdateServer &server)
{
    server.offered.link.reset();
}

Step answers(const QString &path, const QVector<HttpAnswer> &script)
{
    return [=](UpdateScene &scene) { scene.server.answer(path, script); };
}

Step manifest(int status, const QByteArray &body = {})
{
    return answers(UpdateServer::Manifest, {{status, body}});
}

HttpAnswer silence()
{
    HttpAnswer answer;
    answer.silent = true;
    return answer;
}

/// The package comes after a while.
void slowPackage(UpdateScene &scene)
{
    HttpAnswer answer{200, scene.server.archive};
    answer.bodyDelayMs = 500;
    scene.server.answer(UpdateServer::Package, {answer});
}

/// Its package comes last of all \a before.
Step after(const QVector<HttpAnswer> &before)
{
    return [=](UpdateScene &scene) {
        scene.server.answer(UpdateServer::Package,
                            before + QVector<HttpAnswer>{{200, scene.server.archive}});
    };
}

// What the user and the clock do.

void tick(UpdateScene &scene)
{
    scene.window->OnAutoUpdate();
}

void press(UpdateScene &scene)
{
    scene.window->OnPluginExtractInstall();
}

void choose(UpdateScene &scene)
{
    QVERIFY(QDir().mkpath(scene.game()));
    scene.window->OnSettingChanged("game", scene.game());
}

/// Closes the box only after one more failure behind it, an update and a repair.
void actBehindBox(UpdateScene &scene)
{
    scene.mayClose = [&scene, todo = 2]() mutable {
        if (todo == 2 && scene.logged("Something's wrong here") >= 3) {
            press(scene);
            --todo;
        } else if (todo == 1 && scene.logged("Something's wrong here") >= 4) {
            scene.offer("1.2.4");
            --todo;
        } else if (todo == 0 && scene.isInstalled("1.2.4")) {
            Files::write(scene.game() + "/mods/empty", "altered");
            --todo;
        }
        return todo < 0 && scene.isInstalled("1.2.4");
    };
}

// Before the window.

void noPlugin(UpdateScene &scene)
{
    QDir(scene.game() + "/mods").removeRecursively();
    QDir(scene.game() + "/res").removeRecursively();
    QFile::remove(Paths::packageFile());
    QFile::remove("brekka.ini");
    scene.set("game", scene.game());
    scene.set("interval", 3600);
}

Step set(const QString &key, const QVariant &value)
{
    return [=](UpdateScene &scene) { scene.set(key, value); };
}

// What happens in the folders.

void noPackage(UpdateScene &)
{
    QVERIFY(QFile::remove(Paths::packageFile()));
}

void alter(UpdateScene &scene)
{
    Files::write(scene.game() + "/mods/a.pyc", "altered");
}

void removeFile(UpdateScene &scene)
{
    QVERIFY(QFile::remove(scene.game() + "/mods/a.pyc"));
}

// What is waited for.

Step until(const QString &line, int times = 1)
{
    return [=](UpdateScene &scene) { WAIT_FOR(scene.logged(line) >= times); };
}

Step installed(const QString &version)
{
    return [=](UpdateScene &scene) { WAIT_FOR(scene.isInstalled(version)); };
}

Step asked(const char *path, int times)
{
    return [=](UpdateScene &scene) { WAIT_FOR(scene.server.count(path) == times); };
}

Step packages(int times)
{
    return asked(UpdateServer::Package, times);
}

Step gaveUp()
{
    return until("MainWindow::ShowNew(void)");
}
} // namespace

/// Every row: from a verified installation something happens; the world ends up as the row says;
/// and the next automatic check installs what is offered then, silently.
class tst_UpdateFlow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void flow_data();
    void flow();

private:
    void addSilentServers();
    void addManifests();
    void addPackages();
    void addFolders();
    void addButton();
    void addWindow();
};

namespace
{
/// \a before comes before the window is made; without one, the row begins when the window is idle.
/// \a end begins with the number of requests, unless the row leaves that open.
void row(const char *name, const Steps &before, const Steps &steps, const QStringList &end)
{
    QTest::newRow(name) << before << steps << end;
}

void row(const char *name, const Steps &steps, const QStringList &end)
{
    row(name, {}, steps, end);
}
} // namespace

void tst_UpdateFlow::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

void tst_UpdateFlow::flow_data()
{
    QTest::addColumn<Steps>("before");
    QTest::addColumn<Steps>("steps");
    QTest::addColumn<QStringList>("end");
    addSilentServers();
    addManifests();
    addPackages();
    addFolders();
    addButton();
    addWindow();
}

void tst_UpdateFlow::flow()
{
    QFETCH(Steps, before);
    QFETCH(Steps, steps);
    QFETCH(QStringList, end);
    UpdateScene scene;
    for (const Step &step : before)
        step(scene);
    if (!scene.window && before.isEmpty())
        scene.startAndSettle();
    else if (!scene.window)
        scene.start();
    for (const Step &step : steps) {
        step(scene);
        if (QTest::currentTestFailed())
            return;
    }
    const bool requests = !end.isEmpty() && end.first().contains('+');
    if (!QTest::qWaitFor([&] { return scene.state(requests) == end; }, 150000))
        QCOMPARE(scene.state(requests).join("; "), end.join("; "));

    const QStringList shown = scene.shown;
    scene.offer("1.2.9");
    // A run may be under way, which a check doesn't disturb.
    WAIT_FOR(scene.isInstalled("1.2.9") || (tick(scene), QTest::qWait(50), false));
    WAIT_FOR(scene.state(false) == (QStringList{"game 1.2.9", "pver 1.2.9"} + shown));
    QCOMPARE(scene.strays(), QStringList());
}

/// These take a minute, so they begin first.
void tst_UpdateFlow::addSilentServers()
{
    HttpAnswer stalled{200, QByteArray(1000, ' ')};
    stalled.bodyDelayMs = 500; // very early bytes are not reported as progress
    stalled.tailDelayMs = 600000;
    row("manifest stalls",
        {answers(UpdateServer::Manifest, {stalled}), tick, until("Something's wrong here")},
        {"1+0"});
    row("package never comes", {offer("1.2.4"), after({silence()}), tick},
        {"2+2", "game 1.2.4", "pver 1.2.4", Toast});
}

void tst_UpdateFlow::addManifests()
{
    row("first installation", {noPlugin}, {[](UpdateScene &scene) {
            WAIT_FOR(scene.isInstalled("1.2.3"));
            WAIT_FOR(scene.stored("packagecheck") == *scene.server.offered.packageMd5);
            WAIT_FOR(scene.widget<QLabel>("m_updatedate")->text() == "2021-03-05");
            WAIT_FOR(scene.widget<QLabel>("m_pluginver")->text() == "1.2.3");
            WAIT_FOR(scene.widget<QLabel>("m_pGameSupportVersion")->text() == "1.12");
            QVERIFY(scene.logged("currnt progress:") > 0 && scene.logged("extract range::") == 1);
        }},
        {"1+1"});
    row("404", {manifest(404), tick, until("Something's wrong here")}, {"1+0"});
    row("404, user", {noPackage, manifest(404), press}, {"1+0", "no package", Failed});
    const Step checked = until("本地插件文件正确", 2);
    row("not JSON", {manifest(200, "<html>"), tick, checked}, {"1+0"});
    row("errno 7", {manifest(200, R"({"errno": 7, "data": {}})"), tick, checked}, {"1+0"});
    row("errno as text",
        {offer("1.2.4"),
         [](UpdateScene &scene) {
             QJsonObject body = scene.server.offered.toJson();
             body["errno"] = "7";
             manifest(200, QJsonDocument(body).toJson())(scene);
         },
         tick},
        {"1+1", "game 1.2.4", "pver 1.2.4"});
    row("no link", {offer("1.2.4", nameNoLink), tick, checked}, {"1+0"});
    row("hostile version", {[](UpdateScene &scene) {
            scene.window->OnPluginVersion("<img src='x'>" + QString(1000, 'x'));
            auto *place = scene.widget<QLabel>("m_pluginver");
            QVERIFY(place->text().size() <= 100 && place->textFormat() == Qt::PlainText);
        }},
        {"0+0"});
}

void tst_UpdateFlow::addPackages()
{
    const QStringList wrong{"unverified", "no package", Update, "badge"};
    const Step wrongMd5 = offer("1.2.4", announceAnother);
    const Step bad = offerPackage("1.2.4", noArchive);
    HttpAnswer cut{200, QByteArray(100000, 'p')};
    cut.cutAfter = 50000;
    // Four new looks at the server after the first wrong package; each later check has one try.
    row("wrong MD5", {wrongMd5, tick, gaveUp()}, QStringList("5+5") + wrong);
    row("wrong MD5, next check", {wrongMd5, tick, gaveUp(), tick}, QStringList("6+6") + wrong);
    row("wrong MD5, user", {noPackage, wrongMd5, press},
        QStringList("5+5") + wrong + QStringList(Failed));
    row("cut off, user joins",
        {wrongMd5, slowPackage, tick, packages(1), answers(UpdateServer::Package, {cut}), press},
        QStringList("5+5") + wrong + QStringList(Failed));
    row("counts wrong packages in a row",
        {offer("1.2.4"), after({cut, cut}), tick, installed("1.2.4"), wrongMd5, tick, gaveUp()},
        QStringList{"8+8", "game 1.2.4", "pver 1.2.4"} + wrong + QStringList(Toast));

    // Four re-installations after the first failure; nobody asked, so only the badge tells.
    row("no archive", {bad, tick, gaveUp()}, QStringList("5+5") + wrong);
    row("no archive, user", {noPackage, bad, press}, {"1+1", "unverified", "no package", Failed});
    row("counts retries until verified",
        {bad, tick, packages(2), offer("1.2.4"), installed("1.2.4"), bad, tick, gaveUp()},
        QStringList{"8+8", "game 1.2.4", "pver 1.2.4"} + wrong);
    const Step more = offer("1.2.4", listMore), another = offer("1.2.4", listAnother);
    row("file missing", {more, tick, gaveUp()},
        {"5+5", "game 1.2.4", "unverified", Update, "badge"});
    row("file missing, user", {noPackage, more, press},
        {"1+1", "game 1.2.4", "unverified", Failed});
    row("another file", {another, tick}, {"1+1", "game 1.2.4", Update, "badge"});
    row("another file, user", {noPackage, another, press}, {"1+1", "game 1.2.4", Failed});
    row("label at a check", {bad, tick, gaveUp(), manifest(404), tick},
        {"6+5", "unverified", "no package", "badge"});
}

void tst_UpdateFlow::addFolders()
{
    // A manifest without news brings no version to record, and no checksum either.
    row("altered file", {alter, tick}, {"2+1", "pver "});
    row("altered file, nothing to fetch",
        {alter, manifest(200, R"({"errno": 7})"), tick, until("http request error!!", 2)},
        {"2+0", "game other", "no package"});
    row("missing file", {removeFile, tick}, {"2+2", "pver ", Toast});
    row("missing file, no link", {removeFile, offer("1.2.3", nameNoLink), tick},
        {"1+0", "game other", "no package"});
    row("last check failed", {set("lastcheckret", false)}, {}, {"2+2", "pver ", Toast});
    row("game folder gone", {[](UpdateScene &scene) { QDir(scene.game()).removeRecursively(); }},
        {until("OnSettingChanged \"game\""),
         [](UpdateScene &scene) {
             QCOMPARE(scene.widget<QLineEdit>("m_GamePath")->text(), QString());
             QCOMPARE(scene.stored("game").toString(), QString());
         },
         choose},
        {"2+2", "pver ", Toast});
    row("game folder goes",
        {offer("1.2.4"), slowPackage, tick, packages(1),
         [](UpdateScene &scene) {
             QVERIFY(QDir(scene.game()).removeRecursively());
             WAIT_FOR(scene.logged("OnCheckFileResult no game folder") == 1);
             QVERIFY(!QDir(scene.game()).exists());
             QVERIFY(QDir().mkpath(scene.game()));
         }},
        {"1+1", "game none"});
}

void tst_UpdateFlow::addButton()
{
    row("package there", {alter, press}, {"0+0", "pver ", Toast});
    row("no package", {noPackage, press}, {"1+1", "pver ", Toast});
    row("during a download", {offer("1.2.4"), slowPackage, tick, packages(1), press},
        {"1+1", "game 1.2.4", "pver 1.2.4", Toast});
    const Step hang = answers(UpdateServer::Manifest, {silence()});
    row("server hangs", {alter, hang, tick, press}, {"1+0", "pver ", Toast});
    // One look at the server was before.
    row("server hangs, no package",
        {noPackage, hang, press, asked(UpdateServer::Manifest, 2), offer("1.2.4"), press},
        {"2+1", "game 1.2.4", "pver 1.2.4", Toast});
    row("local check ends during the run",
        {alter,
         [](UpdateScene &scene) {
             auto *controller = MainController::instance();
             QObject::connect(controller, &MainController::OnAutoUpdateCheckPluginsResult,
                              scene.window.get(), &MainWindow::OnAutoUpdate);
             const QVariant list = QVariant::fromValue(*scene.server.offered.files);
             controller->StartAutoUpdateCheckPluginsFile(scene.game(), list);
         },
         press},
        {"0+0", "pver ", Toast});
    row("no game folder", {set("game", QString())},
        {[](UpdateScene &scene) {
             WAIT_FOR(scene.shown == QStringList("box 没有搜索到游戏客户端路径"));
             press(scene);
             WAIT_FOR(scene.shown.size() == 2);
             QVERIFY(scene.shown.takeLast().contains("/zh-cn/game/download\">请前往下载 </a>"));
         },
         choose},
        {"1+0", "box 没有搜索到游戏客户端路径"});
}

void tst_UpdateFlow::addWindow()
{
    row("runs go on behind a box", {set("interval", 1)},
        {until("本地插件文件正确"), noPackage, manifest(404), press, actBehindBox,
         until("Something's wrong here", 3),
         [](UpdateScene &scene) {
             const int before = scene.server.count(UpdateServer::Package);
             until("OnAutoUpdate start", scene.logged("OnAutoUpdate start") + 2)(scene);
             QCOMPARE(scene.server.count(UpdateServer::Package), before);
         }},
        {"game 1.2.4", "pver 1.2.4", Failed});
    row("hidden",
        {[](UpdateScene &scene) { scene.start(false); }, offerPackage("1.2.4", noArchive)},
        {gaveUp(),
         [](UpdateScene &scene) {
             QVERIFY(scene.state(false).contains("flashing"));
             scene.window->show();
         }},
        {"unverified", "no package", Update, "badge"});
    row("negative interval", {set("interval", -5)}, {[](UpdateScene &scene) {
            WAIT_FOR(scene.logged("本地插件文件正确") == 1);
            const auto timers = scene.window->findChildren<QTimer *>();
            QVERIFY(std::any_of(timers.begin(), timers.end(), [](const QTimer *timer) {
                return timer->isActive() && timer->interval() == 300000;
            }));
        }},
        {"1+0"});
}

int main(int argc, char *argv[])
{
    Q_INIT_RESOURCE(brekka);
    QApplication application(argc, argv);
    QGuiApplication::setQuitOnLastWindowClosed(false);
    tst_UpdateFlow test;
    return runEachRowAlone(argc, argv, "flow", &test);
}

#include "tst_updateflow.moc"
