#pragma once

#include "DownloadManager.h"
#include "ErrorCode.h"

#include <QObject>

/// Fetches the plugin package to its fixed place beside the program.
///
/// Lives on the thread that makes it (the main thread); nothing blocks. What was fetched is not
/// checked here: after a failure the package file is missing, which the check that follows finds.
class PluginDownloader : public QObject
{
    Q_OBJECT
public:
    explicit PluginDownloader(QObject *parent = nullptr);

public slots:
    /// Starts fetching the package at \a strDownloadUrl. Answered by one DownloadPluginFinished
    /// when all that was asked for so far has ended, after a DownloadPluginError for each failure.
    /// The package is refused when it has more than \a strSize bytes, in decimal digits; what is no
    /// number sets no bound of its own.
    void DownloadPlugin(QString strDownloadUrl, QString strSize = QString());

signals:
    /// All downloads have ended, well or not; \a strFilePath is the package file.
    void DownloadPluginFinished(QString strFilePath);
    /// The package can't be saved, or its transfer failed (DOWNLOAD_PLUGIN_NETFAILED); the system's
    /// own text.
    void DownloadPluginError(EC::ErrorCode ec, QString errorString);
    /// Mean speed so far, such as "1.5 MB/s".
    void DownloadPluginSpeed(QString strSpeed);
    /// Percent, 0 to 100; not sent while the package's size is unknown.
    void DownloadPluginProgress(int progress);

private slots:
    void finished(QString strFileName);
    void error(QString errorString);
    void onUpdateCurrentSpeed(double &speed, QString strUnit);
    void onUpdateCurrentDownProgress(int &currentSize, int &totalSize);

private:
    DownloadManager *m_queue;
};
