#pragma once

#include "ApplicationSettings.h"

#include <QObject>
#include <QSettings>
#include <QVariant>

/// Keeps the program's own state in the settings file of the current directory.
///
/// Lives on the worker thread. What can't be read has its default. What can't be written, for want
/// of space or of rights, holds for this run and is tried again with the next write; the file stays
/// as it was. An emptied file is read from its copy.
class SettingsProcessor : public QObject
{
    Q_OBJECT
public:
    explicit SettingsProcessor(QObject *parent = nullptr);
    /// Writes what is pending, once more, if it can be.
    ~SettingsProcessor() override;

    bool eventFilter(QObject *watched, QEvent *event) override;

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
    /// Deliberately told: the settings in \a strFolder can't be saved. Once until they can be
    /// again.
    void SettingsNotSaved(QString strFolder);

private:
    void save();
    void set(const QString &key, const QVariant &value);
    void restore();
    void readPlugins();
    bool writePlugins(const QVariant &value);

    QSettings *m_file;        ///< a child, so that it moves between threads with this object
    bool m_isPending = false; ///< something isn't in the file yet
    bool m_isTold = false;    ///< that the last save failed
    ApplicationSettings::settings m_settings;
};
