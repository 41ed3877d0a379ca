#pragma once

#include <QByteArray>
#include <QMap>
#include <QNetworkAccessManager>
#include <QUrl>

#include <chrono>

/// What a client is asked to send; a plain value.
struct HttpRequest {
    QUrl url;
    /// QNetworkAccessManager::Operation: 1 HEAD, 2 GET, 3 PUT, 4 POST, 5 DELETE.
    int operation = QNetworkAccessManager::GetOperation;
    /// Sent with PUT and POST.
    QByteArray body;
    /// When not 0, the first byte of the resource that is asked for.
    uint offset = 0;
    /// When not empty, sent in place of the client's default headers, with this request only.
    QMap<QByteArray, QByteArray> headers = {};
    /// When not 0, the request fails after so long, with all its retries and redirects.
    std::chrono::milliseconds timeLimit{0};
};
