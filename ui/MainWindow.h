#pragma once

#include "ApplicationSettings.h"
#include "BaseWindow.h"
#include "ErrorCode.h"
#include "FailurePolicy.h"
#include "Hosts.h"
#include "ManifestTrust.h"
#include "PackageBackOff.h"

#include <QString>
#include <QVariant>

class HttpReply;
class MaskForm;
class QJsonObject;
class QTimer;
struct UpdateManifest;

/// The one window of the program: two pages, and the flow that keeps the plugin installed and
/// current.
///
/// The flow has no state variable. The step it is in is the signal that it waits for:
///
///     manifest (UpdatePlugin) → download → package check → extraction → presence → verification
///
/// and an automatic run that finds nothing new on the server ends and has the local files checked.
/// Every run begins in beginRun() and ends in endRun(); what goes round once more is a new run.
/// Everything here runs on the main thread; the work itself is the controller's.
///
/// The class is laid out by subject: MainWindow.cpp (construction, pages and controls),
/// MainWindowSettings.cpp (what the settings store reports), MainWindowManifest.cpp (asking the
/// server and deciding), MainWindowUpdateFlow.cpp (everything from the download to the end) and
/// MainWindowNewVersion.cpp (telling of a version that did not get installed).
class MainWindow : public BaseWindow
{
    Q_OBJECT
public:
    /// Talks of, and to, the servers \a hosts. With \a keys, it acts on no manifest that none of
    /// them has signed, and installs no package but the one that such a manifest names; a program
    /// that has seen no manifest yet takes none with a serial below \a lowestSerial.
    explicit MainWindow(const Hosts &hosts, const ManifestSignature::Keys &keys = {},
                        quint64 lowestSerial = 0, QWidget *parent = nullptr);
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
    void checkOwnFolders();
    void setUpLinks();
    void connectControls();
    void connectController();
    void connectFlow();
    void showReplayState(bool open);
    void showGamePath(const QString &path);
    static void showVersion(QLabel *place, const QString &version);
    /// Asks for the modal message box over the dimmed window and returns at once: the box opens
    /// from the event loop, and whatever is under way goes on behind it. Nothing while the window
    /// is hidden or the same message is still open.
    void ShowMessage(const QString &text);
    bool isQuestionAccepted(const QString &text);

    // Settings
    void showStoredVersions();

    // Manifest
    enum class IfNothingNew { CheckLocalFiles, End };
    void UpdatePlugin(bool autoUpdate, IfNothingNew then = IfNothingNew::CheckLocalFiles);
    void onManifestReply(const HttpReply &reply, bool autoUpdate, IfNothingNew then);
    bool ReadPlginUpdateRequestBody(const QJsonObject &body);
    /// Takes the size out of \a manifest when nobody has signed it.
    bool isAccepted(const QJsonObject &fields, UpdateManifest &manifest);
    void rememberManifest(const ManifestTrust::Memory &memory);
    bool isDifferent(const UpdateManifest &manifest);
    void storeFileList(const PluginFileList &files);
    void startDownload(const QString &link, const QString &size);
    bool endWithoutUpdate();

    // Update flow
    bool hasGameFolder() const;
    QString gameFile(const QString &relative) const;
    void onDownloadProgress(int percent);
    void onDownloadFinished(const QString &path);
    void onExtractingRange(qulonglong range);
    void onExtractingFileName(const QString &name);
    void onExtractCompleteValue(qulonglong value);
    void onExtractingResult(EC::ErrorCode ec);
    void onExtractionFailed(EC::ErrorCode ec);
    void onNotInstalled(FailurePolicy::Failure failure);
    FailurePolicy::Step stepAfter(FailurePolicy::Failure failure) const;
    void checkPackage(const QString &md5, const QString &sha256);
    void onPackageWrong();
    void onInstalled(const QString &path);
    bool CheckPluginFiles(bool autoUpdate);
    void retryInstallation();
    void giveUp();
    void reportFailure();
    void forgetPackage();
    void showProgress(int value);
    void hideProgress();
    void ShowNew();
    void HideNew();
    void StopTrayShan();

    // Runs
    void beginRun(bool automatic);
    void endRun();
    void closeRun();
    void restartRun(bool automatic);
    void setAskedFor(bool isAskedFor);

    const Hosts m_hosts;
    const ManifestSignature::Keys m_keys;
    const quint64 m_lowestSerial;
    ApplicationSettings::settings m_settings; ///< the window's copy; lags the store by one exchange

    // Three flags and two counters carry the flow across its steps. m_bRequesting: a run is under
    // way, and further calls of UpdatePlugin are dropped. m_autoUpdateModel: its failures are
    // silent and retried. m_isAskedFor: the user started it, or pressed the button during it, and
    // wants to know how it ends. The last two differ after a package that did not match its
    // checksum: the new look at the server that follows is not automatic any more, but still
    // nobody's wish. m_retryCount counts the retries of automatic runs, m_wrongPackages the
    // packages in a row that did not match; a verified installation resets the first, a right
    // package or the button the second. Both stop the flow from going round without end against a
    // server or a disk that stays bad: once they are used up, each further run has one try.
    bool m_autoUpdateModel = false;
    bool m_bRequesting = false;
    bool m_isAskedFor = false;
    int m_retryCount = 0;
    int m_wrongPackages = 0;
    PackageBackOff m_backOff;                 ///< from a package that was given up
    QMetaObject::Connection m_manifestAnswer; ///< to the request that is waited for

    // What the last manifest announced, kept until an installation has been verified.
    QString m_newVersion;
    QString m_newPackageMd5;
    QString m_newUpdateDate;
    QString m_newPackageSha256; ///< empty unless signatures are checked

    MaskForm *m_mask = nullptr;
    QStringList m_shownMessages;   ///< texts of the message boxes that are open or about to be
    QString m_unseenMessage;       ///< of the store, for when the window is shown
    QTimer *m_shanTimer = nullptr; ///< flashes the tray icon
    QTimer *m_autoUpdateTimer = nullptr; ///< the periodic check
    int m_shanCount = 0;
};
