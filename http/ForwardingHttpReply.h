#pragma once

#include "HttpReply.h"

/// Shows what another reply shows: the one that it is a child of, with which it goes.
///
/// Without one it shows a request that has no answer yet, and leaves its address to the class that
/// knows it.
class ForwardingHttpReply : public HttpReply
{
    Q_OBJECT
public:
    QUrl url() const override;
    int statusCode() const override;
    QString reasonPhrase() const override;
    QList<QPair<QByteArray, QByteArray>> headers() const override;
    QByteArray header(const QByteArray &name) const override;
    QByteArray body() const override;

protected:
    /// Null as long as there is none.
    const HttpReply *origin() const;
};
