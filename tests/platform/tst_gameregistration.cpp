#include "Files.h"
#include "GameRegistration.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

namespace
{

const char key[] =
    "Software\\\\Microsoft\\\\Windows\\\\CurrentVersion\\\\Uninstall\\\\WOT.CN.PRODUCTION";

int runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments);
    return process.waitForFinished(120000) ? process.exitCode() : -1;
}

} // namespace

class tst_gameregistration : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void reads_data();
    void reads();
    void survivesOddFiles();
    void readsWhatWineWrote();

private:
    QString path(const QString &name) const { return m_dir->path() + '/' + name; }

    QScopedPointer<QTemporaryDir> m_dir;
};

void tst_gameregistration::init()
{
    m_dir.reset(new QTemporaryDir);
    qunsetenv("WINEPREFIX");
    qputenv("HOME", QFile::encodeName(m_dir->path()));
    Files::write(path(".wine/drive_c/Games/Tank/game.exe"), "");
    Files::write(path("other/x"), "");
    QVERIFY(QDir().mkpath(path(".wine/dosdevices")));
    QVERIFY(QFile::link("../drive_c", path(".wine/dosdevices/c:")));
    QVERIFY(QFile::link(path("other"), path(".wine/dosdevices/e:")));
    QVERIFY(QFile::link("/", path(".wine/dosdevices/z:")));
}

void tst_gameregistration::reads_data()
{
    QTest::addColumn<QByteArray>("lines"); // of the key, empty when there is no key
    QTest::addColumn<QString>("expected"); // null when not registered; below the test's folder: "~"
    const auto value = [](const char *text) {
        return QByteArray("\"InstallLocation\"=\"") + text + "\"\n";
    };
    const QString none;
    QTest::newRow("no key") << QByteArray() << none;
    QTest::newRow("other value") << QByteArray("\"Other\"=\"C:\\\\Games\"\n") << none;
    QTest::newRow("last separator") << value("C:\\\\Games\\\\") << "~/.wine/drive_c/Games/";
    QTest::newRow("slashes, other case")
        << value("c:/GAMES/tank/New") << "~/.wine/drive_c/Games/Tank/New";
    QTest::newRow("chinese") << value("E:\\\\\\x5766\\x514b\\x4e16\\x754c")
                             << QString::fromUtf8("~/other/坦克世界");
    QTest::newRow("letter after an escape")
        << value("E:\\\\\\x5766a\\xe9z") << QString::fromUtf8("~/other/坦aéz");
    QTest::newRow("other escapes")
        << value("E:\\\\\\\"\\t\\e\\0011\\[") << QString::fromUtf8("~/other/\"\t\x1b\0011[");
    QTest::newRow("text after the end") << value("E:\\\\a\\0b") << "~/other/a";
    QTest::newRow("root drive") << value("Z:\\\\no such\\\\dir") << "/no such/dir";
    QTest::newRow("variables") << QByteArray("\"installlocation\"=str(2):\"E:\\\\a\"\n")
                               << "~/other/a";
    QTest::newRow("number") << QByteArray("\"InstallLocation\"=dword:00000001\n") << none;
    QTest::newRow("unknown drive") << value("Q:\\\\Games") << none;
    QTest::newRow("cut short") << QByteArray("\"InstallLocation\"=\"C:\\\\Ga") << none;
    QTest::newRow("cut in an escape") << QByteArray("\"InstallLocation\"=\"C:\\") << none;
    QTest::newRow("another key's") << "\n[Software\\\\Other]\n" + value("C:\\\\Games") << none;
}

void tst_gameregistration::reads()
{
    QFETCH(QByteArray, lines);
    QFETCH(QString, expected);
    QByteArray text = "WINE REGISTRY Version 2\n;; All keys relative to somewhere\n\n"
                      "[Software\\\\Before] 1\n\"InstallLocation\"=\"C:\\\\wrong\"\n\n";
    if (!lines.isEmpty())
        text += '[' + QByteArray(key).toUpper() + "] 1795389218\n#time=1dd7ad71b44d882\n" + lines;
    Files::write(path(".wine/user.reg"), text);
    const QVariant location = GameRegistration().installLocation();
    QCOMPARE(location.isNull(), expected.isNull());
    QCOMPARE(location.toString(), expected.replace("~", m_dir->path()));

    // A registry that says it is something else is not trusted to be one.
    Files::write(path(".wine/user.reg"), "x" + text);
    QVERIFY(GameRegistration().installLocation().isNull());
}

void tst_gameregistration::survivesOddFiles()
{
    const QString file = path(".wine/user.reg");
    const GameRegistration registration;
    QVERIFY(registration.installLocation().isNull());

    const QByteArray start =
        QByteArray("WINE REGISTRY Version 2\n[") + key + "] 1\n\"InstallLocation\"=\"C:";
    Files::write(file, start + QByteArray(10 * 1024 * 1024, '\\'));
    QVERIFY(registration.installLocation().isNull());
    Files::write(file, start + "\\\\Games\"\n");
    QVERIFY(!registration.installLocation().isNull());
    QVERIFY(QFile::resize(file, qint64(1) << 36)); // all of it a hole
    QVERIFY(registration.installLocation().isNull());

    QVERIFY(QFile::remove(file));
    QCOMPARE(mkfifo(QFile::encodeName(file), 0600), 0);
    QVERIFY(registration.installLocation().isNull());
}

void tst_gameregistration::readsWhatWineWrote()
{
    const QByteArray prefix = qgetenv("BREKKA_TEST_WINEPREFIX");
    if (prefix.isEmpty())
        QSKIP("built without the tests that need Wine");
    const QString name = QString(key).replace("\\\\", "\\").prepend("HKCU\\");
    const QString folder = QString::fromUtf8("C:\\游戏a\\It's \"50%\"\\");
    qputenv("WINEPREFIX", prefix);
    QCOMPARE(runTool("wine", {"reg", "add", name, "/v", "InstallLocation", "/d", folder, "/f"}), 0);
    // The registry is written out at the latest when the last program of the prefix has ended.
    runTool("wineserver", {"-k"});
    QCOMPARE(runTool("wineserver", {"-w"}), 0);
    QCOMPARE(GameRegistration().installLocation().toString(),
             QDir(prefix).canonicalPath() + QString::fromUtf8("/drive_c/游戏a/It's \"50%\"/"));
}

QTEST_GUILESS_MAIN(tst_gameregistration)
#include "tst_gameregistration.moc"
