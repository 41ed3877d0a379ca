#include "RevalidatingCache.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDateTime>
#include <QNetworkRequest>

#include <memory>

namespace
{
constexpr auto Seal = QNetworkRequest::User;

/// Over all that a later request depends on.
QByteArray seal(const QNetworkCacheMetaData &metaData, const QByteArray &body)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    const QNetworkCacheMetaData::RawHeaderList headers = metaData.rawHeaders();
    for (const auto &header : headers)
        hash.addData(header.first + ": " + header.second + '\n');
    hash.addData(metaData.lastModified().toString(Qt::ISODate).toUtf8() + '\n');
    hash.addData(body);
    return hash.result();
}
} // namespace

RevalidatingCache::RevalidatingCache(const QString &folder, qint64 maximumSize, QObject *parent)
    : QNetworkDiskCache(parent)
{
    setCacheDirectory(folder);
    setMaximumCacheSize(maximumSize);
}

RevalidatingCache::~RevalidatingCache()
{
    qDeleteAll(m_coming.keyBegin(), m_coming.keyEnd());
}

QNetworkCacheMetaData RevalidatingCache::metaData(const QUrl &url)
{
    QNetworkCacheMetaData known = QNetworkDiskCache::metaData(url);
    if (!known.isValid())
        return known;
    const std::unique_ptr<QIODevice> body(data(url));
    if (!body || known.attributes().value(Seal).toByteArray() != seal(known, body->readAll())) {
        remove(url);
        return {};
    }
    // The network layer takes this for an answer that is not to be used without asking.
    QNetworkCacheMetaData::RawHeaderList headers;
    const QNetworkCacheMetaData::RawHeaderList stored = known.rawHeaders();
    for (const auto &header : stored) {
        if (header.first.toLower() != "cache-control")
            headers += header;
    }
    known.setRawHeaders(
        headers << qMakePair(QByteArray("Cache-Control"), QByteArray("must-revalidate")));
    return known;
}

void RevalidatingCache::updateMetaData(const QNetworkCacheMetaData &) {}

QIODevice *RevalidatingCache::prepare(const QNetworkCacheMetaData &metaData)
{
    if (!metaData.isValid() || !metaData.saveToDisk())
        return nullptr;
    auto *device = new QBuffer;
    device->open(QIODevice::ReadWrite);
    m_coming.insert(device, metaData);
    return device;
}

void RevalidatingCache::insert(QIODevice *device)
{
    QNetworkCacheMetaData metaData = m_coming.take(device);
    const std::unique_ptr<QBuffer> buffer(qobject_cast<QBuffer *>(device));
    QNetworkCacheMetaData::AttributesMap attributes = metaData.attributes();
    attributes.insert(Seal, seal(metaData, buffer->data()));
    metaData.setAttributes(attributes);
    setCacheDirectory(cacheDirectory()); // its folders may have been cleared away meanwhile
    if (QIODevice *file = QNetworkDiskCache::prepare(metaData)) {
        file->write(buffer->data());
        QNetworkDiskCache::insert(file);
    }
}

bool RevalidatingCache::remove(const QUrl &url)
{
    // So the network layer takes back an answer that breaks off.
    for (auto it = m_coming.begin(); it != m_coming.end();) {
        if (it->url() == url) {
            delete it.key();
            it = m_coming.erase(it);
        } else {
            ++it;
        }
    }
    return QNetworkDiskCache::remove(url);
}
