#include "ApplicationSettings.h"
#include "Files.h"
#include "SettingsFile.h"
#include "SettingsProcessor.h"
#include "SmallDisk.h"

#include <QLockFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <optional>

class tst_Settings : public QObject
{
    Q_OBJECT
    QScopedPointer<QTemporaryDir> m_dir;

    static ApplicationSettings::settings load(SettingsProcessor &store)
    {
        QSignalSpy ready(&store, &SettingsProcessor::SettingReady);
        store.RefreshSettings();
        return ready.value(0).value(0).value<ApplicationSettings::settings>();
    }

private slots:
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QDir::setCurrent(m_dir->path());
    }

    void firstStart()
    {
        auto store = std::make_unique<SettingsProcessor>();
        const auto record = load(*store);
        store.reset();
        QVERIFY(record.game.isEmpty() && record.pver.isEmpty() && record.plugins.isEmpty());
        QCOMPARE(record.interval, 300);
        QVERIFY(record.pluginloaderplayopen && !record.autorun && !record.lastcheckret);
        const QByteArray file = Files::read("brekka.ini");
        QVERIFY2(file.contains("interval=300") && file.contains("pluginloaderplayopen=true"), file);
    }

    /// Each value comes from its own key, as it stands in the file when it is asked for.
    void loads()
    {
        SettingsProcessor store;
        Files::write("brekka.ini", "[General]\ngame=a\npver=b\nupdatedate=c\n"
                                   "PluginSupportGameVersion=d\npackagecheck=e\nautorun=true\n"
                                   "pluginloaderplayopen=false\ninterval=7\n"
                                   "manifestserials=f:1 0:2\nneedssignature2=true\n");
        const auto record = load(store);
        QCOMPARE((QStringList{record.game, record.pver, record.updatedate,
                              record.PluginSupportGameVersion, record.packagecheck,
                              record.manifestserials}),
                 (QStringList{"a", "b", "c", "d", "e", "f:1 0:2"}));
        QVERIFY(record.needssignature2);
        QVERIFY(record.autorun && !record.lastcheckret && !record.pluginloaderplayopen);
        QCOMPARE(record.interval, 7);
        {
            SettingsProcessor idle;
            load(idle);
        }
        QCOMPARE(Files::readTree(".").size(), 1);
        // A single setting is on the disk at once.
        store.WriteSetting("game", "new");
        const QByteArray file = Files::read("brekka.ini").replace("\r", "");
        QVERIFY2(file.contains("game=new\n") && file.contains("interval=7\n"), file);
    }

    /// On a full disk a value holds for this run, the file stays, and the user is told once.
    void fullDisk()
    {
#ifdef Q_OS_UNIX
        const QByteArray before = "[General]\npver=" + QByteArray(2500, 'x') + "\n";
        for (const bool isFullAtExit : {true, false}) {
            m_dir.reset(new QTemporaryDir);
            QDir::setCurrent(m_dir->path());
            Files::write("brekka.ini", before);
            auto store = std::make_unique<SettingsProcessor>();
            QSignalSpy told(store.get(), &SettingsProcessor::SettingsNotSaved);
            QSignalSpy changed(store.get(), &SettingsProcessor::SettingChanged);
            {
                const SmallDisk disk;
                load(*store);
                QCoreApplication::sendPostedEvents(); // the deferred write-back
                store->WriteSetting("game", "new");
                QCOMPARE(load(*store).game, QString("new"));
                QCOMPARE(QPair(told.count(), changed.count()), QPair(1, 1));
                if (isFullAtExit)
                    store.reset();
                QCOMPARE(Files::readTree(".").values(), QList<QByteArray>{before});
            }
            if (isFullAtExit)
                continue;
            store->WriteSetting("autorun", true);
            QVERIFY(Files::read("brekka.ini").contains("game=new"));
            store->WriteSetting("filemd5", QVariant::fromValue(PluginFileList{{"c", "3"}}));
            QCoreApplication::sendPostedEvents();
            QVERIFY(Files::read("brekka.ini").contains("c=3"));
            const SmallDisk disk;
            store->WriteSetting("game", "newer");
            QCOMPARE(told.count(), 2);
            store.reset();
            QVERIFY(Files::read("brekka.ini").contains("game=new"));
        }
#endif
    }

    /// The disk fills up after the space was tried, while QSettings waits for its lock.
    void fillsUpMeanwhile()
    {
#ifdef Q_OS_UNIX
        for (const int size : {0, 1000, 2500}) {
            m_dir.reset(new QTemporaryDir);
            QDir::setCurrent(m_dir->path());
            const QByteArray before = "[General]\npver=" + QByteArray(size, 'x') + "\n";
            if (size > 0)
                Files::write("brekka.ini", before);
            SettingsProcessor store;
            QSignalSpy told(&store, &SettingsProcessor::SettingsNotSaved);
            std::optional<SmallDisk> disk;
            QLockFile lock("brekka.ini.lock");
            QVERIFY(lock.lock());
            const QScopedPointer<QThread> filler(QThread::create([&] {
                QThread::msleep(300);
                disk.emplace();
                lock.unlock();
            }));
            filler->start();
            store.WriteSetting("game", QString(2100, 'y'));
            filler->wait();
            // What can't be put back is left empty beside its copy.
            const QList<QByteArray> ini{size > 2000 ? QByteArray() : before};
            QCOMPARE(Files::readTree(".").values(),
                     size > 0 ? ini + QList<QByteArray>{before} : QList<QByteArray>());
            QCOMPARE(load(store).game.size(), 2100);
            QCOMPARE(told.count(), 1);
            disk.reset();
            store.WriteSetting("autorun", true);
            const QByteArray after = Files::read("brekka.ini");
            QVERIFY(after.contains("yyy") && after.contains("xxx") == (size > 0));
        }
#endif
    }

    void emptied()
    {
        SettingsProcessor().WriteSetting("game", "kept");
        QCOMPARE(Files::read("brekka.ini.whole"), Files::read("brekka.ini"));
        Files::write("brekka.ini", {});
        QVERIFY(SettingsFile::readable() != "brekka.ini");
        {
            SettingsProcessor store;
            QCOMPARE(load(store).game, QString("kept"));
        }
        QVERIFY(Files::read("brekka.ini").contains("game=kept"));
        QFile::remove("brekka.ini");
        SettingsProcessor store;
        QCOMPARE(load(store).game, QString());
    }

    void fileList()
    {
        const PluginFileList first{{"mods\\a.pyc", "1"}, {"mods/模型.pyc", "2"}};
        {
            SettingsProcessor store;
            QSignalSpy changed(&store, &SettingsProcessor::SettingChanged);
            store.WriteSetting("filemd5", 7);
            QCOMPARE(changed.count(), 0);
            store.WriteSetting("filemd5", QVariant::fromValue(first));
            QCOMPARE(changed.value(0).value(1).value<PluginFileList>(), first);
            store.WriteSetting("filemd5", QVariant::fromValue(PluginFileList{{"c", "3"}}));
            store.WriteSetting("FileMd5", "an ordinary key");
        }
        const PluginFileList expected{{"mods\\\\a.pyc", "1"}, {"mods/模型.pyc", "2"}, {"c", "3"}};
        SettingsProcessor store;
        QCOMPARE(load(store).plugins, expected);
        QVERIFY(Files::read("brekka.ini").contains("FileMd5=an ordinary key"));
    }
};

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"
