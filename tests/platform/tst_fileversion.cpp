#include "FileVersion.h"
#include "Files.h"

#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

namespace
{

QString versionOf(const QString &path)
{
    return QString::fromStdString(fileVersion(path.toLocal8Bit().toStdString()));
}

} // namespace

class tst_fileversion : public QObject
{
    Q_OBJECT

private slots:
    void reads_data();
    void reads();
    void survivesDamage();
};

void tst_fileversion::reads_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("version");
    const QString beside = QCoreApplication::applicationDirPath();
    QTest::newRow("our own") << beside + "/ver.dll" << BREKKA_VERSION;
    QTest::newRow("no executable of that system") << beside + "/tst_fileversion"
                                                  << "";
    QTest::newRow("missing") << beside + "/missing.dll"
                             << "";
    QTest::newRow("folder") << beside << "";
    const QString windowsFiles = qEnvironmentVariable("BREKKA_TEST_WINDOWS_FILES");
    if (windowsFiles.isEmpty())
        return;
    QTest::newRow("resource compiler's") << windowsFiles + "/versioned.dll"
                                         << "1.6.1.1023";
    QTest::newRow("without resources") << windowsFiles + "/plain.dll"
                                       << "";
}

void tst_fileversion::reads()
{
    QFETCH(QString, file);
    QFETCH(QString, version);
    QCOMPARE(versionOf(file), version);
}

/// Cut short at every length, and with every four bytes replaced: nothing is read beyond an end,
/// and no version is made up from what is left.
void tst_fileversion::survivesDamage()
{
    const QByteArray whole = Files::read(QCoreApplication::applicationDirPath() + "/ver.dll");
    const int used = whole.indexOf(QByteArray("V\0S\0_", 5)) - 6 + 92;
    QVERIFY(used > 92 && used <= whole.size());
    const QTemporaryDir dir;
    const QString file = dir.path() + "/odd.dll";
    for (int length = 0; length < used - 36; ++length) {
        Files::write(file, whole.left(length));
        QVERIFY2(versionOf(file).isEmpty(), qPrintable(QString::number(length)));
    }
    for (const char filler : {'\xff', '\x80', '\x00'}) {
        for (int at = 0; at < used; ++at) {
            Files::write(file, QByteArray(whole).replace(at, 4, QByteArray(4, filler)));
            versionOf(file);
        }
    }
    QCOMPARE(mkfifo(qPrintable(dir.path() + "/pipe"), 0600), 0);
    QCOMPARE(versionOf(dir.path() + "/pipe"), QString());
}

QTEST_GUILESS_MAIN(tst_fileversion)
#include "tst_fileversion.moc"
