// What the settings store reports to the window.

#include "MainWindow.h"

#include "InstallTexts.h"
#include "MainController.h"

#include <QAction>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

#include <limits>
#include <utility>

namespace Keys = ApplicationSettings;

namespace
{
/// The settings file is anybody's to edit: a negative period counts as the default, one that the
/// timer can't hold as the longest that it can.
int periodMs(int seconds)
{
    const qint64 usable = seconds < 0 ? ApplicationSettings::DefaultInterval : seconds;
    return int(qMin<qint64>(usable * 1000, std::numeric_limits<int>::max()));
}
} // namespace

void MainWindow::OnSettingRefreshed(QVariant Setting)
{
    qDebug() << "void __thiscall MainWindow::OnSettingRefreshed(class QVariant)";
    m_settings = Setting.value<ApplicationSettings::settings>();
    qDebug() << "game install path:" << m_settings.game;
    autoStartAction()->setChecked(m_settings.autorun);
    if (m_settings.game.isEmpty() || !QFileInfo::exists(m_settings.game)) {
        m_GamePath->clear();
        qDebug() << "game not found";
    }
    // An empty path names the current directory, which exists.
    if (!QDir(m_settings.game).exists()) {
        // What the store reports in a moment, so that the field stays empty.
        m_settings.game.clear();
        MainController::instance()->WriteSetting(Keys::KeyGame, QString());
        m_GamePath->clear();
        qDebug() << "game dir not exists";
    }
    showStoredVersions();
    if (m_settings.interval != 0)
        m_autoUpdateTimer->start(periodMs(m_settings.interval));

    m_uploadreplayopen->setAnimation(false);
    m_uploadreplayopen->setChecked(m_settings.pluginloaderplayopen);
    showReplayState(m_settings.pluginloaderplayopen);

    if (m_settings.game.isEmpty()) {
        m_installPlugin->setText(InstallTexts::install());
        return;
    }
    qDebug() << "game is installed,start plugin test";
    OnAutoUpdate();
    showGamePath(m_settings.game);
}

void MainWindow::showStoredVersions()
{
    const std::pair<QLabel *, QString> shown[] = {
        {m_pluginver, m_settings.pver},
        {m_updatedate, m_settings.updatedate},
        {m_pGameSupportVersion, m_settings.PluginSupportGameVersion}};
    for (const auto &[place, version] : shown) {
        if (!version.isEmpty())
            showVersion(place, version);
    }
}

void MainWindow::OnSettingChanged(QString strKey, QVariant value)
{
    qDebug() << "OnSettingChanged" << strKey << value;
    if (strKey == Keys::KeyGame) {
        m_settings.game = value.toString();
        qDebug() << "UpdatePlugin OnSettingChanged game path";
        UpdatePlugin(false);
    } else if (strKey == Keys::KeyPluginVersion) {
        qDebug() << "UpdatePlugin OnSettingChanged key_PuginVersion" << value;
        m_settings.pver = value.toString();
        if (!m_settings.pver.isEmpty())
            showVersion(m_pluginver, m_settings.pver);
    } else if (strKey == Keys::KeyFilesMd5) {
        qDebug() << "UpdatePlugin OnSettingChanged key_FilesMd5";
        m_settings.plugins = value.value<PluginFileList>();
    } else if (strKey == Keys::KeyPackageMd5) {
        qDebug() << "UpdatePlugin OnSettingChanged key_PackageMd5" << value;
        m_settings.packagecheck = value.toString();
    } else if (strKey == Keys::KeyPackageSha256) {
        m_settings.packagesha256 = value.toString();
    } else if (strKey == Keys::KeyLastCheckResult) {
        m_settings.lastcheckret = value.toBool();
    } else if (strKey == Keys::KeyReplayUpload) {
        m_settings.pluginloaderplayopen = value.toBool();
    } else if (strKey == Keys::KeySupportGameVersion) {
        m_settings.PluginSupportGameVersion = value.toString();
        showVersion(m_pGameSupportVersion, m_settings.PluginSupportGameVersion);
    } else if (strKey == Keys::KeyUpdateDate) {
        m_settings.updatedate = value.toString();
        showVersion(m_updatedate, m_settings.updatedate);
    }
}
