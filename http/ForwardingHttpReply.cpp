#include "ForwardingHttpReply.h"

const HttpReply *ForwardingHttpReply::origin() const
{
    return qobject_cast<const HttpReply *>(parent());
}

QUrl ForwardingHttpReply::url() const
{
    return origin() ? origin()->url() : QUrl();
}

int ForwardingHttpReply::statusCode() const
{
    return origin() ? origin()->statusCode() : 0;
}

QString ForwardingHttpReply::reasonPhrase() const
{
    return origin() ? origin()->reasonPhrase() : HttpReply::reasonPhrase();
}

QList<QPair<QByteArray, QByteArray>> ForwardingHttpReply::headers() const
{
    return origin() ? origin()->headers() : HttpReply::headers();
}

QByteArray ForwardingHttpReply::header(const QByteArray &name) const
{
    return origin() ? origin()->header(name) : HttpReply::header(name);
}

QByteArray ForwardingHttpReply::body() const
{
    return origin() ? origin()->body() : QByteArray();
}
