#include "UpdateServer.h"

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
    Program(const QString &path, const QString &arguments, const QString &folder = {})
    {
        setProcessChannelMode(MergedChannels);
        setWorkingDirectory(folder.isEmpty() ? QFileInfo(path).path() : folder);
        start(path, arguments.split(' ', Qt::SkipEmptyParts));
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
        const QStringList files = tree.keys();
        for (const QString &file : files) {
            if (unsaved.match(file).hasMatch())
                tree.remove(file);
        }
    }
    return tree;
}
} // namespace

/// The built program as a process, in a folder of its own.
class tst_Program : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void recoversFromKills();
    void livesAndLeaves();
#ifdef Q_OS_LINUX
    void namesUnwritableFolder();
#endif

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

void tst_Program::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    const QString ours = QFileInfo(PLUGIN_PATH).canonicalFilePath(); // under Wine with a drive
    const QString others = QDir::listSeparator() + qEnvironmentVariable("QT_PLUGIN_PATH");
    qputenv("QT_PLUGIN_PATH", (ours + others).toUtf8());
}

void tst_Program::init()
{
    qunsetenv("TMPDIR");
    m_dir.reset(new QTemporaryDir);
    for (const char *place : {"TMPDIR", "XDG_RUNTIME_DIR"}) // where the guard leaves its files
        qputenv(place, m_dir->path().toUtf8());
    m_app = m_dir->filePath("app with blanks");
    m_game = m_dir->filePath("游戏");
    m_program = m_app + '/' + QFileInfo(BREKKA_PATH).fileName();
    qputenv("WINEPREFIX", m_app.toUtf8()); // no game is registered there
    Files::write(m_game + "/WorldOfTanks.exe", {});
    QVERIFY(QDir().mkpath(m_app) && QFile::copy(BREKKA_PATH, m_program));
    QVERIFY(QFile::copy(QFileInfo(BREKKA_PATH).path() + "/ver.dll", m_app + "/ver.dll"));
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
    qputenv("QT_QPA_GENERIC_PLUGINS", "observer");
    int version = 0;
    // Each debug line, after which the program is killed, belongs to an update of its own, so that
    // none can be over before.
    for (const char *moment :
         {"OnAutoUpdate start", "plugin start download", "Downloading...", "downloadFinished",
          "unzip OutExtractZipFile", "extract file:", "plugin local files match",
          "\"lastcheckret\" QVariant(bool, true)", "dom saved"}) {
        m_server->publish(m_plugin, QString::number(++version));
        Program program(m_program, "-s");
        UNTIL(program, program.said(moment));
        program.kill();
        QVERIFY(program.waitForFinished());
    }
    m_server->publish(m_plugin, "1.2.4");
    Program program(m_program, "");
    UNTIL(program, isInstalled("1.2.4"));
    QVERIFY2(program.said("window shown"), program.output);
    QStringList files = readTree(m_app).keys();
    files.removeAll("brekka.ini.lock"); // a killed program's may be there yet
    QCOMPARE(files, (QStringList{QFileInfo(m_program).fileName(), "brekka.ini",
                                 "plugins/pluginsconfig", "ver.dll"}));
}

void tst_Program::livesAndLeaves()
{
    qputenv("QT_QPA_GENERIC_PLUGINS", "observer:hide");
    Program first(m_program, "-s");
    UNTIL(first, isInstalled("1.2.3"));
    // The list reaches the file with a deferred write-back.
    UNTIL(first, stored("plugins/mods/a.pyc").isValid());
    QVERIFY2(first.said("self version: \"" BREKKA_VERSION "\""), first.output);
    QVERIFY2(!first.said("window shown"), first.output);

    const QByteArray pid = "Primary instance PID:  " + QByteArray::number(first.processId());
    int starts = 0;
    for (const char *argument : {"", "-s", "-u"}) {
        Program second(m_program, argument);
        QCOMPARE(second.result(), 0);
        for (const char *line :
             {"i am the second process exit", "App already running.", pid.constData()})
            QVERIFY2(second.said(line), second.output);
        ++starts;
        UNTIL(first, first.said("Active main wnd", starts));
        UNTIL(first, first.said("toast gone", starts));
    }
    QVERIFY(isInstalled("1.2.3"));
    const int checks = first.output.count("OnAutoUpdate start");
    UNTIL(first, first.said("OnAutoUpdate start", checks + 2));

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
        Program program(m_program, arguments);
        QCOMPARE(program.result(), 0);
        QVERIFY2(!program.said("window shown"), program.output);
        QCOMPARE(Files::readTree(m_game).keys(), QStringList{"WorldOfTanks.exe"});
    }
    QCOMPARE(Files::readTree(m_app), settings);
}

#ifdef Q_OS_LINUX
void tst_Program::namesUnwritableFolder()
{
    // Nobody, not even root, can make files there.
    Program program(m_program, "", "/proc");
    UNTIL(program, program.said("box QVariant(QString, \"<div>无法写入文件夹 /proc</div>"));
    QVERIFY2(program.said("can't write to the folder \"/proc\""), program.output);
}
#endif

QTEST_GUILESS_MAIN(tst_Program)
#include "tst_program.moc"
