#include "Hosts.h"
#include "InstallTexts.h"
#include "MainController.h"
#include "MainWindow.h"
#include "Paths.h"
#include "RecevieSecondProcessMsg.h"
#include "SettingsFile.h"
#include "SingleApplication.h"
#include "TerminationSignal.h"

#include <QCommandLineParser>
#include <QDebug>
#include <QMessageBox>
#include <QSettings>
#include <QTextCodec>

#include <chrono>

namespace
{
constexpr std::chrono::milliseconds StartUpTimeout(1000);   // to announce us to the running copy
constexpr std::chrono::milliseconds HandOverTimeout(10000); // to hand over the command line

/// What has to be settled before there is an application object.
void setPlatformDefaults()
{
    qputenv("QT_ENABLE_HIGHDPI_SCALING", "1");
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling, true);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps, true);
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(
        Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
    QCoreApplication::setAttribute(Qt::AA_DontCreateNativeWidgetSiblings, true);
}

int runSecondary(SingleApplication &application)
{
    qDebug() << "i am the second process exit";
    const QByteArray commandLine = QCoreApplication::arguments().join(QLatin1Char(' ')).toUtf8();
    application.sendToPrimary(commandLine, int(HandOverTimeout.count()));
    qDebug() << "App already running.";
    qDebug() << "Primary instance PID: " << application.primaryProcessId();
    qDebug() << "Primary instance user: " << application.primaryUserName();
    return 0;
}

int runPrimary(SingleApplication &application, RecevieSecondProcessMsg &receiver)
{
    qDebug() << "i am the first process";
    QObject::connect(&application, &SingleApplication::receivedMessage, &receiver,
                     &RecevieSecondProcessMsg::receivedMessage);
    QGuiApplication::setQuitOnLastWindowClosed(false);
    // Closing the window only hides it, which a session's end would take for a refusal.
    QGuiApplication::setFallbackSessionManagementEnabled(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(QString());
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption silentOption(
        QStringList{QStringLiteral("s"), QStringLiteral("slient start")});
    const QCommandLineOption uninstallOption(
        QStringList{QStringLiteral("u"), QStringLiteral("uninstall")});
    parser.addOption(silentOption);
    parser.addOption(uninstallOption);
    parser.process(application);

    const QString unreadable = Paths::unreadableFolder();
    if (!unreadable.isEmpty()) {
        qCritical() << "the folder's name is not UTF-8:" << unreadable;
        // Nobody answers a box when an uninstaller runs the program.
        if (!parser.isSet(uninstallOption))
            QMessageBox::critical(nullptr, QString(), InstallTexts::notUtf8(unreadable));
        return 1;
    }

    QSettings settings(SettingsFile::readable(), QSettings::IniFormat);
    static_assert(ManifestSignature::isKeyList(BREKKA_PUBLIC_KEYS),
                  "BREKKA_PUBLIC_KEYS holds a word that is no public key");
    MainWindow window(Hosts::read(settings), ManifestSignature::keysFromText(BREKKA_PUBLIC_KEYS),
                      BREKKA_LOWEST_SERIAL);
    receiver.setMainWindow(&window);
    MainController *controller = MainController::instance();
    if (parser.isSet(uninstallOption)) {
        controller->UnInstallPlugins();
        return 0;
    }
    if (!parser.isSet(silentOption))
        window.show();
    const TerminationSignal termination(&QCoreApplication::quit);
    return QCoreApplication::exec();
}
} // namespace

int main(int argc, char *argv[])
{
    Q_INIT_RESOURCE(brekka); // sits in a static library
    setPlatformDefaults();
    SingleApplication application(argc, argv, true, SingleApplication::NotifyOnSecondary,
                                  int(StartUpTimeout.count()), QString());
    RecevieSecondProcessMsg receiver(nullptr);
    if (application.isSecondaryInstance())
        return runSecondary(application);
    return runPrimary(application, receiver);
}
