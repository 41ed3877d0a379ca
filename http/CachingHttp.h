#pragma once

#include "DiskCache.h"
#include "Http.h"

#include <QMap>
#include <QPointer>
#include <QVector>

#include <functional>
#include <memory>

class HttpReply;
class WrappedHttpReply;

/// A client that keeps successful bodies in files and serves them when the network fails.
///
/// The network is always asked first. Only whole documents fetched with GET and the default headers
/// take part; all other requests pass straight through. What is stored for an address is the answer
/// to the latest request that had a good one. Belongs to one thread and has to outlive its replies.
class CachingHttp : public Http
{
public:
    /// Says whether the body of a successful reply may be stored.
    using Validator = std::function<bool(const HttpReply &)>;
    /// MIME type in any case, without parameters, to validator; "*" stands for any type that is not
    /// listed. A body of a type without validator is stored.
    using Validators = QMap<QByteArray, Validator>;

    /// Sends through \a inner; for the store see DiskCache.
    CachingHttp(std::unique_ptr<Http> inner, const QByteArray &name, const QString &directory,
                qint64 maxSize);

    using Http::request;
    HttpReply *request(const HttpRequest &req) override;

    void setValidators(const Validators &validators);
    const Validators &validators() const;

    /// Where the body of \a url is kept: a folder for its host, a file for the whole address.
    static QByteArray cacheKey(const QUrl &url);

private:
    std::unique_ptr<Http> m_inner;
    DiskCache m_cache;
    Validators m_validators; ///< types in lower case
    QVector<QPointer<WrappedHttpReply>> m_underWay;
};
