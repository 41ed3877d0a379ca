#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QUrl>

/// The answer to one HTTP request, and the object that announces it.
///
/// Nothing is emitted before control has returned to the event loop, so it is early enough to
/// connect in the turn of the request. A successful request emits data() and then finished(), a
/// failed one error() and then finished(); finished() comes exactly once and last. All of it
/// happens on the thread that made the request.
///
/// A reply belongs to itself and is deleted soon after finished(): callers neither delete it nor
/// keep it beyond their handler of that signal.
class HttpReply : public QObject
{
    Q_OBJECT
public:
    HttpReply() = default;

    /// Where the answer came from: after redirects, the last address.
    virtual QUrl url() const = 0;
    /// HTTP status, 0 when there was no answer.
    virtual int statusCode() const = 0;
    virtual QString reasonPhrase() const;
    /// Name and value of each header of the answer.
    virtual QList<QPair<QByteArray, QByteArray>> headers() const;
    /// The value of the header \a name, empty when it is missing.
    virtual QByteArray header(const QByteArray &name) const;
    /// The whole body of a successful request, empty for any other.
    virtual QByteArray body() const = 0;

    /// Whether the status is one of 200 to 299.
    bool isSuccessful() const;

signals:
    /// The whole body of a successful request.
    void data(const QByteArray &bytes);
    /// Why the request failed, in words for a log.
    void error(const QString &message);
    /// The end of the request. \a reply is a reference to an object that is gone soon after, so the
    /// signal can only be handled in the reply's own thread, by a direct connection (which is what
    /// an automatic one is there).
    void finished(const HttpReply &reply);
};
