// From the downloaded package to verified files in the game folder.

#include "MainWindow.h"

#include "InstallTexts.h"
#include "MainController.h"
#include "Paths.h"
#include "ReminderWidget.h"

#include <QDebug>
#include <QDir>
#include <QFile>

#include <utility>

namespace Keys = ApplicationSettings;
using FailurePolicy::Failure;
using FailurePolicy::Step;

void MainWindow::connectFlow()
{
    MainController *controller = MainController::instance();
    connect(controller, &MainController::OnCheckFileResult, this, &MainWindow::OnCheckFileResult);
    connect(controller, &MainController::OnReturnPluginsCheckResult, this,
            &MainWindow::OnReturnPluginsCheckResult);
    connect(controller, &MainController::OnAutoUpdateCheckPluginsResult, this,
            &MainWindow::OnAutoUpdateCheckPluginsResult);
    connect(controller, &MainController::OnDownloadPluginFinished, this,
            &MainWindow::onDownloadFinished, Qt::DirectConnection);
    connect(controller, &MainController::OnPluginDownProgress, this,
            &MainWindow::onDownloadProgress, Qt::DirectConnection);
    connect(
        controller, &MainController::OnPluginSpeed, this,
        [](const QString &speed) { qDebug() << "currnt speed:" << speed; }, Qt::DirectConnection);
    connect(controller, &MainController::OnExtractingRange, this, &MainWindow::onExtractingRange,
            Qt::DirectConnection);
    connect(controller, &MainController::OnExtractingFileName, this,
            &MainWindow::onExtractingFileName, Qt::DirectConnection);
    connect(controller, &MainController::OnExtractCompleteValue, this,
            &MainWindow::onExtractCompleteValue, Qt::DirectConnection);
    connect(
        controller, &MainController::OnExtractingResult, this,
        [this](const QString &, EC::ErrorCode ec) { onExtractingResult(ec); },
        Qt::DirectConnection);
}

void MainWindow::beginRun(bool automatic)
{
    m_bRequesting = true;
    m_autoUpdateModel = automatic;
    setAskedFor(!automatic);
}

void MainWindow::endRun()
{
    m_bRequesting = false;
    m_autoUpdateModel = false;
    setAskedFor(false);
}

void MainWindow::closeRun()
{
    if (m_autoUpdateModel)
        qDebug() << "autoUpdateModel close";
    endRun();
}

void MainWindow::restartRun(bool automatic)
{
    const bool isAskedFor = m_isAskedFor;
    endRun();
    UpdatePlugin(automatic);
    setAskedFor(m_bRequesting && isAskedFor);
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
    m_installPlugin->setText(InstallTexts::install());
    if (!hasGameFolder()) {
        qDebug() << "OnAutoUpdate OnCheckFileResult failed";
        return;
    }
    if (m_autoUpdateModel || m_bRequesting)
        return;
    qDebug() << "OnAutoUpdate start";
    m_backOff.tick();
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
    // Whoever presses does not wait for a server that takes long or does not answer at all.
    if (disconnect(std::exchange(m_manifestAnswer, {})))
        endRun();
    m_wrongPackages = 0;
    m_backOff.forget();
    if (m_bRequesting) {
        // Half a package is none, and two must not be unpacked at once.
        setAskedFor(true);
        return;
    }
    if (!QFile::exists(Paths::packageFile())) {
        qDebug() << "压缩包不存在，重新下载,清空压缩包md5，重新请求";
        m_settings.packagecheck.clear();
        UpdatePlugin(false);
        return;
    }
    beginRun(false);
    qDebug() << "autoUpdateModel close";
    qDebug() << "OnPluginExtractInstall check zip pack:" << m_settings.game
             << m_settings.packagecheck;
    checkPackage(m_settings.packagecheck, m_settings.packagesha256);
}

void MainWindow::checkPackage(const QString &md5, const QString &sha256)
{
    if (m_keys.isEmpty())
        MainController::instance()->StartCheckFileMd5(md5, Paths::packageFile());
    else
        MainController::instance()->StartCheckPackage(md5, sha256, Paths::packageFile());
}

void MainWindow::onDownloadProgress(int percent)
{
    qDebug() << "currnt progress:" << percent;
    m_installprogressbar->setRange(0, 100);
    showProgress(percent);
}

void MainWindow::onDownloadFinished(const QString &path)
{
    hideProgress();
    qDebug() << "download plugin zip file finish check md5::" << path;
    checkPackage(m_newPackageMd5, m_newPackageSha256);
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
    if (stepAfter(Failure::PackageWrong) == Step::GiveUp) {
        qDebug() << "zip stays wrong, give up";
        forgetPackage(); // so that the install button asks the server anew
        giveUp();
        return;
    }
    ++m_wrongPackages;
    qDebug() << "zip re download";
    m_settings.packagecheck.clear();
    restartRun(false);
}

void MainWindow::onExtractingRange(qulonglong range)
{
    qDebug() << "extract range::" << range;
    m_installprogressbar->setRange(0, int(range));
    showProgress(0);
}

void MainWindow::onExtractingFileName(const QString &name)
{
    qDebug() << "extract file::" << name;
    m_installprogressbar->setFormat(name);
}

void MainWindow::onExtractCompleteValue(qulonglong value)
{
    qDebug() << "extract CompleteValue:" << value;
    showProgress(int(value));
}

void MainWindow::onExtractingResult(EC::ErrorCode ec)
{
    hideProgress();
    if (ec != EC::SUCCESS)
        return onExtractionFailed(ec);
    m_installprogressbar->setFormat(QStringLiteral("EXTRACT success!"));
    if (!CheckPluginFiles(false))
        onNotInstalled(Failure::FileMissing);
}

void MainWindow::onExtractionFailed(EC::ErrorCode ec)
{
    qDebug() << "plugin zip extract failed!!" << EC::name(ec);
    if (QFile::exists(Paths::packageFile()))
        forgetPackage();
    onNotInstalled(Failure::ExtractionFailed);
}

FailurePolicy::Step MainWindow::stepAfter(Failure failure) const
{
    return FailurePolicy::after(failure, {m_autoUpdateModel, m_retryCount, m_wrongPackages});
}

void MainWindow::onNotInstalled(Failure failure)
{
    const bool isMissing = failure == Failure::FileMissing;
    switch (stepAfter(failure)) {
    case Step::Report:
        qDebug() << (isMissing
                         ? "OnCheckFileResult OnExtractingResult EXTRACT success!"
                         : "ShowPluginInstallFailedMsgbox OnExtractingResult !m_autoUpdateModel");
        reportFailure();
        break;
    case Step::GiveUp:
        giveUp();
        break;
    default:
        if (isMissing)
            qDebug() << "UpdatePlugin retry on OnExtractingResult CheckPluginFiles failed";
        else
            qDebug() << "UpdatePlugin OnExtractingResult failed:" << m_retryCount;
        retryInstallation();
        break;
    }
}

void MainWindow::reportFailure()
{
    endRun();
    ShowMessage(InstallTexts::failed());
    MainController::instance()->WriteSetting(Keys::KeyLastCheckResult, false);
}

void MainWindow::giveUp()
{
    if (m_isAskedFor)
        ShowMessage(InstallTexts::failed());
    endRun();
    m_backOff.fail(m_newPackageMd5);
    MainController::instance()->WriteSetting(Keys::KeyLastCheckResult, false);
    ShowNew();
}

void MainWindow::retryInstallation()
{
    restartRun(true);
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
    // A run that has begun meanwhile finds out by itself.
    if (m_bRequesting)
        return;
    if (bIsRight) {
        qDebug() << "本地插件文件正确，自动更新完成";
        endRun();
        return;
    }
    qDebug() << "本地文件md5 不符，重新下载";
    if (QFile::exists(Paths::packageFile())) {
        qDebug() << "删除压缩包";
        QFile::remove(Paths::packageFile());
    }
    qDebug() << "压缩包md5 清空,触发重新下载";
    m_settings.packagecheck.clear();
    // Checking the same wrong files again would go round without a pause if the server has nothing
    // to fetch.
    UpdatePlugin(true, IfNothingNew::End);
}

void MainWindow::OnReturnPluginsCheckResult(QString strFilePath, bool bIsRight)
{
    if (!m_autoUpdateModel)
        qDebug() << "OnReturnPluginsCheckResult  false";
    if (bIsRight) {
        if (!m_autoUpdateModel && isVisible() && !isMinimized())
            ReminderWidget::showReminder(this);
        onInstalled(strFilePath);
    } else if (stepAfter(Failure::FileWrong) == Step::ShowBadge) {
        m_backOff.fail(m_newPackageMd5);
        ShowNew();
    } else {
        qDebug() << "plugin file check failed";
        ShowMessage(InstallTexts::failed());
    }
    closeRun();
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
    if (!m_keys.isEmpty())
        controller->WriteSetting(Keys::KeyPackageSha256, m_newPackageSha256);
}

void MainWindow::showProgress(int value)
{
    m_installprogressbar->setValue(value);
    m_installprogressbar->show();
    trayIcon()->setToolTip(QStringLiteral("%1 %2%").arg(windowTitle()).arg(value));
}

void MainWindow::hideProgress()
{
    m_installprogressbar->hide();
    trayIcon()->setToolTip(windowTitle());
}
