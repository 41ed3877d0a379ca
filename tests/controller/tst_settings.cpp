#include "ApplicationSettings.h"
#include "Files.h"
#include "SettingsProcessor.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

class tst_Settings : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void firstStart();
    void interval_data();
    void interval();
    void fileList();

private:
    static ApplicationSettings::settings load()
    {
        SettingsProcessor store;
        QSignalSpy ready(&store, &SettingsProcessor::SettingReady);
        store.RefreshSettings();
        return ready.value(0).value(0).value<ApplicationSettings::settings>();
    }

    QScopedPointer<QTemporaryDir> m_dir;
};

void tst_Settings::init()
{
    m_dir.reset(new QTemporaryDir);
    QDir::setCurrent(m_dir->path());
}

void tst_Settings::firstStart()
{
    const ApplicationSettings::settings record = load();
    QVERIFY(record.game.isEmpty() && record.pver.isEmpty() && record.plugins.isEmpty());
    QCOMPARE(record.interval, 300);
    QVERIFY(record.pluginloaderplayopen && !record.autorun && !record.lastcheckret);
    const QByteArray file = Files::read("brekka.ini"); // the store is gone, so all is written
    QVERIFY2(file.contains("interval=300") && file.contains("pluginloaderplayopen=true"), file);
}

void tst_Settings::interval_data()
{
    QTest::addColumn<int>("read");
    QTest::newRow("0") << 300;
    QTest::newRow("soon") << 300;
    QTest::newRow("7") << 7;
}

void tst_Settings::interval()
{
    QFETCH(int, read);
    Files::write("brekka.ini", QByteArray("[General]\ninterval=") + QTest::currentDataTag() + '\n');
    QCOMPARE(load().interval, read);
    QVERIFY(Files::read("brekka.ini").contains("interval=" + QByteArray::number(read)));
}

void tst_Settings::fileList()
{
    const PluginFileList first{{"mods\\a.pyc", "1"}, {"mods/模型.pyc", "2"}};
    {
        SettingsProcessor store;
        QSignalSpy changed(&store, &SettingsProcessor::SettingChanged);
        store.WriteSetting("filemd5", QVariant::fromValue(PluginFileList()));
        store.WriteSetting("filemd5", 7);
        QCOMPARE(changed.count(), 0);
        store.WriteSetting("filemd5", QVariant::fromValue(first));
        QCOMPARE(changed.value(0).value(1).value<PluginFileList>(), first);
        store.WriteSetting("filemd5", QVariant::fromValue(PluginFileList{{"c", "3"}}));
        store.WriteSetting("FileMd5", "an ordinary key");
    }
    const PluginFileList expected{{"mods\\\\a.pyc", "1"}, {"mods/模型.pyc", "2"}, {"c", "3"}};
    QCOMPARE(load().plugins, expected);
    QVERIFY(Files::read("brekka.ini").contains("FileMd5=an ordinary key"));
}

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"
