#include "Paths.h"
#include "RowRunner.h"
#include "UpdateScene.h"
#include "WaitFor.h"

#include <QApplication>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTextCodec>
#include <QtTest>

#define WAIT_FOR(condition) WAIT_FOR_MS(condition, 30000)

using Step = std::function<void(UpdateScene &)>;
Q_DECLARE_METATYPE(Step)

namespace
{
const QString Failed = QStringLiteral("安装失败\n 请您检查游戏路径并关闭游戏!");
const QString Install = QStringLiteral("安装插件");
const QString Update = QStringLiteral("更新插件");

void none(UpdateScene &) {}

Step answers(const QString &path, const QVector<HttpAnswer> &script)
{
    return [=](UpdateScene &scene) { scene.server.answer(path, script); };
}

HttpAnswer answer(int status, const QByteArray &body = {})
{
    HttpAnswer answer;
    answer.status = status;
    answer.body = body;
    return answer;
}

/// The published manifest with one field of "data" replaced, or removed by an undefined value.
Step manifestWith(const QString &field, const QJsonValue &value)
{
    return [=](UpdateScene &scene) {
        QJsonObject body = QJsonDocument::fromJson(scene.server.manifest).object();
        QJsonObject data = body["data"].toObject();
        data[field] = value;
        body["data"] = data;
        scene.server.answer(UpdateServer::Manifest, {answer(200, QJsonDocument(body).toJson())});
    };
}

/// Offers \a archive with a manifest that announces its checksum.
Step package(const std::function<QByteArray(const UpdateScene &)> &archive)
{
    return [=](UpdateScene &scene) {
        const QByteArray bytes = archive(scene);
        manifestWith("md5", Files::md5(bytes))(scene);
        scene.server.answer(UpdateServer::Package, {answer(200, bytes)});
    };
}

bool isBadgeShown(UpdateScene &scene)
{
    return !scene.widget<QLabel>("m_newversion")->isHidden();
}

QString label(UpdateScene &scene)
{
    return scene.widget<QPushButton>("m_installPlugin")->text();
}
} // namespace

/// Every row: something is wrong from the start; it shows as it should; and once it is mended, the
/// next automatic check installs.
class tst_UpdateFlow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void flow_data();
    void flow();

private:
    void addServerFaults();
    void addPackageFaults();
    void addFolderFaults();
    void addNormalRuns();
    void addButtonRuns();
};

void tst_UpdateFlow::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

void tst_UpdateFlow::flow_data()
{
    QTest::addColumn<Step>("fault");
    QTest::addColumn<Step>("expect");
    addServerFaults();
    addPackageFaults();
    addFolderFaults();
    addNormalRuns();
    addButtonRuns();
}

void tst_UpdateFlow::flow()
{
    QFETCH(Step, fault);
    QFETCH(Step, expect);
    UpdateScene scene;
    fault(scene);
    if (!scene.window)
        scene.start();
    expect(scene);
    if (QTest::currentTestFailed())
        return;

    scene.server.publish(scene.plugin, "1.2.4");
    WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.4"));
    WAIT_FOR(!isBadgeShown(scene) && label(scene) == Install);
    QCOMPARE(scene.strays(), QStringList());
}

void tst_UpdateFlow::addServerFaults()
{
    const auto silently = [](const QString &line) {
        return [=](UpdateScene &scene) {
            WAIT_FOR(scene.logged(line) > 1); // so there was a second tick, too
            QCOMPARE(scene.packages(), 0);
            QCOMPARE(scene.messages, QStringList());
            QVERIFY(!isBadgeShown(scene));
        };
    };
    const auto row = [&](const char *name, const HttpAnswer &manifest, const QString &line) {
        QTest::newRow(name) << answers(UpdateServer::Manifest, {manifest}) << Step(silently(line));
    };
    HttpAnswer reset, silent;
    reset.reset = true;
    silent.silent = true;
    row("404", answer(404), "Something's wrong here");
    row("reset", reset, "Something's wrong here");
    row("never answering", silent, "Something's wrong here");
    row("not JSON", answer(200, "<html>"), "no need update plugin");
    row("errno 7", answer(200, R"({"errno": 7, "data": {}})"), "http request error!!");
    row("no data", answer(200, R"({"errno": 0})"), "no need update plugin");
    QTest::newRow("no link") << manifestWith("link", QJsonValue())
                             << Step(silently("no need update plugin"));
    QTest::newRow("503, then 200") << Step([](UpdateScene &scene) {
        scene.server.answer(UpdateServer::Manifest,
                            {answer(503), answer(200, scene.server.manifest)});
    }) << Step([](UpdateScene &scene) {
        WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
        QCOMPARE(scene.logged("Something's wrong here"), 0);
    });
    QTest::newRow("unparsable upgrade_info")
        << manifestWith("upgrade_info", "{nonsense")
        << Step([](UpdateScene &scene) { WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3")); });
    QTest::newRow("climbing key") << manifestWith("upgrade_info", R"({"../evil": "0"})")
                                  << Step([](UpdateScene &scene) {
                                         WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
                                         QVERIFY(!scene.stored("plugins/../evil").isValid());
                                     });
}

void tst_UpdateFlow::addPackageFaults()
{
    // Four new checks after the first wrong package, then none before the next tick.
    const Step bounded = [](UpdateScene &scene) {
        WAIT_FOR(scene.messages.contains(Failed));
        QVERIFY(isBadgeShown(scene));
        QCOMPARE(label(scene), Update);
        QCOMPARE(scene.packages(), 5);
        WAIT_FOR(scene.packages() == 6);
        QVERIFY(!scene.stored("lastcheckret").toBool());
        // So that the install button asks the server.
        WAIT_FOR(!QFile::exists(Paths::packageFile()));
    };
    HttpAnswer cut;
    cut.body = QByteArray(100000, 'p');
    cut.cutAfter = 50000;
    QTest::newRow("wrong MD5") << manifestWith("md5", "0123456789abcdef0123456789abcdef")
                               << bounded;
    QTest::newRow("cut off") << answers(UpdateServer::Package, {cut}) << bounded;
    // The runs go on behind a message that nobody closes, and bring no more of them.
    QTest::newRow("cut off, nobody there") << Step([=](UpdateScene &scene) {
        scene.server.answer(UpdateServer::Package, {cut});
        scene.mayClose = [&scene] { return scene.packages() >= 7; };
    }) << Step([](UpdateScene &scene) {
        WAIT_FOR(scene.messages.contains(Failed));
        QVERIFY(scene.packages() >= 7);
        QCOMPARE(scene.mostMessages, 1);
    });
    // Four re-installs after the first failure; nobody asked, so only the badge tells.
    const Step retried = [](UpdateScene &scene) {
        WAIT_FOR(isBadgeShown(scene));
        QCOMPARE(scene.packages(), 5);
        QCOMPARE(label(scene), Update);
        QCOMPARE(scene.messages, QStringList());
        WAIT_FOR(!scene.stored("lastcheckret").toBool());
    };
    QTest::newRow("no archive") << package([](const UpdateScene &) { return "no archive"; })
                                << retried;
    QTest::newRow("climbing entry") << package([](const UpdateScene &scene) {
        Files::Tree tree = scene.plugin;
        tree["mods/../../evil"] = "evil";
        return Files::zip(tree);
    }) << retried;
    QTest::newRow("file missing in the package") << package([](const UpdateScene &scene) {
        Files::Tree tree = scene.plugin;
        tree.remove("mods/a.pyc");
        return Files::zip(tree);
    }) << retried;
}

void tst_UpdateFlow::addFolderFaults()
{
    QTest::newRow("unwritable target")
        << Step([](UpdateScene &scene) { QDir().mkpath(scene.game() + "/mods/a.pyc/in the way"); })
        << Step([](UpdateScene &scene) {
               WAIT_FOR(isBadgeShown(scene));
               QCOMPARE(scene.packages(), 5);
               QCOMPARE(label(scene), Update);
               QDir(scene.game() + "/mods/a.pyc").removeRecursively();
           });
    QTest::newRow("game folder gone")
        << Step([](UpdateScene &scene) { QDir(scene.game()).removeRecursively(); })
        << Step([](UpdateScene &scene) {
               WAIT_FOR(scene.logged("OnAutoUpdate OnCheckFileResult failed") > 1);
               QCOMPARE(scene.manifests(), 0);
               QCOMPARE(scene.stored("game").toString(), QString());
               QCOMPARE(scene.widget<QLineEdit>("m_GamePath")->text(), QString());
               Files::write(scene.game() + "/WorldOfTanks.exe", {});
               scene.window->OnSettingChanged("game", scene.game());
           });
    QTest::newRow("game folder goes during the download") << Step([](UpdateScene &scene) {
        HttpAnswer slow = answer(200, scene.server.archive);
        slow.bodyDelayMs = 500;
        scene.server.answer(UpdateServer::Package, {slow});
    }) << Step([](UpdateScene &scene) {
        WAIT_FOR(scene.packages() == 1);
        QVERIFY(QDir(scene.game()).removeRecursively());
        WAIT_FOR(scene.logged("OnCheckFileResult no game folder") == 1);
        QVERIFY(!QDir(scene.game()).exists());
        Files::write(scene.game() + "/WorldOfTanks.exe", {});
    });
    for (const char *interval : {"soon", "-5"}) {
        QTest::newRow(qPrintable(QString("interval %1").arg(interval)))
            << Step([=](UpdateScene &scene) { scene.set("interval", interval); })
            << Step([](UpdateScene &scene) {
                   WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
                   // The next tick is minutes away: stand in for it.
                   scene.server.publish(scene.plugin, "1.2.4");
                   scene.window->OnAutoUpdate();
               });
    }
}

void tst_UpdateFlow::addNormalRuns()
{
    QTest::newRow("first installation") << Step(none) << Step([](UpdateScene &scene) {
        WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
        WAIT_FOR(scene.stored("packagecheck") == Files::md5(scene.server.archive));
        QTRY_COMPARE(scene.widget<QLabel>("m_updatedate")->text(), QString("2021-03-05"));
        QTRY_COMPARE(scene.widget<QLabel>("m_pluginver")->text(), QString("1.2.3"));
        QTRY_COMPARE(scene.widget<QLabel>("m_pGameSupportVersion")->text(), QString("1.12"));
        QVERIFY(scene.widget<QProgressBar>("m_installprogressbar")->isHidden());
        QVERIFY(scene.logged("currnt progress:") > 0);
    });
    QTest::newRow("nothing new") << Step(none) << Step([](UpdateScene &scene) {
        WAIT_FOR(scene.logged("本地插件文件正确，自动更新完成") > 1);
        QCOMPARE(scene.packages(), 1);
    });
    const auto repair = [](const Step &damage) {
        return Step([=](UpdateScene &scene) {
            WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
            damage(scene);
            WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
            QVERIFY(scene.packages() > 1);
        });
    };
    QTest::newRow("altered file") << Step(none) << repair([](UpdateScene &scene) {
        Files::write(scene.game() + "/res/模型/b.bin", "altered");
    });
    QTest::newRow("missing file") << Step(none) << repair([](UpdateScene &scene) {
        QFile::remove(scene.game() + "/mods/a.pyc");
    });
    // Nothing to fetch: one look at the server and one more, then nothing before the next tick.
    for (const char *body : {R"({"errno": 7})", "<html>"}) {
        QTest::newRow(body) << Step([](UpdateScene &scene) { scene.set("interval", 3); })
                            << Step([=](UpdateScene &scene) {
                                   WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
                                   scene.server.answer(UpdateServer::Manifest, {answer(200, body)});
                                   Files::write(scene.game() + "/mods/a.pyc", "altered");
                                   WAIT_FOR(scene.logged("本地文件md5 不符，重新下载") > 1);
                                   const int ticks = scene.logged("OnAutoUpdate start");
                                   QVERIFY(scene.manifests() <= 2 * ticks);
                               });
    }
    QTest::newRow("hidden: the tray flashes until shown") << Step([](UpdateScene &scene) {
        package([](const UpdateScene &) { return "no archive"; })(scene);
        scene.start(false);
    }) << Step([](UpdateScene &scene) {
        WAIT_FOR(scene.logged("MainWindow::TrayShan(void)") == 1);
        const auto flashes = scene.window->findChildren<QTimer *>();
        const auto active = [&] {
            return std::any_of(flashes.begin(), flashes.end(), [](const QTimer *timer) {
                return timer->isActive() && timer->interval() == 500;
            });
        };
        QVERIFY(active());
        scene.window->show();
        QVERIFY(!active());
        QCOMPARE(scene.messages, QStringList());
    });
}

void tst_UpdateFlow::addButtonRuns()
{
    QTest::newRow("button: no game folder")
        << Step([](UpdateScene &scene) { scene.set("game", QString()); })
        << Step([](UpdateScene &scene) {
               WAIT_FOR(scene.messages.contains("没有搜索到游戏客户端路径"));
               scene.press("m_installPlugin");
               WAIT_FOR(scene.messages.size() == 2);
               QVERIFY(scene.messages.last().contains("您还未设置游戏路径！"));
               QVERIFY(scene.messages.last().contains("/zh-cn/game/download\">请前往下载 </a>"));
               QCOMPARE(scene.manifests(), 0);
               scene.window->OnSettingChanged("game", scene.game());
           });
    QTest::newRow("button: package there") << Step(none) << Step([](UpdateScene &scene) {
        WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
        Files::write(scene.game() + "/mods/a.pyc", "altered");
        scene.press("m_installPlugin");
        WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
        QCOMPARE(scene.packages(), 1);
    });
    QTest::newRow("button: server hanging") << Step(none) << Step([](UpdateScene &scene) {
        WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
        Files::write(scene.game() + "/mods/a.pyc", "altered");
        HttpAnswer silent;
        silent.silent = true;
        scene.server.answer(UpdateServer::Manifest, {silent});
        const int before = scene.manifests();
        WAIT_FOR(scene.manifests() > before);
        scene.press("m_installPlugin");
        const int asked = scene.manifests();
        WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
        QVERIFY(scene.manifests() <= asked + 1);
        QCOMPARE(scene.packages(), 1);
        QCOMPARE(scene.messages, QStringList());
    });
    QTest::newRow("button: package missing") << Step(none) << Step([](UpdateScene &scene) {
        WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
        // The window's copy of the settings lags the store by one exchange.
        WAIT_FOR(scene.logged("OnSettingChanged \"packagecheck\"") == 2);
        QVERIFY(QFile::remove(Paths::packageFile()));
        scene.press("m_installPlugin");
        WAIT_FOR(scene.packages() == 2);
        WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
        QCOMPARE(scene.messages, QStringList());
    });
    QTest::newRow("button: pressed during the download") << Step([](UpdateScene &scene) {
        HttpAnswer slow = answer(200, scene.server.archive);
        slow.bodyDelayMs = 500;
        scene.server.answer(UpdateServer::Package, {slow});
    }) << Step([](UpdateScene &scene) {
        WAIT_FOR(scene.packages() == 1);
        scene.press("m_installPlugin");
        WAIT_FOR(scene.isInstalled(scene.plugin, "1.2.3"));
        QCOMPARE(scene.packages(), 1);
        QCOMPARE(scene.messages, QStringList());
    });
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
