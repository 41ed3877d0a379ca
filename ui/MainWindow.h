#pragma once

#include "ApplicationSettings.h"
#include "BaseWindow.h"
#include "ErrorCode.h"
#include "Hosts.h"

#include <QString>
#include <QVariant>

class HttpReply;
class MaskForm;
class QJsonObject;
class QTimer;

/// The one window of the program: two pages, and the flow that keeps the plugin installed and
/// current.
///
/// The flow has no state variable. The step it is in is the signal that it waits for:
///
///     manifest (UpdatePlugin) → download → package check → extraction → presence → verification
///
/// and an automatic run that finds nothing new on the server checks the local files instead. Every
/// way out ends in clearing m_bRequesting. Everything here runs on the main thread; the work itself
/// is the controller's.
///
/// The class is laid out by subject: MainWindow.cpp (construction, pages and controls),
/// MainWindowSettings.cpp (what the settings store reports), MainWindowManifest.cpp (asking the
/// server and deciding) and MainWindowUpdateFlow.cpp (everything from the download to the end).
class MainWindow : public BaseWindow
{
    Q_OBJECT
public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

public slots:
    void OnBrowserGame();
    void openUrl(QString url);
    void OnShowMessagebox();
    void TrayShan();
    void OnTimerShanTray();
    void OnShowSystemMessage();
    void OnSettingRefreshed(QVariant Setting);
    void OnAutoScanGame();
    /// The install button: unpacks the package that is there once more, or fetches it.
    void OnPluginExtractInstall();
    void OnPluginVersion(QString strVersion);
    void OnPluginUploadReplayOpen(bool bOpen);
    void OnUploadReplayopen(bool bOpen);
    void OnAutoRunChanged(bool bOpen);
    void OnCheckFileResult(QString strFilePath, bool bRet);
    /// Starts an automatic check, unless one is running or there is no game folder.
    void OnAutoUpdate();
    /// Whether every listed file exists in the game folder. When one is missing, the package is
    /// deleted, so that it is fetched anew.
    bool CheckPluginExist();
    void OnSettingChanged(QString strKey, QVariant value);
    void OnGameFinded(QString strPath, EC::ErrorCode ec);
    void OnpluginSupportGameVersion(QString strVersion);
    void OnReturnPluginsCheckResult(QString strFilePath, bool bIsRight);
    void OnAutoUpdateCheckPluginsResult(QString strFilePath, bool bIsRight);
    void OnAutoStartUp(bool bStartUp);
    void currentChanged(int index);

protected:
    void showEvent(QShowEvent *event) override;

private:
    // Construction, pages and controls
    void setUpLinks();
    void connectControls();
    void connectController();
    void connectFlow();
    void showReplayState(bool open);
    void showGamePath(const QString &path);
    /// Shows the modal message box over the dimmed window; nothing while the window is hidden or
    /// the same message is still open.
    void ShowMessage(const QString &text);
    bool isQuestionAccepted(const QString &text);

    // Settings
    void showStoredVersions();

    // Manifest
    void UpdatePlugin(bool autoUpdate);
    void onManifestReply(const HttpReply &reply, bool autoUpdate);
    bool ReadPlginUpdateRequestBody(const QJsonObject &body);
    void storeFileList(const PluginFileList &files);
    void startDownload(const QString &link);
    bool endWithoutUpdate();

    // Update flow
    bool hasGameFolder() const;
    QString gameFile(const QString &relative) const;
    void onDownloadFinished(const QString &path);
    void onExtractingResult(EC::ErrorCode ec);
    void onExtracted();
    void onExtractionFailed(EC::ErrorCode ec);
    void onPackageWrong();
    void onInstalled(const QString &path);
    bool CheckPluginFiles(bool autoUpdate);
    void retryInstallation();
    void giveUp();
    void reportFailure();
    void endRun();
    void forgetPackage();
    void showProgress(int percent);
    void hideProgress();
    void ShowNew();
    void HideNew();
    void StopTrayShan();

    const Hosts m_hosts;
    ApplicationSettings::settings m_settings; ///< the window's copy; lags the store by one exchange

    // Two flags and two counters carry the flow across its steps. m_bRequesting: a run is under
    // way, and further calls of UpdatePlugin are dropped. m_autoUpdateModel: nobody asked for this
    // run, so its failures are silent and retried. m_retryCount counts those retries,
    // m_wrongPackages the packages in a row that did not match their checksum; a verified
    // installation resets the first, a right package the second. Both stop the flow from going
    // round without end against a server or a disk that stays bad.
    bool m_autoUpdateModel = false;
    bool m_bRequesting = false;
    bool m_isDownloading = false;             ///< the package file is being written
    QMetaObject::Connection m_manifestAnswer; ///< to the request that is waited for
    /// The files in the game folder are wrong, and a new check was started to fetch them again. If
    /// the server has nothing to fetch, the run ends until the next tick.
    bool m_isRepairing = false;
    int m_retryCount = 0;
    int m_wrongPackages = 0;

    // What the last manifest announced, kept until an installation has been verified.
    QString m_newVersion;
    QString m_newPackageMd5;
    QString m_newUpdateDate;

    MaskForm *m_mask = nullptr;
    QStringList m_shownMessages;         ///< texts of the open message boxes
    QTimer *m_shanTimer = nullptr;       ///< flashes the tray icon
    QTimer *m_autoUpdateTimer = nullptr; ///< the periodic check
    int m_shanCount = 0;
};
