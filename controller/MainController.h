#pragma once

#include "ErrorCode.h"

#include <QDeadlineTimer>
#include <QObject>
#include <QString>
#include <QThread>
#include <QVariant>

class CheckPluginFile;
class GameScanner;
class PluginConfigDataReader;
class PluginDownloader;
class SettingsProcessor;
class UnInstallPlugin;
class ZipCpp;

/// The one object through which the window reaches the background work.
///
/// Lives on the main thread and owns the worker thread "work" with the workers on it. A method
/// whose name begins with Start, and WriteSetting, emit the request signal of the same name and
/// return at once; the worker handles requests one at a time in order, and its answer comes back as
/// one of the signals whose names begin with On. Everything crosses threads by value.
///
/// The requests made so far are carried out when the program quits, which waits for them; the
/// controller itself goes at process exit.
class MainController : public QObject
{
    Q_OBJECT
public:
    /// The controller of this process, made by the first call, which must come on the main thread;
    /// null once it has been destroyed at process exit.
    static MainController *instance();
    /// Waits, without a time limit, for the worker thread.
    ~MainController() override;

    /// Searches for the game; answered by OnGameFinded.
    void StartGameScanner();
    /// Writes one setting; answered by OnSettingChanged.
    void WriteSetting(QString strKey, QVariant value);
    /// Checks one file against an expected MD5 (first argument); answered by OnCheckFileResult.
    void StartCheckFileMd5(QString strMd5, QString strFilePath);
    /// Checks one file against an expected MD5 and an expected SHA-256; answered by
    /// OnCheckFileResult.
    void StartCheckPackage(QString strMd5, QString strSha256, QString strFilePath);
    /// Checks a PluginFileList; answered by OnReturnPluginsCheckResult.
    void StartCheckPluginsFile(QString strGamePath, QVariant value);
    /// The same for an automatic run; answered by OnAutoUpdateCheckPluginsResult.
    void StartAutoUpdateCheckPluginsFile(QString strGamePath, QVariant value);
    /// Unpacks an archive; answered by the OnExtracting signals, OnExtractingResult last.
    void StartExtracting(QString strFileName, QString strOutPath);
    /// Reads the plugin's configuration; answered by the Onplugin signals, or by nothing.
    void StartReadPluginConfigData(QString strGamePath);
    /// Rewrites the plugin's options; answered by OnpluginConfigWriteComplete.
    void StartWritePluginConfigData(bool bHelloMessageOpen, bool bUploadStandingsOpen,
                                    bool bUploadReplayOpen, QString strGamePath);

    /// Fetches the package, of at most \a strSize bytes if that is a number; answered by
    /// OnDownloadPluginFinished, after an error by both.
    void DownloadPlugin(QString strDownloadUrl, QString strSize = QString());
    /// Deletes the installed plugin's files on the calling thread.
    void UnInstallPlugins();
    /// Turns the updater's start at each logon on or off; blocks. Returns whether it was
    /// registered, respectively found and removed.
    static bool SetAutoRun(bool enable);
    /// The program's own version, as "1.2.3.4"; empty when it is unknown.
    QString GetSelfVersion();
    /// A file's version, as "1.2.3.4"; empty when it has none.
    static QString GetFileVersion(QString path);

signals:
    void OnGameFinded(QString strPath, EC::ErrorCode ec);
    void OnSettingRefreshed(QVariant Setting);
    void OnSettingChanged(QString strKey, QVariant value);
    /// The settings in \a strFolder can't be saved; once until they can be again.
    void OnSettingsNotSaved(QString strFolder);
    void OnExtractingFileName(QString strFileName);
    void OnExtractingRange(qulonglong uSize);
    void OnExtractCompleteValue(qulonglong uSize);
    void OnExtractingResult(QString archive_filename, EC::ErrorCode);
    void OnDownloadPluginFinished(QString strFilePath);
    void OnDownloadPluginError(EC::ErrorCode ec, QString errorString);
    void OnPluginDownProgress(int iPro);
    void OnPluginSpeed(QString strSpeed);
    void OnpluginVersion(QString strVersion);
    void OnpluginHelloMessageOpen(bool bOpen);
    void OnpluginUploadStandingsOpen(bool bOpen);
    void OnpluginSupportGameVersion(QString strVersion);
    void OnReturnPluginsCheckResult(QString strFilePath, bool bIsRight);
    void OnpluginUploadReplayOpen(bool bOpen);
    void OnpluginConfigWriteComplete();
    void OnCheckFileResult(QString strFilePath, bool bRet);
    void OnAutoUpdateCheckPluginsResult(QString strFilePath, bool bRet);

    void startGameScanner();
    void startRefreshSetting();
    void startWriteSettings(QString strKey, QVariant value);
    void startExtracting(QString strFileName, QString strOutPath);
    void startCheckFileMd5(QString strFileName, QString strOutPath);
    void startCheckPluginsFile(QString strGamePath, QVariant value);
    void startAutoUpdateCheckPluginsFile(QString strGamePath, QVariant value);
    void startReadPluginConfigData(QString strGamePath);
    void startWritePluginConfigData(bool bHelloMessageOpen, bool bUploadStandingsOpen,
                                    bool bUploadReplayOpen, QString strGamePath);
    void startCheckPackage(QString strMd5, QString strSha256, QString strFilePath);

public slots:
    void On_gameFinded(QString strPath, EC::ErrorCode ec);
    void On_WorkOnStartUp();
    void On_SettingRefreshed(QVariant Setting);

private:
    friend struct MainControllerHolder;
    MainController();
    /// Ends the worker thread and waits for that as long as \a patience lasts. Called when the
    /// program is about to quit, and again as the application object goes: without that one,
    /// objects on another thread are not deleted any more, and the settings are only safe once
    /// their store is.
    void finishWork(QDeadlineTimer patience);

    template <typename Worker>
    Worker *onWorkThread();
    void connectScannerAndSettings();
    void connectExtractorAndChecker();
    void connectDownloader();
    void connectPluginConfig();

    QThread m_thread;
    bool m_isFinishing = false;                       ///< the thread has been told to end
    GameScanner *m_scanner = nullptr;                 ///< on the worker thread
    SettingsProcessor *m_settings = nullptr;          ///< on the worker thread
    CheckPluginFile *m_checker = nullptr;             ///< on the worker thread
    PluginDownloader *m_downloader = nullptr;         ///< a child, on the main thread
    PluginConfigDataReader *m_pluginConfig = nullptr; ///< on the worker thread
    UnInstallPlugin *m_remover = nullptr;             ///< on the main thread
    ZipCpp *m_extractor = nullptr;                    ///< on the worker thread
};
