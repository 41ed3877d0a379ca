#include "UpdateServer.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#ifdef Q_OS_UNIX
#include <csignal>
#endif

// Fails at once when the program ends before.
#define UNTIL(program, condition)                                                                  \
    QVERIFY2((program).meets([&] { return bool(condition); }), (program).output.constData())

namespace
{
/// A running copy of the program and what it says.
struct Program : QProcess {
    Program(const QString &path, const QStringList &arguments)
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
    bool said(const QByteArray &line, int times = 1)
    {
        output += readAll();
        return output.count(line) >= times;
    }
    bool meets(const std::function<bool()> &condition)
    {
        bool met = false;
        // A killed program's lock on its settings lasts thirty seconds where the next process gets
        // its id.
        const auto isOver = [&] { return (met = condition()) || state() == NotRunning; };
        return QTest::qWaitFor(isOver, 120000) && met;
    }
    /// The exit code, -1 for a crash or a program that does not end.
    int result()
    {
        const bool ended = state() == NotRunning || waitForFinished(60000);
        output += readAll();
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

/// The built program as a process, in a folder of its own.
class tst_Program : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void recoversFromKills();
    void livesAndLeaves();
    void closing();

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
    QVERIFY(QFile::copy(QFileInfo(BREKKA_PATH).path() + "/ver.dll", m_app + "/ver.dll"));
    qputenv("QT_QPA_GENERIC_PLUGINS", "observer");
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

void tst_Program::recoversFromKills()
{
    int version = 0;
    // Each debug line, after which the program is killed, belongs to an update of its own, so that
    // none can be over before.
    for (const char *moment :
         {"OnAutoUpdate start", "plugin start download", "Downloading...", "downloadFinished",
          "unzip OutExtractZipFile", "extract file:", "plugin local files match",
          "\"lastcheckret\" QVariant(bool, true)", "dom saved"}) {
        m_server->publish(m_plugin, QString::number(++version));
        Program program(m_program, {"-s"});
        UNTIL(program, program.said(moment));
        program.kill();
        QVERIFY(program.waitForFinished());
    }
    m_server->publish(m_plugin, "1.2.4");
    Program program(m_program, {"-s"});
    UNTIL(program, isInstalled("1.2.4"));
    QCOMPARE(program.state(), QProcess::Running);
    QStringList strays = readTree(m_app).keys();
    for (const QString &ours :
         {QFileInfo(m_program).fileName(), QString("ver.dll"), QString("brekka.ini"),
          QString("brekka.ini.lock"), QString("plugins/pluginsconfig")})
        strays.removeAll(ours);
    QCOMPARE(strays, QStringList());
}

void tst_Program::livesAndLeaves()
{
    Program first(m_program, {"-s"});
    UNTIL(first, isInstalled("1.2.3"));
    // The list reaches the file with a deferred write-back.
    UNTIL(first, stored("plugins/mods/a.pyc").isValid());
    QVERIFY2(first.said("self version: \"" BREKKA_VERSION "\""), first.output);
    QVERIFY2(!first.said("window shown"), first.output);

    int starts = 0;
    for (const char *argument : {"", "-s", "-u"}) {
        Program second(m_program, QString(argument).split(' ', Qt::SkipEmptyParts));
        QCOMPARE(second.result(), 0);
        const QByteArray pid = QByteArray::number(first.processId());
        for (const QByteArray &line :
             {QByteArray("i am the second process exit"), QByteArray("App already running."),
              "Primary instance PID:  " + pid})
            QVERIFY2(second.said(line), second.output);
        ++starts;
        UNTIL(first, first.said("Active main wnd", starts));
    }
    UNTIL(first, first.said("window shown"));
    QVERIFY(isInstalled("1.2.3"));

    first.terminate();
#ifdef Q_OS_UNIX
    // The end of a session sends one signal after the other.
    while (first.state() != QProcess::NotRunning) {
        ::kill(pid_t(first.processId()), SIGHUP);
        first.waitForFinished(1);
    }
#endif
    QVERIFY2(first.result() == 0, first.output);

    const Files::Tree settings = Files::readTree(m_app);
    for (const char *arguments : {"-u", "-u -s", "--uninstall"}) {
        for (auto file = m_plugin.begin(); file != m_plugin.end(); ++file)
            Files::write(m_game + '/' + file.key(), file.value());
        Program program(m_program, QString(arguments).split(' '));
        QCOMPARE(program.result(), 0);
        QVERIFY2(!program.said("window shown"), program.output);
        QCOMPARE(Files::readTree(m_game).keys(), QStringList{"WorldOfTanks.exe"});
    }
    QCOMPARE(Files::readTree(m_app), settings);
}

/// Closed, the window is gone, and the program looks for updates as before.
void tst_Program::closing()
{
    qputenv("QT_QPA_GENERIC_PLUGINS", "observer:close");
    Program program(m_program, {});
    UNTIL(program, program.said("window hidden"));
    const int before = program.output.count("OnAutoUpdate start");
    UNTIL(program, program.said("OnAutoUpdate start", before + 1));
    program.terminate();
    QVERIFY2(program.result() == 0, program.output);
}

int main(int argc, char *argv[])
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    QCoreApplication application(argc, argv);
    const QString plugins = QDir::listSeparator() + qEnvironmentVariable("QT_PLUGIN_PATH");
    qputenv("QT_PLUGIN_PATH", (PLUGIN_PATH + plugins).toUtf8());
    tst_Program test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_program.moc"
