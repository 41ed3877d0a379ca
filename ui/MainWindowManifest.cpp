// Asking the update server what there is, and deciding whether the package has to be fetched.

#include "MainWindow.h"

#include "Http.h"
#include "HttpReply.h"
#include "InstallTexts.h"
#include "MainController.h"
#include "Paths.h"
#include "UpdateManifest.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>

namespace Keys = ApplicationSettings;

namespace
{
// Deliberately bounded: neither a server that drips nor one that redirects without end may keep the
// program from its next check. With all retries.
constexpr std::chrono::minutes CheckLimit(5);
constexpr int LoggedSize = 64 * 1024; // bytes of a body

/// Whether there is all that an update needs.
bool isComplete(const UpdateManifest &manifest)
{
    return !manifest.isServerError && manifest.hasData && !manifest.version.isEmpty() &&
           manifest.packageMd5 && manifest.link && manifest.files && !manifest.files->isEmpty();
}

/// \a name comes from outside and stands without quotes, where a line break would forge a line.
QString loggable(QString name)
{
    for (QChar &c : name) {
        if (!c.isPrint() && !c.isSurrogate())
            c = QLatin1Char('?');
    }
    return name;
}
} // namespace

void MainWindow::UpdatePlugin(bool autoUpdate, IfNothingNew then)
{
    if (m_bRequesting)
        return;
    if (!hasGameFolder()) {
        // Nothing could be installed, and an automatic run that its folder has left must not stay
        // marked as running.
        qDebug() << "UpdatePlugin no game folder";
        endRun();
        return;
    }
    beginRun(autoUpdate);
    // The user, and the run after a wrong package, need what the server offers now; an answer that
    // was kept may be forged.
    if (!autoUpdate)
        Http::forgetAnswer();
    HttpRequest request;
    request.url = UpdateManifest::url(m_hosts.update);
    request.timeLimit = CheckLimit;
    HttpReply *reply = Http::instance().request(request);
    const auto onFinished = [this, autoUpdate, then](const HttpReply &finished) {
        m_manifestAnswer = {};
        onManifestReply(finished, autoUpdate, then);
    };
    m_manifestAnswer = connect(reply, &HttpReply::finished, this, onFinished);
}

void MainWindow::onManifestReply(const HttpReply &reply, bool autoUpdate, IfNothingNew then)
{
    if (!reply.isSuccessful()) {
        // The install button makes an automatic run the user's.
        if (!m_autoUpdateModel)
            ShowMessage(InstallTexts::failed());
        qDebug() << "http failed autoUpdateModel close";
        endRun();
        qDebug() << "Something's wrong here" << reply.statusCode() << reply.reasonPhrase();
        return;
    }
    const QByteArray body = reply.body();
    qDebug() << body.left(LoggedSize);
    qDebug() << "ReadPlginUpdateRequestBody";
    if (ReadPlginUpdateRequestBody(QJsonDocument::fromJson(body).object()))
        return;
    if (autoUpdate && then == IfNothingNew::CheckLocalFiles) {
        qDebug() << "自动更新:" << true << "云端md5无更新，检测本地文件";
        CheckPluginFiles(true);
    }
}

bool MainWindow::ReadPlginUpdateRequestBody(const QJsonObject &body)
{
    UpdateManifest manifest = UpdateManifest::fromJson(body);
    if (!isComplete(manifest))
        Http::forgetAnswer();
    if (manifest.isServerError) {
        qDebug() << "http request error!!";
        endRun();
        return false;
    }
    if (!manifest.hasData)
        return endWithoutUpdate();
    if (!isAccepted(body.value(QLatin1String("data")).toObject(), manifest)) {
        // It may be forged; an honest server must not be able to confirm it.
        Http::forgetAnswer();
        return endWithoutUpdate();
    }

    bool need = isDifferent(manifest);
    if (manifest.files)
        storeFileList(*manifest.files);
    if (!m_settings.lastcheckret)
        need = true;
    if (!CheckPluginExist()) {
        qDebug() << "plugin file not exist redownload";
        need = true;
    }
    // Without an address nothing would ever end this run.
    if (!need || !manifest.link)
        return endWithoutUpdate();
    if (m_backOff.holds(m_newPackageMd5)) {
        qDebug() << "package was given up, not fetched this time" << m_newPackageMd5;
        return endWithoutUpdate();
    }
    startDownload(*manifest.link, manifest.packageSize.value_or(QString()));
    return true;
}

bool MainWindow::isAccepted(const QJsonObject &fields, UpdateManifest &manifest)
{
    if (m_keys.isEmpty())
        return true;
    using Outcome = ManifestTrust::Verdict::Outcome;
    const ManifestTrust::Memory memory{m_settings.manifestserials, m_settings.manifestserial,
                                       m_settings.needssignature2};
    const auto verdict = ManifestTrust::judge(fields, {m_keys, m_lowestSerial}, memory,
                                              QDateTime::currentSecsSinceEpoch());
    if (verdict.outcome == Outcome::Refused) {
        qDebug() << "manifest refused:" << verdict.reason;
        if (m_isAskedFor)
            ShowMessage(InstallTexts::failed());
        return false;
    }
    if (verdict.outcome == Outcome::Outdated) {
        // Somebody repeats an old manifest, or a mirror lags.
        qDebug() << "manifest older than the last one:" << verdict.reason;
        return false;
    }
    m_newPackageSha256 = *manifest.packageSha256;
    if (!verdict.isSizeSigned)
        manifest.packageSize.reset();
    rememberManifest(verdict.memory);
    return true;
}

void MainWindow::rememberManifest(const ManifestTrust::Memory &memory)
{
    MainController *controller = MainController::instance();
    if (memory.serials != m_settings.manifestserials)
        controller->WriteSetting(Keys::KeyManifestSerials, memory.serials);
    if (memory.needsSignature2 != m_settings.needssignature2)
        controller->WriteSetting(Keys::KeyNeedsSignature2, memory.needsSignature2);
    // The next manifest may come before the store has answered.
    m_settings.manifestserials = memory.serials;
    m_settings.needssignature2 = memory.needsSignature2;
}

bool MainWindow::isDifferent(const UpdateManifest &manifest)
{
    bool different = false;
    if (manifest.version != m_settings.pver) {
        qDebug() << "plugin need update!!" << manifest.version
                 << "local version:" << m_settings.pver;
        m_newVersion = manifest.version;
        different = true;
    }
    if (manifest.packageMd5 && *manifest.packageMd5 != m_settings.packagecheck) {
        qDebug() << "plugin need update!!" << *manifest.packageMd5
                 << "local pac md5:" << m_settings.packagecheck;
        m_newPackageMd5 = *manifest.packageMd5;
        different = true;
    }
    if (manifest.updatedAt) {
        m_newUpdateDate = manifest.date();
        qDebug() << "update:" << m_newUpdateDate;
    }
    return different;
}

void MainWindow::storeFileList(const PluginFileList &files)
{
    for (auto file = files.begin(); file != files.end(); ++file)
        qDebug().noquote() << "file = " << loggable(file.key())
                           << ", md5 = " << loggable(file.value());
    MainController::instance()->WriteSetting(Keys::KeyFilesMd5, QVariant::fromValue(files));
}

void MainWindow::startDownload(const QString &link, const QString &size)
{
    qDebug() << "plugin start download" << link;
    QDir().mkpath(Paths::downloadFolder());
    // First the setting: when the package file can't be opened, the download ends within its call,
    // and what that empties must not be filled again behind it.
    MainController::instance()->WriteSetting(Keys::KeyPackageMd5, m_newPackageMd5);
    MainController::instance()->DownloadPlugin(link, size);
}

bool MainWindow::endWithoutUpdate()
{
    qDebug() << "no need update plugin";
    closeRun();
    return false;
}

bool MainWindow::CheckPluginExist()
{
    bool complete = true;
    const PluginFileList &files = m_settings.plugins;
    for (auto file = files.begin(); file != files.end(); ++file) {
        const QString path = gameFile(file.key());
        if (QFile::exists(path))
            continue;
        qDebug() << "check plugin file exist failed" << path;
        QFile::remove(Paths::packageFile());
        complete = false;
    }
    return complete;
}
