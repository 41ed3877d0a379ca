// From the downloaded package to verified files in the game folder.

#include "MainWindow.h"

#include "InstallTexts.h"
#include "MainController.h"
#include "Paths.h"
#include "ReminderWidget.h"

#include <QApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QTimer>

#include <utility>

namespace Keys = ApplicationSettings;

namespace
{
/// Retries are made while their count is at most this, so there are four in a row.
constexpr int LastRetry = 3;
constexpr int FlashPeriod = 500; // milliseconds
} // namespace

void MainWindow::connectFlow()
{
    MainController *controller = MainController::instance();
    connect(controller, &MainController::OnCheckFileResult, this, &MainWindow::OnCheckFileResult);
    connect(controller, &MainController::OnReturnPluginsCheckResult, this,
            &MainWindow::OnReturnPluginsCheckResult);
    connect(controller, &MainController::OnAutoUpdateCheckPluginsResult, this,
            &MainWindow::OnAutoUpdateCheckPluginsResult);
    connect(
        controller, &MainController::OnDownloadPluginFinished, this,
        [this](const QString &path) { onDownloadFinished(path); }, Qt::DirectConnection);
    connect(
        controller, &MainController::OnPluginDownProgress, this,
        [this](int percent) {
            qDebug() << "currnt progress:" << percent;
            showProgress(percent);
        },
        Qt::DirectConnection);
    connect(
        controller, &MainController::OnPluginSpeed, this,
        [](const QString &speed) { qDebug() << "currnt speed:" << speed; }, Qt::DirectConnection);
    connect(
        controller, &MainController::OnExtractingRange, this,
        [this](qulonglong range) {
            qDebug() << "extract range::" << range;
            m_installprogressbar->setRange(0, int(range));
            m_installprogressbar->setValue(0);
            m_installprogressbar->show();
        },
        Qt::DirectConnection);
    connect(
        controller, &MainController::OnExtractingFileName, this,
        [this](const QString &name) {
            qDebug() << "extract file::" << name;
            m_installprogressbar->setFormat(name);
        },
        Qt::DirectConnection);
    connect(
        controller, &MainController::OnExtractCompleteValue, this,
        [this](qulonglong value) {
            qDebug() << "extract CompleteValue:" << value;
            m_installprogressbar->setValue(int(value));
        },
        Qt::DirectConnection);
    connect(m_installprogressbar, &QProgressBar::valueChanged, this, [this](int percent) {
        trayIcon()->setToolTip(QStringLiteral("%1 %2%").arg(windowTitle()).arg(percent));
    });
    connect(
        controller, &MainController::OnExtractingResult, this,
        [this](const QString &, EC::ErrorCode ec) { onExtractingResult(ec); },
        Qt::DirectConnection);
}

bool MainWindow::hasGameFolder() const
{
    return !m_settings.game.isEmpty() && QDir(m_settings.game).exists();
}

QString MainWindow::gameFile(const QString &relative) const
{
    return Paths::inFolder(m_settings.game, relative);
}

void MainWindow::OnAutoUpdate()
{
    m_installPlugin->setText(InstallTexts::Install);
    if (!hasGameFolder()) {
        qDebug() << "OnAutoUpdate OnCheckFileResult failed";
        return;
    }
    if (m_autoUpdateModel || m_bRequesting)
        return;
    m_autoUpdateModel = true;
    qDebug() << "OnAutoUpdate start";
    UpdatePlugin(true);
}

void MainWindow::OnPluginExtractInstall()
{
    m_autoUpdateModel = false;
    if (!hasGameFolder()) {
        qDebug() << "OnCheckFileResult OnPluginExtractInstall";
        ShowMessage(InstallTexts::noGameFolder(m_hosts.game));
        return;
    }
    // Half a package is none. The run goes on as the user's, who is told how it ends.
    if (m_isDownloading)
        return;
    if (!QFile::exists(Paths::packageFile())) {
        qDebug() << "压缩包不存在，重新下载,清空压缩包md5，重新请求";
        m_settings.packagecheck.clear();
        UpdatePlugin(false);
        return;
    }
    // What is there can be installed without the server, which may take long or not answer at all.
    if (disconnect(std::exchange(m_manifestAnswer, {})))
        m_bRequesting = m_isRepairing = false;
    if (m_bRequesting)
        return;
    m_bRequesting = true; // a tick must not replace the package while it is unpacked
    qDebug() << "autoUpdateModel close";
    qDebug() << "OnPluginExtractInstall check zip pack:" << m_settings.game
             << m_settings.packagecheck;
    MainController::instance()->StartCheckFileMd5(m_settings.packagecheck, Paths::packageFile());
}

void MainWindow::onDownloadFinished(const QString &path)
{
    m_isDownloading = false;
    hideProgress();
    qDebug() << "download plugin zip file finish check md5::" << path;
    MainController::instance()->StartCheckFileMd5(m_newPackageMd5, path);
}

void MainWindow::OnCheckFileResult(QString strFilePath, bool bRet)
{
    Q_UNUSED(strFilePath)
    if (!bRet) {
        onPackageWrong();
        return;
    }
    m_wrongPackages = 0;
    if (!hasGameFolder()) {
        // It went while the package was on its way; an archive must not land in the current folder.
        qDebug() << "OnCheckFileResult no game folder";
        endRun();
        return;
    }
    qDebug() << "zip is correct unzip OutExtractZipFile";
    MainController::instance()->StartExtracting(Paths::packageFile(), m_settings.game);
}

void MainWindow::onPackageWrong()
{
    qDebug() << "zip is not  correct automode:" << m_autoUpdateModel;
    if (m_wrongPackages > LastRetry) {
        qDebug() << "zip stays wrong, give up";
        forgetPackage(); // so that the install button asks the server anew
        giveUp();
        ShowMessage(InstallTexts::Failed);
        return;
    }
    ++m_wrongPackages;
    qDebug() << "zip re download";
    m_settings.packagecheck.clear();
    m_bRequesting = false;
    UpdatePlugin(false);
}

void MainWindow::onExtractingResult(EC::ErrorCode ec)
{
    hideProgress();
    if (ec == EC::SUCCESS)
        onExtracted();
    else
        onExtractionFailed(ec);
}

void MainWindow::onExtracted()
{
    m_installprogressbar->setFormat(QStringLiteral("EXTRACT success!"));
    if (CheckPluginFiles(false))
        return;
    if (!m_autoUpdateModel) {
        qDebug() << "OnCheckFileResult OnExtractingResult EXTRACT success!";
        reportFailure();
    } else if (m_retryCount > LastRetry) {
        giveUp();
    } else {
        qDebug() << "UpdatePlugin retry on OnExtractingResult CheckPluginFiles failed";
        retryInstallation();
    }
}

void MainWindow::onExtractionFailed(EC::ErrorCode ec)
{
    qDebug() << "plugin zip extract failed!!" << EC::name(ec);
    if (QFile::exists(Paths::packageFile()))
        forgetPackage();
    if (!m_autoUpdateModel) {
        qDebug() << "ShowPluginInstallFailedMsgbox OnExtractingResult !m_autoUpdateModel";
        reportFailure();
    } else if (m_retryCount > LastRetry) {
        giveUp();
    } else {
        qDebug() << "UpdatePlugin OnExtractingResult failed:" << m_retryCount;
        retryInstallation();
    }
}

void MainWindow::reportFailure()
{
    m_bRequesting = false;
    ShowMessage(InstallTexts::Failed);
    MainController::instance()->WriteSetting(Keys::KeyLastCheckResult, false);
}

void MainWindow::giveUp()
{
    m_bRequesting = false;
    m_autoUpdateModel = false;
    MainController::instance()->WriteSetting(Keys::KeyLastCheckResult, false);
    ShowNew();
}

void MainWindow::retryInstallation()
{
    m_bRequesting = false;
    UpdatePlugin(true);
    ++m_retryCount;
}

void MainWindow::forgetPackage()
{
    QFile::remove(Paths::packageFile());
    m_settings.packagecheck.clear();
}

bool MainWindow::CheckPluginFiles(bool autoUpdate)
{
    const PluginFileList files = m_settings.plugins;
    for (auto file = files.begin(); file != files.end(); ++file) {
        const QString path = gameFile(file.key());
        if (!QFile::exists(path)) {
            qDebug() << "check plugin file exist failed" << path;
            return false;
        }
    }
    const QVariant list = QVariant::fromValue(files);
    if (autoUpdate)
        MainController::instance()->StartAutoUpdateCheckPluginsFile(m_settings.game, list);
    else
        MainController::instance()->StartCheckPluginsFile(m_settings.game, list);
    return true;
}

void MainWindow::OnAutoUpdateCheckPluginsResult(QString strFilePath, bool bIsRight)
{
    Q_UNUSED(strFilePath)
    // The user has started a run meanwhile, which finds out by itself.
    if (m_bRequesting)
        return;
    if (bIsRight) {
        qDebug() << "本地插件文件正确，自动更新完成";
        m_autoUpdateModel = false;
        m_bRequesting = false;
        return;
    }
    qDebug() << "本地文件md5 不符，重新下载";
    m_bRequesting = false;
    if (QFile::exists(Paths::packageFile())) {
        qDebug() << "删除压缩包";
        QFile::remove(Paths::packageFile());
    }
    qDebug() << "压缩包md5 清空,触发重新下载";
    m_settings.packagecheck.clear();
    m_isRepairing = true;
    UpdatePlugin(true);
}

void MainWindow::OnReturnPluginsCheckResult(QString strFilePath, bool bIsRight)
{
    if (m_autoUpdateModel) {
        if (!bIsRight)
            ShowNew();
    } else {
        qDebug() << "OnReturnPluginsCheckResult  false";
        if (bIsRight) {
            if (isVisible() && !isMinimized())
                ReminderWidget::showReminder(this);
        } else {
            qDebug() << "plugin file check failed";
            ShowMessage(InstallTexts::Failed);
        }
    }
    if (bIsRight)
        onInstalled(strFilePath);
    endRun();
}

void MainWindow::onInstalled(const QString &path)
{
    qDebug() << "plugin local files match nervsion:" << m_newVersion
             << "new md5:" << m_newPackageMd5 << "strFilePath" << path;
    m_retryCount = 0;
    HideNew();
    MainController *controller = MainController::instance();
    controller->WriteSetting(Keys::KeyLastCheckResult, true);
    controller->WriteSetting(Keys::KeyPluginVersion, m_newVersion);
    controller->StartReadPluginConfigData(m_settings.game);
    controller->WriteSetting(Keys::KeyUpdateDate, m_newUpdateDate);
    controller->WriteSetting(Keys::KeyPackageMd5, m_newPackageMd5);
}

void MainWindow::endRun()
{
    if (m_autoUpdateModel) {
        qDebug() << "autoUpdateModel close";
        m_autoUpdateModel = false;
    }
    m_bRequesting = false;
}

void MainWindow::showProgress(int percent)
{
    m_installprogressbar->setRange(0, 100);
    m_installprogressbar->setValue(percent);
    m_installprogressbar->show();
}

void MainWindow::hideProgress()
{
    m_installprogressbar->hide();
    trayIcon()->setToolTip(windowTitle());
}

void MainWindow::ShowNew()
{
    qDebug() << "void __thiscall MainWindow::ShowNew(void)";
    m_newversion->show();
    m_installPlugin->setText(InstallTexts::Update);
    if (isHidden())
        TrayShan();
    if (isVisible())
        QApplication::alert(this);
}

void MainWindow::HideNew()
{
    qDebug() << "void __thiscall MainWindow::HideNew(void)";
    m_newversion->hide();
    m_installPlugin->setText(InstallTexts::Install);
    StopTrayShan();
}

void MainWindow::TrayShan()
{
    qDebug() << "void __thiscall MainWindow::TrayShan(void)";
    m_shanTimer->start(FlashPeriod);
}

void MainWindow::OnTimerShanTray()
{
    ++m_shanCount;
    const bool blank = m_shanCount % 2 != 0;
    trayIcon()->setIcon(
        QIcon(blank ? QStringLiteral(":/images/null.png") : QStringLiteral(":/images/icon.png")));
}

void MainWindow::StopTrayShan()
{
    m_shanTimer->stop();
    trayIcon()->setIcon(QIcon(QStringLiteral(":/images/icon.png")));
}
