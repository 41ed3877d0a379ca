#pragma once

#include <QMutex>
#include <QObject>
#include <QString>

/// Reads the plugin's own configuration file in the game folder, and rewrites its options.
///
/// Lives on the worker thread; each call opens, parses and closes the file anew. The file belongs
/// to the plugin: it is never created here, and what is not understood in it is kept.
class PluginConfigDataReader : public QObject
{
    Q_OBJECT
public:
    explicit PluginConfigDataReader(QObject *parent = nullptr);

public slots:
    /// Answered by the five value signals; by none when the file can't be opened, is larger than
    /// 16 MiB, nested deeper than 1,000 elements, or not well-formed.
    void readPluginConfigData(QString strGamePath);
    /// Answered by exactly one pluginConfigWriteComplete, whatever the outcome. A write that
    /// fails, or that would change more than the options, leaves the old content in place.
    void writePluginConfigData(bool bHelloMessageOpen, bool bUploadStandingsOpen,
                               bool bUploadReplayOpen, QString strGamePath);

signals:
    /// The plugin's version text; may be empty.
    void pluginVersion(QString strVersion);
    void pluginHelloMessageOpen(bool bOpen);
    void pluginUploadStandingsOpen(bool bOpen);
    void pluginUploadReplayOpen(bool bOpen);
    void pluginConfigWriteComplete();
    /// The game version that the plugin supports; not sent when the file names none.
    void pluginSupportGameVersion(QString strVersion);

private:
    void save(const QByteArray &xml, const QString &path) const;

    QMutex m_writing; ///< held for the whole of a write
};
