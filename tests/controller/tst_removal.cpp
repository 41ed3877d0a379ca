#include "Files.h"
#include "SettingsProcessor.h"
#include "UnInstallPlugin.h"

#include <QTemporaryDir>
#include <QtTest>

/// What is listed goes, whatever stands beside it in the list, and nothing else.
class tst_Removal : public QObject
{
    Q_OBJECT
private slots:
    void removes()
    {
        QTemporaryDir dir;
        QDir::setCurrent(dir.path());
        for (const char *file :
             {"evil", "game/0", "game/0.brekka-part", "game/a", "game/a.brekka-part",
              "game/missing.brekka-part", "game/mods/deep/b", "game/模型/c"})
            Files::write(file, "x");
        PluginFileList list;
        for (const char *file :
             {"../evil", "a", "missing", "mods", "mods\\deep\\b", "mods/../../evil", "模型/c"})
            list[file] = "1";
        // Without a folder a path would begin at the root of the drive.
        list[dir.filePath("evil").mid(1)] = "1";
        SettingsProcessor store;
        store.WriteSetting("filemd5", QVariant::fromValue(list));
        store.WriteSetting("game", QString());
        UnInstallPlugin().RemovePluginFiles();
        QCOMPARE(Files::readTree(".").size(), 10);

        store.WriteSetting("game", dir.filePath("game"));
        const QByteArray settings = Files::read("brekka.ini");
        UnInstallPlugin().RemovePluginFiles();
        QCOMPARE(Files::readTree(".").keys(), (QStringList{"brekka.ini", "brekka.ini.whole", "evil",
                                                           "game/0", "game/0.brekka-part"}));
        QCOMPARE(Files::read("brekka.ini"), settings);

        // A full disk has emptied the settings, but not their copy.
        Files::write("game/a", "x");
        Files::write("brekka.ini", {});
        UnInstallPlugin().RemovePluginFiles();
        QVERIFY(!QFile::exists("game/a"));
    }
};

QTEST_GUILESS_MAIN(tst_Removal)
#include "tst_removal.moc"
