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
    QCOMPARE(versionOf(beside + "/ver.dll"), QString(BREKKA_VERSION));
    QCOMPARE(versionOf(beside + "/tst_fileversion"), QString());
    QCOMPARE(versionOf(beside + "/missing.dll"), QString());
    const QString windowsFiles = qEnvironmentVariable("BREKKA_TEST_WINDOWS_FILES");
    if (windowsFiles.isEmpty())
        QSKIP("built without the tests of the Windows sources");
    QCOMPARE(versionOf(windowsFiles + "/versioned.dll"), QString("1.6.1.1023"));
    QCOMPARE(versionOf(windowsFiles + "/plain.dll"), QString());
}

/// Cut short at every length, and with every four bytes replaced: nothing is read beyond an end,
/// and no version is made up from what is left.
void tst_fileversion::survivesDamage()
{
    const QByteArray whole = Files::read(QCoreApplication::applicationDirPath() + "/ver.dll");
    const int recordEnd = whole.indexOf(QByteArray("V\0S\0_", 5)) - 6 + 92;
    QVERIFY(recordEnd > 92 && recordEnd <= whole.size());
    const QTemporaryDir dir;
    for (int at = 0; at < recordEnd; ++at) {
        Files::write(dir.path() + "/odd.dll", whole.left(at));
        QVERIFY2(versionOf(dir.path() + "/odd.dll").isEmpty(), qPrintable(QString::number(at)));
        for (const char filler : {'\xff', '\x80', '\x00'}) {
            Files::write(dir.path() + "/odd.dll",
                         QByteArray(whole).replace(at, 4, QByteArray(4, filler)));
            versionOf(dir.path() + "/odd.dll");
        }
    }
    QCOMPARE(mkfifo(qPrintable(dir.path() + "/pipe"), 0600), 0);
    QCOMPARE(versionOf(dir.path() + "/pipe"), QString());
}

QTEST_GUILESS_MAIN(tst_fileversion)
#include "tst_fileversion.moc"
