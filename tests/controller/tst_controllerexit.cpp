#include "ApplicationSettings.h"
#include "Files.h"
#include "MainController.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

/// What was set is in the file at the end, also when it still had to wait for a long check.
class tst_ControllerExit : public QObject
{
    Q_OBJECT
private slots:
    void keepsSettings_data()
    {
        QTest::addColumn<bool>("sessionEnds");
        QTest::newRow("the application object goes") << false;
        // The system tells no more than this, and kills the process soon after.
        QTest::newRow("the session ends") << true;
    }

    void keepsSettings()
    {
        QFETCH(bool, sessionEnds);
        QTemporaryDir dir;
        QDir::setCurrent(dir.path());
        Files::write("large", QByteArray(20 << 20, 'x'));
        const PluginFileList list{{"mods/a.pyc", "1"}};
        int argc = 1;
        char name[] = "test", *argv[] = {name, nullptr};
        auto application = std::make_unique<QCoreApplication>(argc, argv);
        MainController *controller = MainController::instance();
        controller->StartCheckFileMd5(QString(), "large");
        controller->WriteSetting(ApplicationSettings::KeyFilesMd5, QVariant::fromValue(list));
        if (sessionEnds)
            QMetaObject::invokeMethod(application.get(), "aboutToQuit", Qt::DirectConnection);
        else
            application.reset();
        const QByteArray file = Files::read("brekka.ini");
        QVERIFY2(file.contains("mods\\a.pyc=1"), file);
        QDir::setCurrent(QDir::rootPath());
    }
};

QTEST_APPLESS_MAIN(tst_ControllerExit)
#include "tst_controllerexit.moc"
