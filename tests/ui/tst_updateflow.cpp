#include "MainController.h"
#include "Paths.h"
#include "SmallDisk.h"
#include "UpdateScene.h"

#include <QApplication>
#include <QDir>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTextCodec>

namespace
{
/// What a step does, with the words behind its name.
using Step = std::function<void(UpdateScene &, const QString &)>;

/// Changes what is offered, or how the manifest is falsified on its way out.
Step offering(void (*change)(UpdateServer &, const QString &))
{
    return [change](UpdateScene &scene, const QString &rest) {
        change(scene.server, rest);
        scene.server.serve();
        scene.server.falsify = {};
    };
}

/// The requests for \a path get \a before, one after the other, and then what is offered.
Step answering(const QString &path, const QVector<HttpAnswer> &before)
{
    return [=](UpdateScene &scene, const QString &) {
        const QByteArray manifest = QJsonDocument(scene.server.offered.toJson()).toJson();
        const HttpAnswer last{200, path == UpdateServer::Package ? scene.server.archive : manifest};
        scene.server.answer(path, before + QVector<HttpAnswer>{last});
    };
}

/// Closes the box only after one more failure, and then an update, behind it.
void actBehindBox(UpdateScene &scene, const QString &)
{
    scene.mayClose = [&scene] {
        const bool hasFailed = scene.logged("Something's wrong here") > 1;
        if (hasFailed && scene.logged("OnAutoUpdate start") == 1)
            scene.window->OnAutoUpdate();
        else if (!hasFailed && !scene.isAtWork())
            scene.window->OnPluginExtractInstall();
        return scene.isInstalled("1.2.4");
    };
}

void choose(UpdateScene &scene, const QString &)
{
    QVERIFY(QDir().mkpath(scene.game()));
    MainController::instance()->WriteSetting("game", scene.game());
}

/// What the worker was asked for before is done, and has come back.
void settle(UpdateScene &scene, const QString &)
{
    MainController::instance()->WriteSetting("settled", true);
    WAIT_FOR(scene.logged("OnSettingChanged \"settled\"") == 1);
}

/// A setting changes on a full disk.
void fillDisk(UpdateScene &scene, const QString &)
{
    [[maybe_unused]] const SmallDisk disk;
    settle(scene, {});
}

/// Begins a check, as soon as nothing else is under way.
void tick(UpdateScene &scene, const QString &)
{
    const int checks = scene.logged("OnAutoUpdate start");
    WAIT_FOR((scene.window->OnAutoUpdate(), scene.logged("OnAutoUpdate start") > checks));
}

QHash<QString, Step> makeSteps()
{
    const HttpAnswer error{200, R"({"errno": 7, "data": {}})"};
    HttpAnswer silence, cut{200, QByteArray(100000, 'p')};
    silence.silent = true;
    cut.cutAfter = 50000;
    return {
        {"offer", [](auto &scene, auto &) { scene.offer("1.2.4"); }},
        {"offer the first", [](auto &scene, auto &) { scene.offer("1.2.3"); }},
        {"list", offering([](auto &server, auto &file) { (*server.offered.files)[file] = "0"; })},
        {"announce", offering([](auto &server, auto &md5) { server.offered.packageMd5 = md5; })},
        {"announce another SHA-256",
         offering([](auto &server, auto &) { server.offered.packageSha256 = "0"; })},
        {"name no link", offering([](auto &server, auto &) { server.offered.link.reset(); })},
        {"pack no archive", offering([](auto &server, auto &) {
             server.archive = "no archive";
             server.offered.packageMd5 = Files::md5(server.archive);
         })},
        {"falsify", offering([](auto &server, auto &field) {
             server.falsify = [field](QJsonObject &data) {
                 data[field] = data[field].toString() + '1';
             };
         })},
        {"size", offering([](auto &server, auto &size) {
             server.falsify = [size](QJsonObject &data) { data["size"] = size; };
         })},
        {"strip", offering([](auto &server, auto &field) {
             server.falsify = [field](QJsonObject &data) { data.remove(field); };
         })},
        {"signer", [](auto &scene, auto &key) { scene.signBy(key.toInt()); }},
        {"no signer", [](auto &scene, auto &) { scene.server.key.reset(); }},
        {"turn back", [](auto &scene, auto &) { scene.server.serial -= 2; }},
        {"404 twice", answering(UpdateServer::Manifest, {{404}, {404}})},
        {"error twice", answering(UpdateServer::Manifest, {error, error})},
        {"no answer at first", answering(UpdateServer::Manifest, {silence})},
        {"no package at first", answering(UpdateServer::Package, {silence})},
        {"cut off twice", answering(UpdateServer::Package, {cut, cut})},
        {"slow package",
         [](auto &scene, auto &) {
             HttpAnswer slow{200, scene.server.archive};
             slow.bodyDelayMs = 500;
             scene.server.answer(UpdateServer::Package, {slow});
         }},

        {"set", [](auto &scene,
                   auto &rest) { scene.store(rest.section(' ', 0, 0), rest.section(' ', 1)); }},
        {"lowest", [](auto &scene, auto &serial) { scene.lowestSerial = serial.toULongLong(); }},
        {"start", [](auto &scene, auto &hidden) { scene.start(hidden.isEmpty()); }},
        {"show", [](auto &scene, auto &) { scene.window->show(); }},
        {"hide", [](auto &scene, auto &) { scene.window->hide(); }},
        {"tick", tick},
        {"press", [](auto &scene, auto &) { scene.window->OnPluginExtractInstall(); }},
        {"choose", choose},
        {"act behind box", actBehindBox},
        {"check locally",
         [](auto &scene, auto &) {
             MainController::instance()->StartAutoUpdateCheckPluginsFile(
                 scene.game(), QVariant::fromValue(*scene.server.offered.files));
         }},
        {"settle", settle},
        {"full disk", fillDisk},
        {"remove package", [](auto &, auto &) { QVERIFY(QFile::remove(Paths::packageFile())); }},
        {"remove file",
         [](auto &scene, auto &) { QVERIFY(QFile::remove(scene.game() + "/mods/a.pyc")); }},
        {"remove game",
         [](auto &scene, auto &) { QVERIFY(QDir(scene.game()).removeRecursively()); }},
        {"alter",
         [](auto &scene, auto &) { Files::write(scene.game() + "/mods/a.pyc", "altered"); }},
        {"asked", [](auto &scene, auto &requests) { WAIT_FOR(scene.state().first() == requests); }},
        {"installed", [](auto &scene, auto &version) { WAIT_FOR(scene.isInstalled(version)); }},
        {"shows",
         [](auto &scene, auto &rest) {
             WAIT_FOR(scene.text(rest.section(' ', 0, 0)) == rest.section(' ', 1));
         }},
        {"timer", [](auto &scene, auto &interval) { QVERIFY(scene.hasTimer(interval.toInt())); }},
        {"one mismatch",
         [](auto &scene, auto &) { QCOMPARE(scene.logged("本地文件md5 不符"), 1); }},
    };
}

/// Besides the steps there is "2 LINE", which waits for two debug lines with that text.
void take(const QString &step, UpdateScene &scene)
{
    static const QHash<QString, Step> steps = makeSteps();
    const QString first = step.section(' ', 0, 0), rest = step.section(' ', 1);
    if (steps.contains(step))
        steps[step](scene, {});
    else if (steps.contains(first))
        steps[first](scene, rest);
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
    QTest::addColumn<bool>("signs");
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QString>("end"); // as UpdateScene::state() tells it
    const QString idle = "start; 1 本地插件文件正确; ";
    // Unless it says when the window is made, a row begins when that is idle.
    const auto row = [=](const char *name, const QString &steps, const QString &end) {
        QTest::newRow(name) << false << (steps.contains("start") ? steps : idle + steps) << end;
    };
    const QString wrong = "unverified; no package; 更新插件; badge";
    const QString failed = "; box 安装失败\n 请您检查游戏路径并关闭游戏!",
                  toast = "; toast 安装成功", unasked = "; unasked toast 安装成功";
    const QString done = "; game 1.2.4; pver 1.2.4";
    // A manifest without news brings no version to record, nor a checksum when there was none.
    const QString empty = "; pver ";

    // This takes a minute, so it begins first.
    row("package never comes", "offer; no package at first; tick", "3+2" + done + unasked);

    row("what is shown",
        "set pver; set updatedate; offer; start; shows m_pluginver 1.2.3; shows m_updatedate "
        "2021-03-05; shows m_pGameSupportVersion 1.12; 1 currnt progress:; 1 extract range::",
        "1+1" + done);
    row("odd settings",
        "set interval -5; set updatedate " + QString(1000, 'x') + "; start; shows m_updatedate " +
            QString(100, 'x') + "; timer 300000",
        "1+0");
    row("hidden user",
        "hide; remove package; 404 twice; press; 1 Something's wrong here; offer; press",
        "3+1" + done);

    // Four new looks at the server after the first wrong package; each later check has one try, and
    // the longer it stays wrong, the fewer of them fetch it.
    row("wrong, many checks", "offer; announce 0; " + QString("tick; ").repeated(47),
        "52+11; unverified; no package; badge");
    row("wrong, another one", "offer; announce 0; tick; 1 ShowNew(void); announce 1; tick",
        "7+6; " + wrong);
    row("wrong, user once more", "offer; announce 0; tick; 1 ShowNew(void); press",
        "11+10; " + wrong + failed);
    row("wrong ones in a row",
        "offer; cut off twice; tick; installed 1.2.4; announce 0; tick; 1 ShowNew(void)",
        "9+8" + done + "; " + wrong + unasked);
    row("larger than said", "offer; size 1; tick; 1 ShowNew(void)", "6+5; " + wrong);

    // Four re-installations after the first failure; nobody asked, so only the badge tells.
    row("no archive, user", "remove package; offer; pack no archive; press",
        "2+1; unverified; no package" + failed);
    row("retries until verified",
        "offer; pack no archive; tick; asked 3+2; offer; installed 1.2.4; pack no archive; tick; "
        "1 ShowNew(void)",
        "9+8" + done + "; " + wrong);
    row("file missing", "offer; list mods/more; tick; 1 ShowNew(void)",
        "6+5; game 1.2.4; lists more; unverified; 更新插件; badge");
    row("file missing, user", "remove package; offer; list mods/more; press",
        "2+1; game 1.2.4; lists more; unverified" + failed);
    row("another file", "offer; list mods/a.pyc; tick; 1 ShowNew(void); tick",
        "4+1; game 1.2.4; no package; badge");
    row("another file, user", "remove package; offer; list mods/a.pyc; press",
        "2+1; game 1.2.4" + failed);
    row("label at a check", "offer; pack no archive; tick; 1 ShowNew(void); 404 twice; tick",
        "7+5; unverified; no package; badge");

    row("altered", "alter; tick", "3+1" + empty);
    row("altered, nothing to fetch",
        "alter; error twice; tick; 2 http request error!!; settle; one mismatch",
        "3+0; game other; no package");
    row("missing", "remove file; tick", "3+2" + empty + unasked);
    row("missing, no link", "remove file; name no link; tick", "2+0; game other; no package");
    row("last check failed", "set lastcheckret false; start", "2+2" + empty + unasked);
    row("game folder gone",
        "remove game; start; 1 OnSettingChanged \"game\" QVariant(QString, \"\"); shows "
        "m_GamePath; choose",
        "2+2" + empty + toast);
    row("game folder goes",
        "offer; slow package; tick; asked 2+1; remove game; 1 OnCheckFileResult no game folder; "
        "choose",
        "3+2" + done + toast);

    row("package there", "alter; press", "1+0; pver ; no check" + toast);
    row("no package", "remove package; press", "2+1" + empty + toast);
    row("during a download", "offer; slow package; tick; asked 2+1; press", "2+1" + done + toast);
    row("server hangs", "remove package; offer; no answer at first; tick; asked 2+0; press",
        "3+1" + done + toast);
    row("local check ends during the run", "check locally; press", "1+0; pver ; no check" + toast);
    row("no game folder", "set game; start; 1 not found game; press; choose",
        "1+0; box 没有搜索到游戏客户端路径; box <style> a {text-decoration: none;color: "
        "#505287;} </style>  <div>您还未设置游戏路径！</div> <div>如果未下载游戏，<a "
        "href=\"https:///zh-cn/game/download\">请前往下载 </a></div>");
    const QString unsaved =
        "1+0; box <div>设置无法保存到文件夹 .</div><div>请检查磁盘空间。本次运行中的更改仍然有效，"
        "下次能够保存时会一并保存。</div>";
#ifdef Q_OS_UNIX // elsewhere no disk can be made small
    row("full disk", "full disk", unsaved);
    row("full disk, hidden", "hide; full disk; show", unsaved);
#endif
    row("runs go on behind a box", "offer; remove package; 404 twice; act behind box; press",
        "4+1" + done + failed);
    row("hidden", "offer; pack no archive; start hidden; 1 ShowNew(void); timer 500; show",
        "5+5; " + wrong);

    // With keys, nothing but what one of them has signed is believed, stored or installed.
    const auto keys = [=](const QString &name, const QString &steps, const QString &end) {
        QTest::newRow(qPrintable("keys: " + name))
            << true << (steps.contains("start") ? steps : idle + steps) << end;
    };
    const QString refused = "; tick; 1 manifest refused:; settle";
    for (const char *forgery :
         {"falsify version_name", "falsify md5", "falsify sha256", "falsify updated_at",
          "falsify upgrade_info", "falsify link", "falsify serial", "falsify size",
          "falsify signature2", "strip sha256", "strip signature2"})
        keys(forgery, QString("offer; list mods/more; ") + forgery + refused, "2+0; check old");
    keys("stranger's", "signer 3; offer" + refused, "2+0; check old");
    keys("unsigned, user", "no signer; offer; remove package; press",
         "2+0; check old; no package" + failed);
    keys("second key", "signer 2; offer; falsify more; tick", "2+1" + done + "; serial +1");
    // Until the first one that has it.
    keys("from an older publisher", "offer; strip signature2; start; installed 1.2.4",
         "1+1" + done + "; serial +1; needs no signature2");
    keys("from an older publisher, too late",
         "set needssignature2 true; offer; strip signature2; start; 1 manifest refused:",
         "1+0; check old; half signed");
    // What an older program has stored counts as well.
    keys("repeated to a newer program", "turn back; offer; start; 1 manifest older",
         "1+0; check old; half signed");
    keys("repeated to a new player", "set manifestserial; lowest 1002; start; 1 manifest older",
         "1+0; half signed");
    keys("repeated", "turn back; offer; tick; 1 manifest older", "2+0; check old");
    keys("older one signed anew", "offer; tick; installed 1.2.4; offer the first; tick",
         "3+2; serial +2");
    keys("another package", "offer; announce another SHA-256; tick; 1 ShowNew(void)",
         "6+5; serial +1; " + wrong);
    keys("package there", "alter; press", "1+0; pver ; no check" + toast);
}

void tst_UpdateFlow::flow()
{
    QFETCH(bool, signs);
    QFETCH(QString, steps);
    QFETCH(QString, end);
    UpdateScene scene(signs);
    for (const QString &step : steps.split("; ", Qt::SkipEmptyParts)) {
        take(step, scene);
        if (QTest::currentTestFailed())
            return;
    }
    const auto state = [&] { return scene.state().join("; "); };
    if (!QTest::qWaitFor([&] { return state() == end; }, 150000))
        QCOMPARE(state(), end);

    const QStringList healed = QStringList{"game 1.2.9", "pver 1.2.9"} + scene.shown;
    if (signs)
        scene.signBy(1);
    scene.offer("1.2.9");
    // A run may be under way, which a check doesn't disturb.
    WAIT_FOR((scene.window->OnAutoUpdate(), scene.isInstalled("1.2.9")));
    const QRegularExpression changing("^(?!\\d|serial|lists more)");
    if (!QTest::qWaitFor([&] { return scene.state().filter(changing) == healed; }, 150000))
        QCOMPARE(state(), healed.join("; "));
    QCOMPARE(scene.strays(), QStringList());
}

QTEST_MAIN(tst_UpdateFlow)

#include "tst_updateflow.moc"
