#include "SettingsProcessor.h"

#include "SettingsFile.h"

#include <QCoreApplication>
#include <QDebug>
#include <QEvent>
#include <QFileInfo>
#include <QStringList>

namespace Keys = ApplicationSettings;

SettingsProcessor::SettingsProcessor(QObject *parent)
    : QObject(parent), m_file(new QSettings(Keys::FileName, QSettings::IniFormat, this))
{
    m_file->installEventFilter(this);
}

SettingsProcessor::~SettingsProcessor()
{
    m_file->removeEventFilter(this);
    if (!m_isPending || SettingsFile::save(*m_file))
        return;
    // Its destructor would write, and empty the file. Never destroyed, but still reachable.
    static QSettings *unsaved = nullptr;
    m_file->setParent(nullptr);
    if (unsaved)
        unsaved->setParent(m_file);
    unsaved = m_file;
}

bool SettingsProcessor::eventFilter(QObject *watched, QEvent *event)
{
    // The deferred write-back of QSettings, which doesn't look whether there is space.
    if (watched != m_file || event->type() != QEvent::UpdateRequest)
        return QObject::eventFilter(watched, event);
    save();
    return true;
}

void SettingsProcessor::save()
{
    QCoreApplication::removePostedEvents(m_file, QEvent::UpdateRequest);
    m_isPending = !SettingsFile::save(*m_file);
    if (!m_isPending)
        m_file->sync(); // for QSettings, too: the next change is to ask for a write-back
    else if (!m_isTold)
        emit SettingsNotSaved(QFileInfo(m_file->fileName()).path());
    m_isTold = m_isPending;
}

void SettingsProcessor::set(const QString &key, const QVariant &value)
{
    m_file->setValue(key, value);
    m_isPending = true;
}

void SettingsProcessor::restore()
{
    m_file->sync();
    const QString name = SettingsFile::readable();
    if (name == QLatin1String(Keys::FileName))
        return;
    qDebug() << "settings file is empty, taking" << name;
    const QSettings copy(name, QSettings::IniFormat);
    const QStringList keys = copy.allKeys();
    for (const QString &key : keys)
        set(key, copy.value(key));
}

void SettingsProcessor::RefreshSettings()
{
    qDebug() << "SettingsProcessor::RefreshSettings";
    if (m_isPending)
        save(); // to sync would be to write
    else
        restore();
    m_settings.game = m_file->value(Keys::KeyGame).toString();
    m_settings.interval = m_file->value(Keys::KeyInterval).toInt();
    if (m_settings.interval == 0) {
        m_settings.interval = Keys::DefaultInterval;
        set(Keys::KeyInterval, Keys::DefaultInterval);
    }
    m_settings.PluginSupportGameVersion = m_file->value(Keys::KeySupportGameVersion).toString();
    m_settings.updatedate = m_file->value(Keys::KeyUpdateDate).toString();
    m_settings.pver = m_file->value(Keys::KeyPluginVersion).toString();
    m_settings.lastcheckret = m_file->value(Keys::KeyLastCheckResult).toBool();
    if (!m_file->allKeys().contains(Keys::KeyReplayUpload))
        set(Keys::KeyReplayUpload, true);
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
    set(strKey, value);
    save();
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
        set(key, file.value());
    }
    m_file->endGroup();
    return true;
}
