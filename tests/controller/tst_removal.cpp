#include "Files.h"
#include "UnInstallPlugin.h"

#include <QTemporaryDir>
#include <QtTest>

class tst_Removal : public QObject
{
    Q_OBJECT
private slots:
    void removes_data();
    void removes();
};

void tst_Removal::removes_data()
{
    QTest::addColumn<QByteArray>("keys"); // of the group, GAME stands for the game folder
    QTest::addColumn<QString>("game");
    QTest::addColumn<QStringList>("left");
    const QStringList all{"evil", "game/a", "game/mods/deep/b", "game/mods/\u6a21.pyc"};

    QTest::newRow("listed ones, missing ones skipped")
        << QByteArray("a=1\nmods\\deep\\b=2\nmissing=3\nmods\\%U6A21.pyc=4\n") << QString("GAME")
        << QStringList{"evil"};
    QTest::newRow("backslashes in keys")
        << QByteArray("mods%5C%5Cdeep%5C%5Cb=2\n") << QString("GAME")
        << QStringList{"evil", "game/a", "game/mods/\u6a21.pyc"};
    QTest::newRow("a folder goes on with the next")
        << QByteArray("a=1\nmods=2\nmods\\deep\\b=3\n") << QString("GAME")
        << QStringList{"evil", "game/mods/\u6a21.pyc"};
    QTest::newRow("climbs") << QByteArray("..\\evil=1\nmods\\..\\..\\evil=1\n") << QString("GAME")
                            << all;
    QTest::newRow("no game folder") << QByteArray("a=1\n") << QString() << all;
    QTest::newRow("nothing listed") << QByteArray() << QString("GAME") << all;
}

void tst_Removal::removes()
{
    QFETCH(QByteArray, keys);
    QFETCH(QString, game);
    QFETCH(QStringList, left);
    QTemporaryDir dir;
    QDir::setCurrent(dir.path());
    const QString root = dir.filePath("root");
    for (const char *file : {"evil", "game/a", "game/mods/deep/b", "game/mods/\u6a21.pyc"})
        Files::write(root + '/' + QString::fromUtf8(file), "x");
    QSettings("brekka.ini", QSettings::IniFormat)
        .setValue("game", game.replace("GAME", root + "/game"));
    const QByteArray settings = Files::read("brekka.ini") + "\n[plugins]\n" + keys;
    Files::write("brekka.ini", settings);

    for (int run = 0; run < 2; ++run) {
        UnInstallPlugin().RemovePluginFiles();
        QCOMPARE(Files::readTree(root).keys(), left);
    }
    QCOMPARE(Files::read("brekka.ini"), settings);
}

QTEST_GUILESS_MAIN(tst_Removal)
#include "tst_removal.moc"
