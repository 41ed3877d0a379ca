#include "SettingsProcessor.h"

#include <QDebug>
#include <QStringList>

namespace Keys = ApplicationSettings;

SettingsProcessor::SettingsProcessor(QObject *parent)
    : QObject(parent), m_file(new QSettings(Keys::FileName, QSettings::IniFormat, this))
{
}

void SettingsProcessor::RefreshSettings()
{
    qDebug() << "SettingsProcessor::RefreshSettings";
    m_file->sync();
    m_settings.game = m_file->value(Keys::KeyGame).toString();
    m_settings.interval = m_file->value(Keys::KeyInterval).toInt();
    if (m_settings.interval == 0) {
        m_settings.interval = Keys::DefaultInterval;
        m_file->setValue(Keys::KeyInterval, Keys::DefaultInterval);
    }
    m_settings.PluginSupportGameVersion = m_file->value(Keys::KeySupportGameVersion).toString();
    m_settings.updatedate = m_file->value(Keys::KeyUpdateDate).toString();
    m_settings.pver = m_file->value(Keys::KeyPluginVersion).toString();
    m_settings.lastcheckret = m_file->value(Keys::KeyLastCheckResult).toBool();
    if (!m_file->allKeys().contains(Keys::KeyReplayUpload))
        m_file->setValue(Keys::KeyReplayUpload, true);
    m_settings.pluginloaderplayopen = m_file->value(Keys::KeyReplayUpload, true).toBool();
    readPlugins();
    qDebug() << "gamepath=" << m_settings.game;
    m_settings.autorun = m_file->value(Keys::KeyAutoRun).toBool();
    m_settings.packagecheck = m_file->value(Keys::KeyPackageMd5).toString();
    m_settings.manifestserial = m_file->value(Keys::KeyManifestSerial).toString();
    m_settings.manifestserials = m_file->value(Keys::KeyManifestSerials).toString();
    m_settings.needssignature2 = m_file->value(Keys::KeyNeedsSignature2).toBool();
    m_settings.packagesha256 = m_file->value(Keys::KeyPackageSha256).toString();
    emit SettingReady(QVariant::fromValue(m_settings));
}

void SettingsProcessor::readPlugins()
{
    m_file->beginGroup(Keys::GroupPlugins);
    const QStringList files = m_file->allKeys();
    qDebug() << "filemd5:" << files;
    for (const QString &file : files)
        m_settings.plugins[file] = m_file->value(file).toString();
    m_file->endGroup();
    qDebug() << "filemd5:" << m_settings.plugins;
}

void SettingsProcessor::WriteSetting(QString strKey, QVariant value)
{
    qDebug() << "SettingsProcessor::WriteSetting" << strKey << value;
    if (strKey == Keys::KeyFilesMd5) {
        if (writePlugins(value))
            emit SettingChanged(strKey, value);
        return;
    }
    m_file->setValue(strKey, value);
    m_file->sync();
    emit SettingChanged(strKey, value);
}

bool SettingsProcessor::writePlugins(const QVariant &value)
{
    const auto files = value.value<PluginFileList>();
    if (files.isEmpty())
        return false;
    m_file->beginGroup(Keys::GroupPlugins);
    for (auto file = files.begin(); file != files.end(); ++file) {
        QString key = file.key();
        key.replace(QLatin1String("\\"), QLatin1String("\\\\"));
        m_file->setValue(key, file.value());
    }
    m_file->endGroup();
    return true;
}
