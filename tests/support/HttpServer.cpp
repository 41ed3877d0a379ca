#include "HttpServer.h"

#include <QRegularExpression>
#include <QTcpSocket>
#include <QTimer>

#include <functional>

namespace
{
QString normalised(QString path)
{
    static const QRegularExpression slashes("/+");
    return path.replace(slashes, "/");
}

QString pathOf(const HttpRecord &record)
{
    return normalised(QUrl::fromPercentEncoding(record.target.split('?').first()));
}

/// One client connection; deletes itself with its socket's end.
class Connection : public QObject
{
public:
    using Source = std::function<HttpAnswer(const HttpRecord &)>;

    Connection(QTcpSocket *socket, const Source &source, QObject *parent)
        : QObject(parent), m_socket(socket), m_source(source)
    {
        m_socket->setParent(this);
        // Head and body leave separately; the body must not wait for the head's acknowledgement.
        m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(m_socket, &QTcpSocket::readyRead, this, &Connection::read);
        connect(m_socket, &QTcpSocket::disconnected, this, &QObject::deleteLater);
    }

private:
    void read()
    {
        m_input += m_socket->readAll();
        const int end = m_input.indexOf("\r\n\r\n");
        if (m_answering || end < 0)
            return;

        HttpRecord record;
        QList<QByteArray> lines = m_input.left(end).split('\n');
        const QList<QByteArray> first = lines.takeFirst().split(' ');
        record.method = first.value(0);
        record.target = first.value(1);
        for (const QByteArray &line : qAsConst(lines)) {
            const int colon = line.indexOf(':');
            record.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
        }
        const int length = record.headers.value("content-length").toInt();
        if (m_input.size() < end + 4 + length)
            return;
        record.body = m_input.mid(end + 4, length);
        m_input.remove(0, end + 4 + length);
        m_answering = true;
        answer(record, m_source(record));
    }

    void answer(const HttpRecord &record, const HttpAnswer &answer)
    {
        if (answer.silent)
            return;
        if (!answer.raw.isEmpty()) {
            m_socket->write(answer.raw);
            return m_socket->disconnectFromHost();
        }
        const QByteArray known = record.headers.value("if-none-match");
        if (!known.isEmpty() && answer.headers.contains({"ETag", known}))
            return this->answer({}, {304});
        const QByteArray status = QByteArray::number(answer.status);
        QByteArray head = "HTTP/1.1 " + status + " Status " + status + "\r\n";
        for (const auto &header : answer.headers)
            head += header.first + ": " + header.second + "\r\n";
        head += "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n";
        m_socket->write(head + "\r\n");

        const QByteArray whole = record.method == "HEAD" ? QByteArray() : answer.body;
        const QByteArray body = whole.mid(0, answer.cutAfter);
        const int half = answer.tailDelayMs > 0 ? body.size() / 2 : 0;
        QTimer::singleShot(answer.bodyDelayMs, this, [=] {
            m_socket->write(body.left(half));
            QTimer::singleShot(answer.tailDelayMs, this, [=] {
                m_socket->write(body.mid(half));
                m_answering = false;
                if (body.size() < whole.size())
                    return m_socket->disconnectFromHost();
                read();
            });
        });
    }

    QTcpSocket *m_socket;
    Source m_source;
    QByteArray m_input;
    bool m_answering = false;
};
} // namespace

HttpServer::HttpServer(QObject *parent) : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &HttpServer::accept);
    if (!m_server.listen(QHostAddress::LocalHost))
        qFatal("The test server can't listen: %s", qPrintable(m_server.errorString()));
}

QString HttpServer::authority() const
{
    return QStringLiteral("127.0.0.1:%1").arg(m_server.serverPort());
}

QUrl HttpServer::url(const QString &pathAndQuery) const
{
    return QUrl(QStringLiteral("http://") + authority() + pathAndQuery);
}

void HttpServer::answer(const QString &path, const QVector<HttpAnswer> &script)
{
    m_scripts[normalised(path)] = script;
}

QVector<HttpRecord> HttpServer::requests(const QString &path) const
{
    if (path.isEmpty())
        return m_requests;
    QVector<HttpRecord> result;
    for (const HttpRecord &record : m_requests)
        if (pathOf(record) == normalised(path))
            result += record;
    return result;
}

int HttpServer::count(const QString &path) const
{
    return requests(path).size();
}

int HttpServer::connections() const
{
    return findChildren<QTcpSocket *>().size();
}

void HttpServer::accept()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection())
        new Connection(
            socket, [this](const HttpRecord &record) { return take(record); }, this);
}

HttpAnswer HttpServer::take(const HttpRecord &record)
{
    m_requests += record;
    QVector<HttpAnswer> &script = m_scripts[pathOf(record)];
    if (script.isEmpty())
        return {404};
    return script.size() > 1 ? script.takeFirst() : script.first();
}
