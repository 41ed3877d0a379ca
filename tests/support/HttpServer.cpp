#include "HttpServer.h"

#include <QRegularExpression>
#include <QTimer>

#include <memory>
#include <optional>

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

/// The request that \a input is, as soon as it is whole.
std::optional<HttpRecord> parse(const QByteArray &input)
{
    const int end = input.indexOf("\r\n\r\n");
    if (end < 0)
        return std::nullopt;
    HttpRecord record;
    QList<QByteArray> lines = input.left(end).split('\n');
    const QList<QByteArray> first = lines.takeFirst().split(' ');
    record.method = first.value(0);
    record.target = first.value(1);
    for (const QByteArray &line : qAsConst(lines)) {
        const int colon = line.indexOf(':');
        record.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
    }
    record.body = input.mid(end + 4);
    if (record.body.size() < record.headers.value("content-length").toInt())
        return std::nullopt;
    return record;
}

void send(QTcpSocket *socket, const HttpRecord &record, const HttpAnswer &answer)
{
    if (answer.silent)
        return;
    if (!answer.raw.isEmpty()) {
        socket->write(answer.raw);
        return socket->disconnectFromHost();
    }
    if (answer.headers.contains({"ETag", record.headers.value("if-none-match")}))
        return send(socket, {}, {304});
    const QByteArray status = QByteArray::number(answer.status);
    QByteArray head = "HTTP/1.1 " + status + " Status " + status + "\r\n";
    for (const auto &header : answer.headers)
        head += header.first + ": " + header.second + "\r\n";
    if (answer.repeated.isEmpty())
        head += "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n";
    socket->write(head + "\r\n");

    if (!answer.repeated.isEmpty()) {
        socket->write(answer.body);
        const auto goOn = [=] {
            if (socket->bytesToWrite() == 0)
                socket->write(answer.repeated);
        };
        QObject::connect(socket, &QTcpSocket::bytesWritten, socket, goOn);
        return goOn();
    }

    const QByteArray whole = record.method == "HEAD" ? QByteArray() : answer.body;
    const QByteArray body = whole.mid(0, answer.cutAfter);
    if (answer.dripMs > 0) {
        auto *timer = new QTimer(socket);
        QObject::connect(timer, &QTimer::timeout, socket,
                         [=, sent = 0]() mutable { socket->write(body.mid(sent++, 1)); });
        return timer->start(answer.dripMs);
    }
    const int half = answer.tailDelayMs > 0 ? body.size() / 2 : 0;
    QTimer::singleShot(answer.bodyDelayMs, socket, [=] {
        socket->write(body.left(half));
        QTimer::singleShot(answer.tailDelayMs, socket, [=] {
            socket->write(body.mid(half));
            if (body.size() < whole.size())
                socket->disconnectFromHost();
        });
    });
}
} // namespace

HttpServer::HttpServer(QObject *parent) : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &HttpServer::accept);
    if (!m_server.listen(QHostAddress::LocalHost))
        qFatal("The test server can't listen: %s", qPrintable(m_server.errorString()));
}

void HttpServer::answer(const QString &path, const QVector<HttpAnswer> &script)
{
    m_scripts[normalised(path)] = script;
}

QVector<HttpRecord> HttpServer::requests(const QString &path) const
{
    QVector<HttpRecord> result;
    for (const HttpRecord &record : m_requests)
        if (path.isEmpty() || pathOf(record) == normalised(path))
            result += record;
    return result;
}

void HttpServer::accept()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        // Head and body leave separately; the body must not wait for the head's acknowledgement.
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        // Clients ask one thing after the other.
        connect(socket, &QTcpSocket::readyRead, this, [=, input = std::make_shared<QByteArray>()] {
            *input += socket->readAll();
            const auto record = parse(*input);
            if (!record)
                return;
            input->clear();
            send(socket, *record, take(*record));
        });
    }
}

HttpAnswer HttpServer::take(const HttpRecord &record)
{
    m_requests += record;
    QVector<HttpAnswer> &script = m_scripts[pathOf(record)];
    if (script.isEmpty())
        return {404};
    return script.size() > 1 ? script.takeFirst() : script.first();
}
