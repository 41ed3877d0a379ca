#pragma once

#include "HttpReply.h"

/// An answer out of a store: always a success, without headers.
class CachedHttpReply : public HttpReply
{
    Q_OBJECT
public:
    CachedHttpReply(const QByteArray &body, const QUrl &url);

    QUrl url() const override;
    int statusCode() const override;
    QByteArray body() const override;

public slots:
    /// Emits data() and finished() and has the reply deleted.
    void emitSignals();

private:
    const QByteArray m_bytes;
    const QUrl m_url;
};
