#include "FileVersion.h"
#include "Files.h"

#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

static QString versionOf(const QString &path)
{
    return QString::fromStdString(fileVersion(path.toLocal8Bit().toStdString()));
}

class tst_fileversion : public QObject
{
    Q_OBJECT
private slots:
    void reads();
    void survivesDamage();
};

void tst_fileversion::reads()
{
    const QString beside = QCoreApplication::applicationDirPath();
    QCOMPARE(versionOf(beside + "/ver.dll"), BREKKA_VERSION);
    for (const char *other : {"/tst_fileversion", "/missing.dll"})
        QCOMPARE(versionOf(beside + other), "");
    const QString windowsFiles = qEnvironmentVariable("BREKKA_TEST_WINDOWS_FILES");
    if (windowsFiles.isEmpty())
        QSKIP("built without the tests of the Windows sources");
    QCOMPARE(versionOf(windowsFiles + "/versioned.dll"), "1.6.1.1023");
    QCOMPARE(versionOf(windowsFiles + "/plain.dll"), "");
}

/// Cut short at every length, and with every four bytes replaced: nothing is read beyond an end,
/// and no version is made up from what is left.
void tst_fileversion::survivesDamage()
{
    const QByteArray whole = Files::read(QCoreApplication::applicationDirPath() + "/ver.dll");
    const int recordEnd = whole.indexOf(QByteArray("V\0S\0_", 5)) - 6 + 92;
    QVERIFY(recordEnd > 92 && recordEnd <= whole.size());
    const QTemporaryDir dir;
    const QString odd = dir.filePath("odd.dll");
    for (int at = 0; at < recordEnd; ++at) {
        Files::write(odd, whole.left(at));
        QVERIFY2(versionOf(odd).isEmpty(), qPrintable(QString::number(at)));
        for (const char filler : {'\xff', '\x80', '\x00'}) {
            Files::write(odd, QByteArray(whole).replace(at, 4, QByteArray(4, filler)));
            versionOf(odd);
        }
    }
    QVERIFY(QFile::remove(odd));
    QCOMPARE(mkfifo(qPrintable(odd), 0600), 0);
    QCOMPARE(versionOf(odd), "");
}

QTEST_GUILESS_MAIN(tst_fileversion)
#include "tst_fileversion.moc"
