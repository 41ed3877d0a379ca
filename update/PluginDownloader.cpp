#include "PluginDownloader.h"

#include "Paths.h"

PluginDownloader::PluginDownloader(QObject *parent)
    : QObject(parent), m_queue(new DownloadManager(this))
{
    connect(m_queue, &DownloadManager::finished, this, &PluginDownloader::finished);
    connect(m_queue, &DownloadManager::error, this, &PluginDownloader::error);
    connect(m_queue, &DownloadManager::currentSpeed, this, &PluginDownloader::onUpdateCurrentSpeed);
    connect(m_queue, &DownloadManager::currentDownProgress, this,
            &PluginDownloader::onUpdateCurrentDownProgress);
}

void PluginDownloader::DownloadPlugin(QString strDownloadUrl, QString strSize)
{
    m_queue->append(QUrl(strDownloadUrl, QUrl::TolerantMode), Paths::packageFile(),
                    DownloadLimit::sizeFromText(strSize));
}

void PluginDownloader::finished(QString strFileName)
{
    emit DownloadPluginFinished(strFileName);
}

void PluginDownloader::error(QString errorString)
{
    emit DownloadPluginError(EC::DOWNLOAD_PLUGIN_NETFAILED, errorString);
}

void PluginDownloader::onUpdateCurrentSpeed(double &speed, QString strUnit)
{
    emit DownloadPluginSpeed(TransferSpeed{speed, strUnit}.text());
}

void PluginDownloader::onUpdateCurrentDownProgress(int &currentSize, int &totalSize)
{
    if (totalSize > 0)
        emit DownloadPluginProgress(int(qint64(currentSize) * 100 / totalSize));
}
