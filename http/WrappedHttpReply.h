#pragma once

#include "ForwardingHttpReply.h"

class CachingHttp;
class DiskCache;

/// Another reply, with a stored body in place of a failure where there is one.
///
/// Belongs to the reply that it wraps and goes with it. Until finished(), and in its own
/// operations, it shows what that reply shows; what finished() carries is either that reply or a
/// CachedHttpReply.
class WrappedHttpReply : public ForwardingHttpReply
{
    Q_OBJECT
public:
    /// Wraps \a origin and files its body in \a cache under \a key. \a client and \a cache have to
    /// outlive the reply.
    WrappedHttpReply(HttpReply *origin, const CachingHttp &client, DiskCache &cache,
                     const QByteArray &key);

    QByteArray key() const { return m_key; }

public slots:
    /// A later request has got its answer, so this one's will not be stored any more.
    void becomeOutdated();

signals:
    /// The body is good and goes into the cache now.
    void aboutToStore();

private slots:
    void originFinished(const HttpReply &reply);

private:
    bool serveStale(const HttpReply &reply);
    bool mayStore(const HttpReply &reply) const;

    const CachingHttp &m_client;
    DiskCache &m_cache;
    const QByteArray m_key;
    bool m_outdated = false;
};
