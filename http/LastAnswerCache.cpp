#include "LastAnswerCache.h"

#include <QBuffer>
#include <QDateTime>
#include <QLocale>

#include <algorithm>

namespace
{
constexpr int LongestTag = 256; // bytes; servers refuse requests with far larger headers

QByteArray valueOf(const LastAnswerCache::Headers &headers, const char *name)
{
    QByteArray value;
    for (const auto &header : headers) {
        if (header.first.compare(name, Qt::CaseInsensitive) == 0)
            value = header.second;
    }
    return value;
}

/// Invalid unless \a text is a date as HTTP has it, such as "Sun, 06 Nov 1994 08:49:37 GMT".
QDateTime dateFrom(const QByteArray &text)
{
    QDateTime date = QLocale::c().toDateTime(QString::fromLatin1(text),
                                             QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'"));
    date.setTimeSpec(Qt::UTC);
    return date;
}

/// Whether a server will take it back in a request.
bool isUsableTag(const QByteArray &tag)
{
    const auto isPrintable = [](char c) { return c >= '!' && c <= '~'; };
    return !tag.isEmpty() && tag.size() <= LongestTag &&
           std::all_of(tag.begin(), tag.end(), isPrintable);
}

/// A date of the future would match whatever is published before it.
bool isFromFuture(const QDateTime &lastModified, const QDateTime &answered)
{
    return lastModified > QDateTime::currentDateTimeUtc().addDays(1) ||
           (answered.isValid() && lastModified > answered);
}
} // namespace

LastAnswerCache::LastAnswerCache(std::chrono::milliseconds lifetime) : m_lifetime(lifetime) {}

void LastAnswerCache::keep(const QUrl &url, const Headers &headers, const QByteArray &body)
{
    clear();
    const QByteArray tag = valueOf(headers, "ETag");
    const QDateTime lastModified = dateFrom(valueOf(headers, "Last-Modified"));
    const bool mayBeKept = !valueOf(headers, "Cache-Control").toLower().contains("no-store");
    if (!mayBeKept || isFromFuture(lastModified, dateFrom(valueOf(headers, "Date"))))
        return;
    if (!isUsableTag(tag) && !lastModified.isValid())
        return;

    // What the network layer takes for an answer that is not to be used without asking.
    QNetworkCacheMetaData::RawHeaderList kept{{"Cache-Control", "must-revalidate"}};
    if (isUsableTag(tag))
        kept += qMakePair(QByteArray("ETag"), tag);
    m_metaData.setUrl(url);
    m_metaData.setRawHeaders(kept);
    m_metaData.setLastModified(lastModified);
    m_metaData.setSaveToDisk(true); // without which it is not used at all
    m_body = body;
    m_keptAt = QDateTime::currentMSecsSinceEpoch();
}

void LastAnswerCache::clear()
{
    m_metaData = {};
    m_body.clear();
}

QNetworkCacheMetaData LastAnswerCache::metaData(const QUrl &url)
{
    const qint64 age = QDateTime::currentMSecsSinceEpoch() - m_keptAt;
    if (age < 0 || age >= m_lifetime.count())
        clear();
    return m_metaData.isValid() && m_metaData.url() == url ? m_metaData : QNetworkCacheMetaData();
}

QIODevice *LastAnswerCache::data(const QUrl &url)
{
    if (!metaData(url).isValid())
        return nullptr;
    auto *device = new QBuffer;
    device->setData(m_body);
    device->open(QIODevice::ReadOnly);
    return device;
}

bool LastAnswerCache::remove(const QUrl &url)
{
    const bool isKept = m_metaData.isValid() && m_metaData.url() == url;
    if (isKept)
        clear();
    return isKept;
}
