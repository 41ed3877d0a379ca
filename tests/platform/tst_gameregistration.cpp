#include "Files.h"
#include "GameRegistration.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

namespace
{
constexpr char Header[] = "WINE REGISTRY Version 2\n;; All keys relative to somewhere\n\n";
constexpr char Key[] =
    R"(Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\WOT.CN.PRODUCTION)";

QVariant location()
{
    return GameRegistration().installLocation();
}
} // namespace

class tst_GameRegistration : public QObject
{
    Q_OBJECT
    QScopedPointer<QTemporaryDir> m_dir;

    QString path(const QString &name) const { return m_dir->path() + '/' + name; }

private slots:
    void init();
    void reads_data();
    void reads();
    void survivesOddFiles();
    void readsWhatWineWrote();
};

void tst_GameRegistration::init()
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

void tst_GameRegistration::reads_data()
{
    QTest::addColumn<QByteArray>("lines"); // of the key
    // Null when not registered; below the test's folder: "~".
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const char *value, const QString &expected = {}) {
        QTest::newRow(name) << "\"installLocation\"=" + QByteArray(value) << expected;
    };
    row("last separator", R"("C:\\Games\\")", "~/.wine/drive_c/Games/");
    row("slashes, other case", R"("c:/GAMES/tank/New")", "~/.wine/drive_c/Games/Tank/New");
    row("escaped letters", R"("E:\\\x5766\x514b\x4e16a\xe9z")", "~/other/坦克世aéz");
    row("other escapes", R"("E:\\\"\t\e\0011\[")", "~/other/\"\t\x1b\0011[");
    row("text after the end", R"("E:\\a\0b")", "~/other/a");
    row("root drive", R"("Z:\\no such\\dir")", "/no such/dir");
    row("variables", R"(str(2):"E:\\a")", "~/other/a");
    row("number", "dword:00000001");
    row("unknown drive", R"("Q:\\Games")");
    row("cut in an escape", R"("C:\)");
    QTest::newRow("another value's, another key's")
        << QByteArray(R"("Other"="C:\\")") + "\n[Other]\n" + R"("InstallLocation"="C:\\")"
        << QString();
}

void tst_GameRegistration::reads()
{
    QFETCH(QByteArray, lines);
    QFETCH(QString, expected);
    QVERIFY(location().isNull());
    const QByteArray text =
        QByteArray(Header) + "[Software\\\\Before] 1\n\"InstallLocation\"=\"C:\\\\wrong\"\n\n[" +
        QByteArray(Key).toUpper() + "] 1795389218\n#time=1dd7ad71b44d882\n" + lines;
    Files::write(path(".wine/user.reg"), text);
    QCOMPARE(location().isNull(), expected.isNull());
    QCOMPARE(location().toString(), expected.replace("~", m_dir->path()));
    // A registry that says it is something else is not trusted to be one.
    Files::write(path(".wine/user.reg"), "x" + text);
    QVERIFY(location().isNull());
}

void tst_GameRegistration::survivesOddFiles()
{
    const QString file = path(".wine/user.reg");
    Files::write(file,
                 QByteArray(Header) + '[' + Key + "] 1\n\"InstallLocation\"=\"C:\\\\Games\"\n");
    QVERIFY(!location().isNull());
    QVERIFY(QFile::resize(file, qint64(1) << 36)); // all of it a hole
    QVERIFY(location().isNull());
    QVERIFY(QFile::remove(file));
    QCOMPARE(mkfifo(QFile::encodeName(file), 0600), 0);
    QVERIFY(location().isNull());
}

void tst_GameRegistration::readsWhatWineWrote()
{
    const QByteArray prefix = qgetenv("BREKKA_TEST_WINEPREFIX");
    if (prefix.isEmpty())
        return QTest::qSkip("built without the tests that need Wine", __FILE__, __LINE__);
    qputenv("WINEPREFIX", prefix);
    const QString key = "HKCU\\" + QString(Key).replace("\\\\", "\\");
    const QString folder = "C:\\游戏a\\It's \"50%\"\\";
    const QStringList add{"reg", "add", key, "/v", "InstallLocation", "/d", folder, "/f"};
    QCOMPARE(QProcess::execute("wine", add), 0);
    // The registry is written out at the latest when the last program of the prefix has ended.
    QProcess::execute("wineserver", {"-k"});
    QCOMPARE(QProcess::execute("wineserver", {"-w"}), 0);
    QCOMPARE(location().toString(), QDir(prefix).canonicalPath() + "/drive_c/游戏a/It's \"50%\"/");
}

QTEST_GUILESS_MAIN(tst_GameRegistration)
#include "tst_gameregistration.moc"
