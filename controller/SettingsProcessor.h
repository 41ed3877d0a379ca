#pragma once

#include "ApplicationSettings.h"

#include <QObject>
#include <QSettings>
#include <QVariant>

/// Keeps the program's own state in the settings file of the current directory.
///
/// Lives on the worker thread. No error of the file is reported: what can't be read has its
/// default, what can't be written is lost.
class SettingsProcessor : public QObject
{
    Q_OBJECT
public:
    explicit SettingsProcessor(QObject *parent = nullptr);

public slots:
    /// Reads the whole file; answered by SettingReady. Asked for once per process.
    void RefreshSettings();
    /// Writes one key, at once. The key "filemd5" takes a PluginFileList and merges it into the
    /// group of plugin files, which reaches the file with the next write-back; an empty list is
    /// ignored. Answered by SettingChanged, except for an empty list.
    void WriteSetting(QString strKey, QVariant value);

signals:
    /// \a Settings holds an ApplicationSettings::settings.
    void SettingReady(QVariant Settings);
    /// The key and value as they were handed in.
    void SettingChanged(QString strKey, QVariant value);

private:
    void readPlugins();
    bool writePlugins(const QVariant &value);

    QSettings *m_file; ///< a child, so that it moves between threads with this object
    ApplicationSettings::settings m_settings;
};
