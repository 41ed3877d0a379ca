#pragma once

#include <QHash>
#include <QNetworkDiskCache>

/// Keeps answers on disk so that one that has not changed since need not be sent again.
///
/// It never answers by itself: the server is asked each time, whatever lifetime its last answer
/// named, and only a 304 takes what is here. What was damaged on disk is not believed, and a folder
/// that can't be used costs no more than the saving. One thread, that of its network access
/// manager.
class RevalidatingCache : public QNetworkDiskCache
{
    Q_OBJECT
public:
    /// Keeps at most \a maximumSize bytes below \a folder.
    RevalidatingCache(const QString &folder, qint64 maximumSize, QObject *parent = nullptr);
    ~RevalidatingCache() override;

    /// Of an answer that is whole on disk; else invalid.
    QNetworkCacheMetaData metaData(const QUrl &url) override;
    /// Nothing: lifetimes don't count, so an answer that is still good need not be written again.
    void updateMetaData(const QNetworkCacheMetaData &metaData) override;
    QIODevice *prepare(const QNetworkCacheMetaData &metaData) override;
    void insert(QIODevice *device) override;
    bool remove(const QUrl &url) override;

private:
    QHash<QIODevice *, QNetworkCacheMetaData> m_coming; ///< answers that are being received
};
