#include "FileVersion.h"
#include "Files.h"

#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

class tst_FileVersion : public QObject
{
    Q_OBJECT
private slots:
    void reads();
};

void tst_FileVersion::reads()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("坦克.dll");
    const auto version = [&path] {
        return QString::fromStdString(fileVersion(path.toUtf8().toStdString()));
    };
    QCOMPARE(version(), "");
    const char *contents[][2] = {
        {"1.6.1.1023\n", "1.6.1.1023"}, {"1.6.1.1023\r\nmore", "1.6.1.1023"},
        {"1.6.1.1023 beta\n", ""},      {"1.6.1\n", ""},
        {"1.6.1.102345\n", ""},         {"\n1.6.1.1023\n", ""}};
    for (const auto &[content, expected] : contents) {
        Files::write(path, content);
        QCOMPARE(version(), expected);
    }
    Files::write(path, QByteArray(1000, ' ') + "1.6.1.1023\n");
    QCOMPARE(version(), "");
    QVERIFY(QFile::remove(path));
    QCOMPARE(mkfifo(QFile::encodeName(path), 0600), 0);
    QCOMPARE(version(), "");
}

QTEST_GUILESS_MAIN(tst_FileVersion)
#include "tst_fileversion.moc"
