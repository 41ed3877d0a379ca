#include "ApplicationSettings.h"
#include "Files.h"
#include "MainController.h"

#include <QCoreApplication>
#include <QDir>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

/// One case a process, since the controller is.
class tst_ControllerExit : public QObject
{
    Q_OBJECT
private slots:
    /// What was set is in the file after the end, also when it still had to wait for a long check.
    void keepsSettings()
    {
        QTemporaryDir dir;
        QDir::setCurrent(dir.path());
        Files::write("large", QByteArray(50 << 20, 'x'));
        const PluginFileList list{{"mods/a.pyc", "1"}};
        {
            int argc = 1;
            char name[] = "test", *argv[] = {name, nullptr};
            QCoreApplication application(argc, argv);
            MainController *controller = MainController::instance();
            controller->StartCheckFileMd5(QString(), "large");
            controller->WriteSetting(ApplicationSettings::KeyGame, "folder");
            controller->WriteSetting(ApplicationSettings::KeyFilesMd5, QVariant::fromValue(list));
        }
        const QSettings file(ApplicationSettings::FileName, QSettings::IniFormat);
        QCOMPARE(file.value(ApplicationSettings::KeyGame).toString(), QString("folder"));
        QCOMPARE(file.value("plugins/mods/a.pyc").toString(), QString("1"));
        QDir::setCurrent(QDir::rootPath());
    }
};

QTEST_APPLESS_MAIN(tst_ControllerExit)
#include "tst_controllerexit.moc"
