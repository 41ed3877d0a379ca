#pragma once

#include <QAbstractNetworkCache>

#include <chrono>

/// Keeps the last good answer, so that one that has not changed since need not be sent again.
///
/// It never answers by itself: the server is asked each time, and only a 304 to a request that
/// named this answer takes what is here. Nothing is believed for longer than its lifetime, which
/// ends with the process: whoever forged an answer once must not be confirmed by an honest server
/// for ever. In memory for that reason; a file could never be used, since each start asks anew.
///
/// The network layer reads it and sets the conditions; what is kept is handed over by keep(), as
/// decoded bytes. One thread, that of its network access manager.
class LastAnswerCache : public QAbstractNetworkCache
{
    Q_OBJECT
public:
    using Headers = QList<QPair<QByteArray, QByteArray>>;

    /// What is kept is asked for without conditions \a lifetime after it came.
    explicit LastAnswerCache(std::chrono::milliseconds lifetime = std::chrono::hours(24));

    /// Replaces what there is by the answer of \a url, if its headers allow that and name a
    /// plausible version of it; else there is nothing afterwards.
    void keep(const QUrl &url, const Headers &headers, const QByteArray &body);
    /// The next request asks without conditions.
    void clear() override;

    QNetworkCacheMetaData metaData(const QUrl &url) override;
    QIODevice *data(const QUrl &url) override;
    bool remove(const QUrl &url) override;
    qint64 cacheSize() const override { return m_body.size(); }

    /// Nothing: what is kept came by keep().
    void updateMetaData(const QNetworkCacheMetaData &) override {}
    QIODevice *prepare(const QNetworkCacheMetaData &) override { return nullptr; }
    void insert(QIODevice *) override {}

private:
    const std::chrono::milliseconds m_lifetime;
    QNetworkCacheMetaData m_metaData; ///< invalid when there is nothing
    QByteArray m_body;
    qint64 m_keptAt = 0; ///< ms since 1970; the clock that goes on while the machine sleeps
};
