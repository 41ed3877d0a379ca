#include "CTaskSchdMgr.h"
#include "Files.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

class tst_Autostart : public QObject
{
    Q_OBJECT
    QScopedPointer<QTemporaryDir> m_dir;
    CTaskSchdMgr m_scheduler;

    QString path(const QString &name) const { return m_dir->path() + '/' + name; }
    QStringList entries() const { return QDir(path("config/autostart")).entryList(QDir::Files); }

private slots:
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        qputenv("HOME", QFile::encodeName(path("home")));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(path("config")));
        qputenv("PROBE", QFile::encodeName(path("out")));
    }

    void entryStartsProgram_data()
    {
        QTest::addColumn<int>("no data"); // a row's name is the folder
        for (const char *folder :
             {"it's  \"mine\"", "$HOME `id`", "100%f %%u", "a=b", "a\\nb\\\\c\nd", "坦克 世界"})
            QTest::newRow(folder) << 0;
    }

    void entryStartsProgram()
    {
        const QString folder = path(QString::fromUtf8(QTest::currentDataTag()));
        const QString program = folder + "/BrekkaUpdater";
        // Tells its working folder and its arguments, each on a line of its own.
        Files::write(program, "#!/bin/sh\n{ pwd; printf '%s\\n' \"$@\"; } >\"$PROBE.part\"\n"
                              "mkdir \"$PROBE\"; mv \"$PROBE.part\" \"$PROBE/told\"\n");
        QFile::setPermissions(program, QFile::Permissions(0x7755));
        QVERIFY(m_scheduler.CreateTask(L"BrekkaTask", program.toStdWString().c_str(),
                                       folder.toStdWString().c_str(),
                                       L"-s  \"a b\" $HOME %f \\ ;x '"));
        QCOMPARE(entries(), QStringList{"BrekkaTask.desktop"});
        const QString entry = path("config/autostart/BrekkaTask.desktop");
        QCOMPARE(QProcess::execute("desktop-file-validate", {entry}), 0);
        QCOMPARE(QProcess::execute("gio", {"launch", entry}), 0);
        // Another copy's removal, in a folder whose name begins like ours, leaves it.
        QVERIFY(m_scheduler.DeleteTaskOf(L"BrekkaTask", program.chopped(1).toStdWString().c_str()));
        QCOMPARE(entries().size(), 1);
        const QString expected = folder + "\n-s\na b\n$HOME\n%f\n\\\n;x\n'\n";
        QTRY_COMPARE_WITH_TIMEOUT(Files::readTree(path("out")).value("told"), expected.toUtf8(),
                                  30000);
        QVERIFY(m_scheduler.DeleteTaskOf(L"brekkatask", program.toStdWString().c_str()));
        QCOMPARE(entries(), QStringList());
    }

    void registersAndRemoves()
    {
        Files::write(path("config/autostart/Other.desktop"), "another program's");
        QVERIFY(!m_scheduler.DeleteTask(L"BrekkaTask", true));
        QVERIFY(m_scheduler.CreateTask(L"brekkatask", L"/first", L"/", L"-s"));
        // A copy under another case must not start the program a second time.
        Files::write(path("config/autostart/BREKKATASK.desktop"), "copy");
        QVERIFY(m_scheduler.CreateTask(L"BrekkaTask", L"/second", nullptr, nullptr));
        QCOMPARE(entries().size(), 2);
        QCOMPARE(
            Files::read(path("config/autostart/") + entries().constFirst()),
            QByteArray("[Desktop Entry]\nType=Application\nName=BrekkaTask\nExec=\"/second\"\n"));
        QVERIFY(m_scheduler.DeleteTask(L"BrekkaTask", true));
        const Files::Tree others{{"config/autostart/Other.desktop", "another program's"}};
        QCOMPARE(Files::readTree(m_dir->path()), others);

        QVERIFY(!m_scheduler.CreateTask(nullptr, L"/a", nullptr, nullptr));
        QVERIFY(!m_scheduler.CreateTask(L"BrekkaTask", nullptr, nullptr, nullptr));
        QVERIFY(!m_scheduler.CreateTask(L"../up", L"/a", nullptr, nullptr));
        QVERIFY(!m_scheduler.DeleteTask(nullptr, true));
        QVERIFY(!m_scheduler.DeleteTaskOf(nullptr, L"/a"));
        QVERIFY(!m_scheduler.DeleteTaskOf(L"BrekkaTask", nullptr));
        // Nobody can tell whose entry that is.
        const QString entry = path("config/autostart/BrekkaTask.desktop");
        QVERIFY(QFile::link(path("nowhere"), entry));
        QVERIFY(!m_scheduler.DeleteTaskOf(L"BrekkaTask", L"/a"));
        QVERIFY(QFile::remove(entry));
        // A folder can't be replaced, and a file can't hold an entry; no test's rights change that.
        QVERIFY(QDir().mkpath(entry));
        QVERIFY(!m_scheduler.CreateTask(L"BrekkaTask", L"/a", nullptr, nullptr));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(path("config/autostart/Other.desktop")));
        QVERIFY(!m_scheduler.CreateTask(L"BrekkaTask", L"/a", nullptr, nullptr));
        QCOMPARE(Files::readTree(m_dir->path()), others);

        qputenv("XDG_CONFIG_HOME", "relative");
        QVERIFY(m_scheduler.CreateTask(L"BrekkaTask", L"/a", nullptr, nullptr));
        QVERIFY(QFile::exists(path("home/.config/autostart/BrekkaTask.desktop")));
    }
};

QTEST_GUILESS_MAIN(tst_Autostart)
#include "tst_autostart.moc"
