#include "MainController.h"

#include "ApplicationSettings.h"
#include "CTaskSchdMgr.h"
#include "CheckPluginFile.h"
#include "FileVersion.h"
#include "GameScanner.h"
#include "LogonTask.h"
#include "Paths.h"
#include "PluginConfigDataReader.h"
#include "PluginDownloader.h"
#include "SettingsProcessor.h"
#include "UnInstallPlugin.h"
#include "ZipCpp.h"

#include <QCoreApplication>
#include <QDebug>
#include <QGlobalStatic>

#include <chrono>
#include <utility>

namespace
{
constexpr std::chrono::seconds SessionEndPatience(3);
} // namespace

/// Gives the static holder, and nobody else, the way to the constructor.
struct MainControllerHolder {
    MainController controller;
};

Q_GLOBAL_STATIC(MainControllerHolder, theHolder)

MainController *MainController::instance()
{
    return theHolder.isDestroyed() ? nullptr : &theHolder->controller;
}

MainController::MainController()
{
    qDebug() << "mainController run";
    qRegisterMetaType<EC::ErrorCode>("EC::ErrorCode");
    qRegisterMetaType<EC::ErrorCode>("EC::ErrorCode&");

    m_remover = new UnInstallPlugin;
    connectScannerAndSettings();
    connectExtractorAndChecker();
    connectDownloader();
    connectPluginConfig();

    connect(&m_thread, &QThread::finished, m_scanner, &QObject::deleteLater);
    connect(&m_thread, &QThread::finished, m_settings, &QObject::deleteLater);
    connect(&m_thread, &QThread::finished, m_extractor, &QObject::deleteLater);
    connect(&m_thread, &QThread::finished, m_checker, &QObject::deleteLater);
    connect(&m_thread, &QThread::finished, m_pluginConfig, &QObject::deleteLater);
    m_thread.start();
    m_thread.setObjectName(QStringLiteral("work"));
    // The system may end the process soon after this signal, as Windows does with a session. Else
    // the wait goes on once the windows are gone.
    connect(qApp, &QCoreApplication::aboutToQuit, this,
            [this] { finishWork(QDeadlineTimer(SessionEndPatience)); });
    qAddPostRoutine([] {
        if (instance())
            instance()->finishWork(QDeadlineTimer::Forever);
    });
}

void MainController::finishWork(QDeadlineTimer patience)
{
    // Behind the requests made so far: a setting that waits for its turn must not get lost.
    if (!std::exchange(m_isFinishing, true))
        QMetaObject::invokeMethod(
            m_settings, [this] { m_thread.quit(); }, Qt::QueuedConnection);
    m_thread.wait(patience);
}

MainController::~MainController()
{
    // Does nothing after finishWork(), which there is no application object to call in a process
    // that ends by exit().
    m_thread.quit();
    m_thread.wait();
    delete m_remover; // has no parent: it never takes part in the thread's clean-up
}

template <typename Worker>
Worker *MainController::onWorkThread()
{
    auto *worker = new Worker;
    worker->moveToThread(&m_thread);
    return worker;
}

void MainController::connectScannerAndSettings()
{
    m_scanner = onWorkThread<GameScanner>();
    m_settings = onWorkThread<SettingsProcessor>();
    connect(&m_thread, &QThread::started, this, &MainController::On_WorkOnStartUp);

    connect(this, &MainController::startGameScanner, m_scanner, &GameScanner::ScanGame);
    connect(m_scanner, &GameScanner::resultReady, this, &MainController::On_gameFinded);

    connect(this, &MainController::startRefreshSetting, m_settings,
            &SettingsProcessor::RefreshSettings);
    connect(this, &MainController::startWriteSettings, m_settings,
            &SettingsProcessor::WriteSetting);
    connect(m_settings, &SettingsProcessor::SettingReady, this,
            &MainController::On_SettingRefreshed);
    connect(m_settings, &SettingsProcessor::SettingChanged, this,
            &MainController::OnSettingChanged);
    connect(m_settings, &SettingsProcessor::SettingsNotSaved, this,
            &MainController::OnSettingsNotSaved);
}

void MainController::connectExtractorAndChecker()
{
    m_extractor = onWorkThread<ZipCpp>();
    connect(this, &MainController::startExtracting, m_extractor, &ZipCpp::OnUnzipFile);
    connect(m_extractor, &ZipCpp::OnExtractingResult, this, &MainController::OnExtractingResult);
    connect(m_extractor, &ZipCpp::OnExtractingFileName, this,
            &MainController::OnExtractingFileName);
    connect(m_extractor, &ZipCpp::OnExtractingRange, this, &MainController::OnExtractingRange);
    connect(m_extractor, &ZipCpp::OnExtractCompleteValue, this,
            &MainController::OnExtractCompleteValue);

    m_checker = onWorkThread<CheckPluginFile>();
    connect(this, &MainController::startAutoUpdateCheckPluginsFile, m_checker,
            &CheckPluginFile::OnAutoUpdateCheckFilesMd5);
    connect(this, &MainController::startCheckPluginsFile, m_checker,
            &CheckPluginFile::CheckFilesMd5);
    connect(this, &MainController::startCheckFileMd5, m_checker, &CheckPluginFile::CheckFileMd5);
    connect(this, &MainController::startCheckPackage, m_checker, &CheckPluginFile::CheckPackage);
    connect(m_checker, &CheckPluginFile::ReturnFileIsRight, this,
            &MainController::OnCheckFileResult);
    connect(m_checker, &CheckPluginFile::ReturnPluginsCheckResult, this,
            &MainController::OnReturnPluginsCheckResult);
    connect(m_checker, &CheckPluginFile::ReturnAutoUpdatePluginsCheckResult, this,
            &MainController::OnAutoUpdateCheckPluginsResult);
}

void MainController::connectDownloader()
{
    m_downloader = new PluginDownloader(this);
    connect(m_downloader, &PluginDownloader::DownloadPluginFinished, this,
            &MainController::OnDownloadPluginFinished);
    connect(m_downloader, &PluginDownloader::DownloadPluginError, this,
            &MainController::OnDownloadPluginError);
    connect(m_downloader, &PluginDownloader::DownloadPluginProgress, this,
            &MainController::OnPluginDownProgress);
    connect(m_downloader, &PluginDownloader::DownloadPluginSpeed, this,
            &MainController::OnPluginSpeed);
}

void MainController::connectPluginConfig()
{
    m_pluginConfig = onWorkThread<PluginConfigDataReader>();
    connect(m_pluginConfig, &PluginConfigDataReader::pluginVersion, this,
            &MainController::OnpluginVersion);
    connect(m_pluginConfig, &PluginConfigDataReader::pluginHelloMessageOpen, this,
            &MainController::OnpluginHelloMessageOpen);
    connect(m_pluginConfig, &PluginConfigDataReader::pluginUploadStandingsOpen, this,
            &MainController::OnpluginUploadStandingsOpen);
    connect(m_pluginConfig, &PluginConfigDataReader::pluginUploadReplayOpen, this,
            &MainController::OnpluginUploadReplayOpen);
    connect(m_pluginConfig, &PluginConfigDataReader::pluginSupportGameVersion, this,
            &MainController::OnpluginSupportGameVersion);
    connect(this, &MainController::startWritePluginConfigData, m_pluginConfig,
            &PluginConfigDataReader::writePluginConfigData, Qt::QueuedConnection);
    connect(this, &MainController::startReadPluginConfigData, m_pluginConfig,
            &PluginConfigDataReader::readPluginConfigData);
    connect(m_pluginConfig, &PluginConfigDataReader::pluginConfigWriteComplete, this,
            &MainController::OnpluginConfigWriteComplete);
}

void MainController::On_WorkOnStartUp()
{
    emit startRefreshSetting();
}

void MainController::On_SettingRefreshed(QVariant Setting)
{
    const auto settings = Setting.value<ApplicationSettings::settings>();
    if (settings.game.isEmpty())
        emit startGameScanner();
    emit OnSettingRefreshed(Setting);
}

void MainController::On_gameFinded(QString strPath, EC::ErrorCode ec)
{
    qDebug() << "gamefind ret:" << strPath;
    emit OnGameFinded(strPath, ec);
}

void MainController::StartGameScanner()
{
    emit startGameScanner();
}

void MainController::WriteSetting(QString strKey, QVariant value)
{
    emit startWriteSettings(strKey, value);
}

void MainController::StartCheckFileMd5(QString strMd5, QString strFilePath)
{
    emit startCheckFileMd5(strMd5, strFilePath);
}

void MainController::StartCheckPackage(QString strMd5, QString strSha256, QString strFilePath)
{
    emit startCheckPackage(strMd5, strSha256, strFilePath);
}

void MainController::StartCheckPluginsFile(QString strGamePath, QVariant value)
{
    emit startCheckPluginsFile(strGamePath, value);
}

void MainController::StartAutoUpdateCheckPluginsFile(QString strGamePath, QVariant value)
{
    emit startAutoUpdateCheckPluginsFile(strGamePath, value);
}

void MainController::StartExtracting(QString strFileName, QString strOutPath)
{
    emit startExtracting(strFileName, strOutPath);
}

void MainController::StartReadPluginConfigData(QString strGamePath)
{
    emit startReadPluginConfigData(strGamePath);
}

void MainController::StartWritePluginConfigData(bool bHelloMessageOpen, bool bUploadStandingsOpen,
                                                bool bUploadReplayOpen, QString strGamePath)
{
    emit startWritePluginConfigData(bHelloMessageOpen, bUploadStandingsOpen, bUploadReplayOpen,
                                    strGamePath);
}

void MainController::DownloadPlugin(QString strDownloadUrl, QString strSize)
{
    m_downloader->DownloadPlugin(strDownloadUrl, strSize);
}

void MainController::UnInstallPlugins()
{
    if (m_remover)
        m_remover->RemovePluginFiles();
}

bool MainController::SetAutoRun(bool enable)
{
    CTaskSchdMgr scheduler;
    if (!enable)
        return scheduler.DeleteTask(LogonTask::Name, true);

    const QString folder = QCoreApplication::applicationDirPath();
    const std::wstring program = Paths::updaterProgram().toStdWString();
    return scheduler.CreateTask(LogonTask::Name, program.c_str(), folder.toStdWString().c_str(),
                                LogonTask::Arguments);
}

QString MainController::GetFileVersion(QString path)
{
    return QString::fromLatin1(fileVersion(path.toLocal8Bit().toStdString()).c_str());
}

QString MainController::GetSelfVersion()
{
    const QString path = QCoreApplication::applicationDirPath() + QStringLiteral("/ver.dll");
    const QString version = GetFileVersion(path);
    qDebug() << "self version:" << version << "file path:" << path;
    return version;
}
