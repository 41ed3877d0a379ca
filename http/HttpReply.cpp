#include "HttpReply.h"

QString HttpReply::reasonPhrase() const
{
    return QString();
}

QList<QPair<QByteArray, QByteArray>> HttpReply::headers() const
{
    return {};
}

QByteArray HttpReply::header(const QByteArray &) const
{
    return QByteArray();
}

bool HttpReply::isSuccessful() const
{
    return statusCode() >= 200 && statusCode() <= 299;
}
