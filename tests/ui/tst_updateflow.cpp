#include "MainController.h"
#include "Paths.h"
#include "UpdateScene.h"

#include <QApplication>
#include <QDir>
#include <QJsonDocument>
#include <QTextCodec>

#include <algorithm>

namespace
{
using Step = std::function<void(UpdateScene &)>;
using Steps = QHash<QString, Step>;

/// Changes what is offered.
Step offering(void (*change)(UpdateServer &))
{
    return [change](UpdateScene &scene) {
        change(scene.server);
        scene.server.serve();
    };
}

Step manifest(int status, const QByteArray &body)
{
    return [=](UpdateScene &scene) {
        scene.server.answer(UpdateServer::Manifest, {{status, body}});
    };
}

/// The package's request gets \a before, one after the other, and then, if \a good, what is
/// offered.
Step packages(QVector<HttpAnswer> before, bool good)
{
    return [=](UpdateScene &scene) {
        const QVector<HttpAnswer> last{{200, scene.server.archive}};
        scene.server.answer(UpdateServer::Package, good ? before + last : before);
    };
}

HttpAnswer silence()
{
    HttpAnswer answer;
    answer.silent = true;
    return answer;
}

HttpAnswer cutOff()
{
    HttpAnswer answer{200, QByteArray(100000, 'p')};
    answer.cutAfter = 50000;
    return answer;
}

/// Closes the box only after one more failure behind it, an update and a repair.
void actBehindBox(UpdateScene &scene)
{
    scene.mayClose = [&scene, todo = 2]() mutable {
        const int failures = scene.logged("Something's wrong here");
        if (todo == 2 && failures >= 3) {
            scene.window->OnPluginExtractInstall();
            --todo;
        } else if (todo == 1 && failures >= 4) {
            scene.offer("1.2.4");
            --todo;
        } else if (todo == 0 && scene.isInstalled("1.2.4")) {
            Files::write(scene.game() + "/mods/empty", "altered");
            --todo;
        }
        return todo < 0 && scene.isInstalled("1.2.4");
    };
    WAIT_FOR(!scene.shown.isEmpty());
    const int before = scene.server.count(UpdateServer::Package);
    const int ticks = scene.logged("OnAutoUpdate start");
    WAIT_FOR(scene.logged("OnAutoUpdate start") > ticks + 1);
    QCOMPARE(scene.server.count(UpdateServer::Package), before);
}

void checkFirstInstallation(UpdateScene &scene)
{
    WAIT_FOR(scene.isInstalled("1.2.3"));
    WAIT_FOR(scene.widget<QLabel>("m_updatedate")->text() == "2021-03-05");
    WAIT_FOR(scene.widget<QLabel>("m_pluginver")->text() == "1.2.3");
    WAIT_FOR(scene.widget<QLabel>("m_pGameSupportVersion")->text() == "1.12");
    QVERIFY(scene.logged("currnt progress:") > 0 && scene.logged("extract range::") == 1);
}

void checkHostileVersion(UpdateScene &scene)
{
    scene.window->OnPluginVersion("<img src='x'>" + QString(1000, 'x'));
    auto *place = scene.widget<QLabel>("m_pluginver");
    QVERIFY(place->text().size() <= 100 && place->textFormat() == Qt::PlainText);
}

void checkFolderMessage(UpdateScene &scene)
{
    WAIT_FOR(scene.shown == QStringList("box 没有搜索到游戏客户端路径"));
    scene.window->OnPluginExtractInstall();
    WAIT_FOR(scene.shown.size() == 2);
    QVERIFY(scene.shown.takeLast().contains("/zh-cn/game/download\">请前往下载 </a>"));
}

void checkDefaultInterval(UpdateScene &scene)
{
    WAIT_FOR(scene.logged("本地插件文件正确") == 1);
    QVERIFY(scene.hasTimer(300000));
}

void checkOften(UpdateScene &scene)
{
    const int checks = scene.logged("OnAutoUpdate start");
    for (int i = 1; i <= 47; ++i)
        WAIT_FOR((scene.window->OnAutoUpdate(), scene.logged("OnAutoUpdate start") == checks + i));
    QCOMPARE(scene.server.count(UpdateServer::Package), 5 + 6);
}

/// What the worker was asked for before is done, and has come back.
void settle(UpdateScene &scene)
{
    MainController::instance()->WriteSetting("settled", true);
    WAIT_FOR(scene.logged("OnSettingChanged \"settled\"") == 1);
}

/// An automatic run's check ends behind the next step; a check is due right after it.
void checkLocally(UpdateScene &scene)
{
    auto *controller = MainController::instance();
    QObject::connect(controller, &MainController::OnAutoUpdateCheckPluginsResult,
                     scene.window.get(), &MainWindow::OnAutoUpdate);
    const QVariant list = QVariant::fromValue(*scene.server.offered.files);
    controller->StartAutoUpdateCheckPluginsFile(scene.game(), list);
}

void removePlugin(UpdateScene &scene)
{
    for (const char *folder : {"/mods", "/res"})
        QDir(scene.game() + folder).removeRecursively();
    QFile::remove(Paths::packageFile());
    QFile::remove("brekka.ini");
    scene.set("game", scene.game());
    scene.set("interval", 3600);
}

Steps serverSteps()
{
    HttpAnswer slow{200}, stalled{200, QByteArray(1000, ' ')};
    stalled.bodyDelayMs = 500; // very early bytes are not reported as progress
    stalled.tailDelayMs = 600000;
    return {
        {"offer", [](auto &scene) { scene.offer("1.2.4"); }},
        {"list more", offering([](auto &server) { (*server.offered.files)["mods/more"] = "0"; })},
        {"list another",
         offering([](auto &server) { (*server.offered.files)["mods/a.pyc"] = "0"; })},
        {"announce another", offering([](auto &server) { server.offered.packageMd5 = "0"; })},
        {"announce 1", offering([](auto &server) { server.offered.packageMd5 = "1"; })},
        {"name no link", offering([](auto &server) { server.offered.link.reset(); })},
        {"pack no archive", offering([](auto &server) {
             server.archive = "no archive";
             server.offered.packageMd5 = Files::md5(server.archive);
         })},
        {"errno as text",
         [](auto &scene) {
             QJsonObject body = scene.server.offered.toJson();
             body["errno"] = "7";
             manifest(200, QJsonDocument(body).toJson())(scene);
         }},
        {"offer the first", [](auto &scene) { scene.offer("1.2.3"); }},
        {"offer unsigned",
         [](auto &scene) {
             scene.server.key.reset();
             scene.offer("1.2.4");
         }},
        {"sign by 2", [](auto &scene) { scene.signBy(2); }},
        {"sign by 3", [](auto &scene) { scene.signBy(3); }},
        {"turn back", [](auto &scene) { scene.server.serial -= 2; }},
        {"announce another SHA-256",
         offering([](auto &server) { server.offered.packageSha256->replace(0, 4, "0123"); })},
        {"reformat",
         [](auto &scene) {
             QJsonObject body = scene.server.offered.toJson();
             body["more"] = body;
             scene.server.falsify = [&body](QJsonObject &data) {
                 data["more"] = 7;
                 body["data"] = data;
             };
             scene.server.serve();
             scene.server.falsify = {};
             manifest(200, QJsonDocument(body).toJson(QJsonDocument::Compact))(scene);
         }},
        {"404", manifest(404, {})},
        {"not JSON", manifest(200, "<html>")},
        {"errno 7", manifest(200, R"({"errno": 7, "data": {}})")},
        {"no answer",
         [](auto &scene) { scene.server.answer(UpdateServer::Manifest, {silence()}); }},
        {"stall", [=](auto &scene) { scene.server.answer(UpdateServer::Manifest, {stalled}); }},
        {"cut off", packages({cutOff()}, false)},
        {"cut off twice", packages({cutOff(), cutOff()}, true)},
        {"no package at first", packages({silence()}, true)},
        {"slow package",
         [=](auto &scene) mutable {
             slow.body = scene.server.archive;
             slow.bodyDelayMs = 500;
             scene.server.answer(UpdateServer::Package, {slow});
         }},
    };
}

Steps ourSteps()
{
    return {
        {"tick", [](auto &scene) { scene.window->OnAutoUpdate(); }},
        {"press", [](auto &scene) { scene.window->OnPluginExtractInstall(); }},
        {"choose",
         [](auto &scene) {
             QVERIFY(QDir().mkpath(scene.game()));
             scene.window->OnSettingChanged("game", scene.game());
         }},
        {"show", [](auto &scene) { scene.window->show(); }},
        {"hide", [](auto &scene) { scene.window->hide(); }},
        {"act behind box", actBehindBox},
        {"settle", settle},
        {"check locally", checkLocally},
        {"remove package", [](auto &) { QVERIFY(QFile::remove(Paths::packageFile())); }},
        {"remove file", [](auto &scene) { QVERIFY(QFile::remove(scene.game() + "/mods/a.pyc")); }},
        {"remove game", [](auto &scene) { QVERIFY(QDir(scene.game()).removeRecursively()); }},
        {"remove plugin", removePlugin},
        {"alter", [](auto &scene) { Files::write(scene.game() + "/mods/a.pyc", "altered"); }},
        {"no game set", [](auto &scene) { scene.set("game", QString()); }},
        {"unverified", [](auto &scene) { scene.set("lastcheckret", false); }},
        {"sign", [](auto &scene) { scene.sign(); }},
        {"trust", [](auto &scene) { scene.trust(); }},
        {"interval 1", [](auto &scene) { scene.set("interval", 1); }},
        {"interval -5", [](auto &scene) { scene.set("interval", -5); }},
        {"hidden", [](auto &scene) { scene.start(false); }},
        {"flashing", [](auto &scene) { QVERIFY(scene.hasTimer(500)); }},
        {"first installation", checkFirstInstallation},
        {"hostile version", checkHostileVersion},
        {"folder message", checkFolderMessage},
        {"default interval", checkDefaultInterval},
        {"47 checks", checkOften},
        {"one mismatch", [](auto &scene) { QCOMPARE(scene.logged("本地文件md5 不符"), 1); }},
        {"no folder shown",
         [](auto &scene) {
             QCOMPARE(scene.template widget<QLineEdit>("m_GamePath")->text(), QString());
             QCOMPARE(scene.stored("game").toString(), QString());
         }},
        {"no folder made",
         [](auto &scene) { QVERIFY(!QDir(scene.game()).exists() && QDir().mkpath(scene.game())); }},
    };
}

/// Steps about one field of "data": "falsify FIELD", "retype FIELD" and "strip FIELD".
bool takeForgery(const QString &kind, const QString &field, UpdateScene &scene)
{
    const QMap<QString, std::function<void(QJsonObject &)>> forgeries{
        {"falsify", [=](QJsonObject &data) { data[field] = data[field].toString() + '1'; }},
        {"retype", [=](QJsonObject &data) { data[field] = data[field].toString().toInt(); }},
        {"strip", [=](QJsonObject &data) { data.remove(field); }}};
    if (!forgeries.contains(kind))
        return false;
    scene.server.falsify = forgeries[kind];
    scene.server.serve();
    scene.server.falsify = {};
    return true;
}

/// Besides the steps there are "installed VERSION", and numbers of things that are waited for:
/// "2 packages", "2 manifests" or "2 LINE", a debug line.
void take(const QString &step, UpdateScene &scene)
{
    static const Steps server = serverSteps(), ours = ourSteps();
    const QString first = step.section(' ', 0, 0), rest = step.section(' ', 1);
    if (server.contains(step))
        server[step](scene);
    else if (ours.contains(step))
        ours[step](scene);
    else if (takeForgery(first, rest, scene))
        return;
    else if (first == "installed")
        WAIT_FOR(scene.isInstalled(rest));
    else if (rest == "packages")
        WAIT_FOR(scene.state(true).constFirst().section('+', 1) == first);
    else if (rest == "manifests")
        WAIT_FOR(scene.state(true).constFirst().section('+', 0, 0) == first);
    else if (first.toInt() > 0)
        WAIT_FOR(scene.logged(rest) >= first.toInt());
    else
        QFAIL(qPrintable("no such step: " + step));
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
};

void tst_UpdateFlow::initTestCase()
{
    Q_INIT_RESOURCE(brekka);
    QGuiApplication::setQuitOnLastWindowClosed(false);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

void tst_UpdateFlow::flow_data()
{
    // Steps before the window is made; if there are none, the row begins when the window is idle.
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("steps");
    // As UpdateScene::state() tells it, the number of requests first, unless they are left open.
    QTest::addColumn<QString>("end");
    const auto start = [](const char *name, const char *before, const char *steps,
                          const QString &end) {
        QTest::newRow(name) << QString(before) << QString(steps) << end;
    };
    const auto row = [=](const char *name, const char *steps, const QString &end) {
        start(name, "", steps, end);
    };
    const QString wrong = "unverified; no package; 更新插件; badge";
    const QString failed = "; box 安装失败\n 请您检查游戏路径并关闭游戏!",
                  toast = "; toast 安装成功", unasked = "; unasked toast 安装成功";
    const QString done = "; game 1.2.4; pver 1.2.4";
    // A manifest without news brings no version to record, nor a checksum when there was none.
    const QString empty = "; pver ";

    // These take a minute, so they begin first.
    row("manifest stalls", "stall; tick; 1 Something's wrong here", "1+0");
    row("package never comes", "offer; no package at first; tick", "2+2" + done + unasked);

    row("404", "404; tick; 1 Something's wrong here", "1+0");
    row("404, user", "remove package; 404; press", "1+0; no package" + failed);
    row("404, hidden user", "remove package; 404; hide; press; 1 Something's wrong here",
        "1+0; no package");
    row("not JSON", "not JSON; tick; 2 本地插件文件正确", "1+0");
    row("errno 7", "errno 7; tick; 2 本地插件文件正确", "1+0");
    row("errno as text", "offer; errno as text; tick", "1+1" + done);
    row("no link", "offer; name no link; tick; 2 本地插件文件正确", "1+0; check old");
    row("hostile version", "hostile version", "0+0");
    start("first installation", "remove plugin", "first installation", "1+1");

    // Four new looks at the server after the first wrong package; each later check has one try, and
    // the longer it stays wrong, the fewer of them fetch it.
    row("wrong", "offer; announce another; tick; 1 ShowNew(void)", "5+5; " + wrong);
    row("wrong, many checks", "offer; announce another; 47 checks",
        "unverified; no package; badge");
    row("wrong, another one", "offer; announce another; tick; 1 ShowNew(void); announce 1; tick",
        "6+6; " + wrong);
    row("wrong, user", "remove package; offer; announce another; press", "5+5; " + wrong + failed);
    row("wrong, user once more", "offer; announce another; tick; 1 ShowNew(void); press",
        "10+10; " + wrong + failed);
    row("cut off, user joins",
        "offer; announce another; slow package; tick; 1 packages; cut off; press",
        "5+5; " + wrong + failed);
    row("wrong ones in a row",
        "offer; cut off twice; tick; installed 1.2.4; announce another; tick; 1 ShowNew(void)",
        "8+8" + done + "; " + wrong + unasked);

    // Four re-installations after the first failure; nobody asked, so only the badge tells.
    row("no archive", "offer; pack no archive; tick; 1 ShowNew(void)", "5+5; " + wrong);
    row("no archive, user", "remove package; offer; pack no archive; press",
        "1+1; unverified; no package" + failed);
    row("retries until verified",
        "offer; pack no archive; tick; 2 packages; offer; installed 1.2.4; pack no archive; tick; "
        "1 ShowNew(void)",
        "8+8" + done + "; " + wrong);
    row("file missing", "offer; list more; tick; 1 ShowNew(void)",
        "5+5; game 1.2.4; lists more; unverified; 更新插件; badge");
    row("file missing, user", "remove package; offer; list more; press",
        "1+1; game 1.2.4; lists more; unverified" + failed);
    row("another file", "offer; list another; tick", "1+1; game 1.2.4; 更新插件; badge");
    row("another file, user", "remove package; offer; list another; press",
        "1+1; game 1.2.4" + failed);
    row("label at a check", "offer; pack no archive; tick; 1 ShowNew(void); 404; tick",
        "6+5; unverified; no package; badge");

    row("altered", "alter; tick", "2+1" + empty);
    row("altered, nothing to fetch",
        "alter; errno 7; tick; 2 http request error!!; settle; one mismatch",
        "2+0; game other; no package");
    row("missing", "remove file; tick", "2+2" + empty + unasked);
    row("missing, no link", "remove file; name no link; tick", "1+0; game other; no package");
    start("last check failed", "unverified", "", "2+2" + empty + unasked);
    start("game folder gone", "remove game", "1 OnSettingChanged \"game\"; no folder shown; choose",
          "2+2" + empty + toast);
    row("game folder goes",
        "offer; slow package; tick; 1 packages; remove game; 1 OnCheckFileResult no game folder; "
        "no folder made",
        "1+1; game none");

    row("package there", "alter; press", "0+0; pver ; no check" + toast);
    row("no package", "remove package; press", "1+1" + empty + toast);
    row("during a download", "offer; slow package; tick; 1 packages; press", "1+1" + done + toast);
    row("server hangs", "alter; no answer; tick; press", "1+0; pver ; no check" + toast);
    row("server hangs, no package", "remove package; no answer; press; 1 manifests; offer; press",
        "2+1" + done + toast);
    row("local check ends during the run", "alter; check locally; press",
        "0+0; pver ; no check" + toast);
    start("no game folder", "no game set", "folder message; choose",
          "1+0; box 没有搜索到游戏客户端路径");
    start("runs go on behind a box", "interval 1",
          "1 本地插件文件正确; remove package; 404; press; act behind box", done.mid(2) + failed);
    start("hidden", "hidden; offer; pack no archive", "1 ShowNew(void); flashing; show", wrong);

    // With keys, nothing but what one of them has signed is believed, stored or installed.
    const QString refused = "; 1 manifest refused:; settle";
    const auto trust = [=](const QString &name, const QString &steps, const QString &end) {
        start(qPrintable("keys: " + name), "trust", qPrintable("1 本地插件文件正确; " + steps),
              end);
    };
    for (const char *forgery :
         {"falsify version_name", "falsify md5", "falsify sha256", "falsify updated_at",
          "falsify upgrade_info", "falsify link", "falsify serial", "falsify signature",
          "retype serial", "retype version_name", "strip sha256", "strip signature"})
        trust(forgery, QString("offer; list more; %1; tick").arg(forgery) + refused,
              "2+0; check old");
    trust("unsigned", "offer unsigned; tick" + refused, "2+0; check old");
    trust("unsigned, user", "offer unsigned; remove package; press",
          "2+0; check old; no package" + failed);
    trust("stranger's", "sign by 3; offer; tick" + refused, "2+0; check old");
    trust("second key", "sign by 2; offer; reformat; tick", "2+1" + done + "; serial +1");
    trust("repeated", "turn back; offer; tick; 1 manifest older", "2+0; check old");
    trust("older one signed anew", "offer; tick; installed 1.2.4; offer the first; tick",
          "3+2; serial +2");
    trust("another package", "offer; announce another SHA-256; tick; 1 ShowNew(void)",
          "6+5; serial +1; " + wrong);
    trust("package there", "alter; press", "1+0; pver ; no check" + toast);
    row("no keys, signed", "sign; offer; tick", "1+1" + done);
    row("hidden user", "hide; alter; press", "0+0; pver ; no check");
    start("negative interval", "interval -5", "default interval", "1+0");
}

void tst_UpdateFlow::flow()
{
    QFETCH(QString, before);
    QFETCH(QString, steps);
    QFETCH(QString, end);
    UpdateScene scene;
    for (const QString &step : before.split("; ", Qt::SkipEmptyParts))
        take(step, scene);
    if (before.isEmpty())
        scene.startAndSettle();
    else if (!scene.window)
        scene.start();
    for (const QString &step : steps.split("; ", Qt::SkipEmptyParts)) {
        take(step, scene);
        if (QTest::currentTestFailed())
            return;
    }
    const bool requests = end.section("; ", 0, 0).contains('+');
    if (!QTest::qWaitFor([&] { return scene.state(requests).join("; ") == end; }, 150000))
        QCOMPARE(scene.state(requests).join("; "), end);

    const QStringList shown = scene.shown;
    if (before == "trust")
        scene.signBy(1);
    scene.offer("1.2.9");
    // A run may be under way, which a check doesn't disturb.
    WAIT_FOR(scene.isInstalled("1.2.9") || (scene.window->OnAutoUpdate(), QTest::qWait(50), false));
    const auto isHealed = [&] {
        QStringList state = scene.state(false);
        state.erase(std::remove_if(state.begin(), state.end(),
                                   [](const QString &what) {
                                       return what.startsWith("serial") || what == "lists more";
                                   }),
                    state.end());
        return state == QStringList{"game 1.2.9", "pver 1.2.9"} + shown;
    };
    if (!QTest::qWaitFor(isHealed, 150000))
        QFAIL(qPrintable("not healed: " + scene.state(false).join("; ")));
    QCOMPARE(scene.strays(), QStringList());
}

QTEST_MAIN(tst_UpdateFlow)

#include "tst_updateflow.moc"
