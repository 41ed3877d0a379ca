#include "UpdateServer.h"
#include "WaitFor.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

// A killed program's lock on its settings lasts thirty seconds where the next process gets its id.
#define WAIT_FOR(condition) WAIT_FOR_MS(condition, 180000)

namespace
{
/// A running copy of the program and what it says.
struct Program : QProcess {
    Program(const QString &path, const QStringList &arguments = {})
    {
        setProcessChannelMode(MergedChannels);
        setWorkingDirectory(QFileInfo(path).path());
        start(path, arguments);
    }
    // Politely, so that it takes its shared memory along.
    ~Program() override
    {
        terminate();
        if (state() != NotRunning && !waitForFinished(60000))
            kill();
        waitForFinished();
    }
    bool said(const char *line)
    {
        output += readAll();
        return output.contains(line);
    }
    /// The exit code, -1 for a crash or a program that does not end.
    int result()
    {
        const bool ended = state() == NotRunning || waitForFinished(60000);
        said("");
        return ended && exitStatus() == NormalExit ? exitCode() : -1;
    }

    QByteArray output;
};
/// Every file below \a root. Windows has no nameless files, so one that was just being saved when
/// the program was killed stays there, and does not count.
Files::Tree readTree(const QString &root)
{
    static const QRegularExpression unsaved("/(brekka\\.ini|corvane\\.xml)\\.[A-Za-z]{6}$");
    Files::Tree tree = Files::readTree(root);
    if (QSysInfo::kernelType() == "winnt") {
        for (const QString &file : QStringList(tree.keys()).filter(unsaved))
            tree.remove(file);
    }
    return tree;
}
} // namespace

/// The built program as a process, in a folder of its own: what survives a kill, and the roads
/// through its command line.
class tst_Program : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void recoversFromKill_data();
    void recoversFromKill();
    void secondStart_data();
    void secondStart();
    void uninstall_data();
    void uninstall();
    void endsPolitely();

private:
    QVariant stored(const QString &key) const
    {
        return QSettings(m_app + "/brekka.ini", QSettings::IniFormat).value(key);
    }
    bool isInstalled(const QString &version) const;

    QScopedPointer<QTemporaryDir> m_dir;
    QScopedPointer<UpdateServer> m_server;
    QString m_app, m_game, m_program;
    const Files::Tree m_plugin = UpdateServer::samplePlugin();
};

void tst_Program::init()
{
    qunsetenv("TMPDIR");
    m_dir.reset(new QTemporaryDir);
    m_app = m_dir->filePath("app with blanks");
    m_game = m_dir->filePath("游戏");
    m_program = m_app + '/' + QFileInfo(BREKKA_PATH).fileName();
    Files::write(m_game + "/WorldOfTanks.exe", {});
    QVERIFY(QDir().mkpath(m_app) && QDir().mkpath(m_dir->filePath("tmp")));
    for (const char *place : {"TMPDIR", "XDG_RUNTIME_DIR"}) // where the guard leaves its files
        qputenv(place, m_dir->filePath("tmp").toUtf8());
    qputenv("WINEPREFIX", m_app.toUtf8()); // no game is registered there
    QVERIFY(QFile::copy(BREKKA_PATH, m_program));
    m_server.reset(new UpdateServer);
    m_server->publish(m_plugin, "1.2.3");

    QSettings settings(m_app + "/brekka.ini", QSettings::IniFormat);
    settings.setValue("hosts/update", m_server->authority());
    settings.setValue("game", m_game);
    settings.setValue("interval", 1);
}

bool tst_Program::isInstalled(const QString &version) const
{
    Files::Tree expected = m_plugin;
    Files::Tree found = readTree(m_game);
    found.remove("WorldOfTanks.exe");
    // The replay option goes into the plugin's configuration.
    expected.remove("mods/configs/corvane.xml");
    found.remove("mods/configs/corvane.xml");
    return found == expected && stored("lastcheckret").toBool() && stored("pver") == version;
}

void tst_Program::recoversFromKill_data()
{
    QTest::addColumn<QByteArray>("moment"); // the debug line after which the program is killed
    for (const char *line :
         {"OnAutoUpdate start", "plugin start download", "Downloading...", "downloadFinished",
          "unzip OutExtractZipFile", "extract file:", "plugin local files match",
          "\"lastcheckret\" QVariant(bool, true)", "dom saved"})
        QTest::newRow(line) << QByteArray(line);
}

void tst_Program::recoversFromKill()
{
    QFETCH(QByteArray, moment);
    for (int round = 0; round < 2; ++round) {
        Program program(m_program, {"-s"});
        const auto isDue = [&] { return program.said(moment) || isInstalled("1.2.3"); };
        QVERIFY2(QTest::qWaitFor(isDue, 180000), program.output);
        program.kill();
        QVERIFY(program.waitForFinished());
    }
    m_server->publish(m_plugin, "1.2.4");
    Program program(m_program, {"-s"});
    WAIT_FOR(isInstalled("1.2.4"));
    QCOMPARE(program.state(), QProcess::Running);
    QStringList strays = readTree(m_dir->path()).keys().filter("app with blanks/");
    strays.removeAll("app with blanks/" + QFileInfo(m_program).fileName());
    for (const char *ours : {"brekka.ini", "brekka.ini.lock", "plugins/pluginsconfig"})
        strays.removeAll(QString("app with blanks/") + ours);
    QVERIFY2(strays.isEmpty(), qPrintable(strays.join(' ')));
}

void tst_Program::secondStart_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("plain") << QStringList();
    QTest::newRow("-s") << QStringList{"-s"};
    QTest::newRow("-u") << QStringList{"-u"};
}

void tst_Program::secondStart()
{
    QFETCH(QStringList, arguments);
    Program first(m_program, {"-s"});
    WAIT_FOR(isInstalled("1.2.3"));
    Program second(m_program, arguments);
    QCOMPARE(second.result(), 0);
    QVERIFY2(second.said("i am the second process exit") && second.said("App already running."),
             second.output);
    const QByteArray pid = "Primary instance PID:  " + QByteArray::number(first.processId());
    QVERIFY2(second.said(pid), second.output);
    WAIT_FOR(first.said("Active main wnd"));
    WAIT_FOR(isInstalled("1.2.3"));
    QCOMPARE(first.state(), QProcess::Running);
}

void tst_Program::uninstall_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("-u") << QStringList{"-u"};
    QTest::newRow("-u -s") << QStringList{"-u", "-s"};
    QTest::newRow("--uninstall") << QStringList{"--uninstall"};
}

void tst_Program::uninstall()
{
    QFETCH(QStringList, arguments);
    {
        Program program(m_program, {"-s"});
        WAIT_FOR(isInstalled("1.2.3"));
        // The list reaches the file with a deferred write-back.
        WAIT_FOR(stored("plugins/mods/a.pyc").isValid());
    }
    const Files::Tree settings = Files::readTree(m_app);
    for (int round = 0; round < 2; ++round) {
        Program program(m_program, arguments);
        QCOMPARE(program.result(), 0);
        QCOMPARE(Files::readTree(m_game).keys(), QStringList{"WorldOfTanks.exe"});
    }
    QCOMPARE(Files::readTree(m_app), settings);
}

void tst_Program::endsPolitely()
{
    Program program(m_program);
    WAIT_FOR(program.said("OnAutoUpdate start"));
    program.terminate();
    QVERIFY2(program.result() == 0, program.output);
}

int main(int argc, char *argv[])
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    QCoreApplication application(argc, argv);
    tst_Program test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_program.moc"
