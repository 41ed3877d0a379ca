#include "Coded.h"
#include "DownloadManager.h"
#include "Files.h"
#include "HttpServer.h"
#include "Paths.h"
#include "PluginDownloader.h"
#include "SmallDisk.h"

#include <QDir>
#include <QNetworkProxy>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <chrono>
#include <optional>

class tst_Download : public QObject
{
    Q_OBJECT
    QScopedPointer<QTemporaryDir> m_dir;
    HttpServer m_server;

private slots:
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QDir::setCurrent(m_dir->path());
        qRegisterMetaType<EC::ErrorCode>("EC::ErrorCode");
    }

    void outcomes_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QString>("end");
        HttpAnswer answer{200, QByteArray(300000, 'p'), {{"Location", "/elsewhere"}}};
        HttpAnswer noLength = answer, chunked = answer, cut = answer, slow = answer,
                   stalled = answer, dripping = answer;
        noLength.body = QByteArray(30 << 20, 'p'); // long enough for reports on its way
        noLength.raw = "HTTP/1.1 200 OK\r\n\r\n" + noLength.body;
        chunked.raw =
            "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\nTransfer-Encoding: chunked\r\n\r\n"
            "493e0\r\n" +
            answer.body + "\r\n0\r\n\r\n";
        cut.cutAfter = 1000;
        slow.bodyDelayMs = slow.tailDelayMs = 3000;
        stalled.tailDelayMs = 150000;
        dripping.dripMs = 100;
        const auto row = [](const char *name, const HttpAnswer &what, const char *end) {
            QTest::newRow(name) << what << end;
        };
        row("no length", noLength, "kept");
        row("more than announced", chunked, "kept");
        row("slow", slow, "kept");
        row("cut off half way", cut, "failed");
        row("stalled", stalled, "failed");
        row("dripping", dripping, "failed");
        row("404", {404, answer.body}, "failed");
#ifdef Q_OS_UNIX
        row("full disk", {200, QByteArray(2100, 'p')}, "failed");
#endif
        for (const int status : {301, 302, 303, 307, 308}) {
            answer.status = status;
            row(QByteArray::number(status), answer, "dropped");
        }
    }

    void outcomes()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QString, end);
        m_server.answer("/p.zip", {answer});
        Files::write("package", QByteArray(500000, 'o')); // longer than what comes
        std::optional<SmallDisk> disk;
        if (QTest::currentDataTag() == QByteArray("full disk"))
            disk.emplace();
        // A busy machine is silent for some seconds, too.
        DownloadManager manager(
            nullptr, std::chrono::seconds(answer.tailDelayMs + answer.dripMs > 0 ? 5 : 150));
        QSignalSpy finished(&manager, &DownloadManager::finished);
        QSignalSpy failed(&manager, &DownloadManager::error);
        bool isSound = true;
        connect(&manager, &DownloadManager::currentDownProgress, this,
                [&](int &current, int &total) { isSound &= total > 0 && current <= total; });
        manager.append(m_server.url("/p.zip"), "package");
        QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 150000);
        QCOMPARE(finished.first().first().toString(), "package");
        QCOMPARE(failed.count(), end == "failed" ? 1 : 0);
        const Files::Tree saved{{"package", answer.body}};
        QCOMPARE(Files::readTree("."), end == "kept" ? saved : Files::Tree());
        QVERIFY(isSound);
        QCOMPARE(m_server.count("/elsewhere"), 0);
        if (disk)
            QCOMPARE(failed.first().first().toString(), qt_error_string(EFBIG));
    }

    void bounds_data()
    {
        QTest::addColumn<QByteArray>("head");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("size");
        QTest::addColumn<QString>("problem"); // how it begins; without one the package is kept
        const QByteArray package(3 << 20, 'p'), gzip = Coded::body(package, Coded::Gzip),
                                                empty = Coded::body({}, Coded::Raw, Z_FULL_FLUSH);
        const QByteArray coded = "Content-Encoding: gzip\r\n",
                         zlib = "Content-Encoding: deflate\r\n";
        const auto row = [](const char *name, const QByteArray &head, const QByteArray &body,
                            const char *size, const char *problem = "") {
            QTest::newRow(name) << head << body << QString(size) << QString(problem);
        };
        row("as large as said", "", package, "3145728");
        row("larger than said", "", package, "3145727", "body is larger than 3145727 bytes");
        row("no size", "", package, "");
        row("size in words", "", package, "-1");
        row("announced larger", "Content-Length: 3145729\r\n", "", "3145728",
            "body is larger than");
        row("announced larger than any", "Content-Length: 4294967297\r\n", "", "",
            "body is larger than 4294967296 bytes");
        row("announced largest", "Content-Length: 4294967296\r\n", "", "", "Connection closed");
        row("size too large", "", package, "4294967297", "body is larger than 4294967296 bytes");
        row("no room for size", "", package, "1152921504606846976",
            "no room for 1152921504606846976");
        row("no room for length", "Content-Length: 1152921504606846976\r\n", "", "",
            "no room for 1152921504606846976");
        row("gzip", coded, gzip, "3145728");
        row("gzip, larger than said", coded, gzip, "3145727", "body is larger than 3145727 bytes");
        row("deflate", zlib, Coded::body(package, Coded::Zlib), "");
        row("gzip, longer than decoded", coded + "Content-Length: 21\r\n",
            Coded::body("p", Coded::Gzip), "1");
        row("gzip, cut off", coded, gzip.left(500), "", "compressed body is cut off");
        row("endless nothing", zlib, empty.repeated(20000), "1000",
            "body is larger than 1000 bytes");
        row("unknown coding", "Content-Encoding: br\r\n", package, "", "unknown coding br");
    }

    void bounds()
    {
        QFETCH(QByteArray, head);
        QFETCH(QByteArray, body);
        QFETCH(QString, size);
        QFETCH(QString, problem);
        HttpAnswer answer;
        answer.raw = "HTTP/1.1 200 OK\r\n" + head + "\r\n" + body;
        m_server.answer("/b.zip", {answer});
        Files::write("package", "old");
        DownloadManager manager;
        QSignalSpy finished(&manager, &DownloadManager::finished);
        QSignalSpy failed(&manager, &DownloadManager::error);
        manager.append(m_server.url("/b.zip"), "package", DownloadLimit::sizeFromText(size));
        QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 150000);
        if (problem.isEmpty()) {
            QCOMPARE(failed.count(), 0);
            const bool isShort = head.contains("Content-Length");
            QCOMPARE(Files::read("package"), QByteArray(isShort ? 1 : 3 << 20, 'p'));
        } else {
            QCOMPARE(failed.count(), 1);
            const QString text = failed.first().first().toString();
            QVERIFY2(text.startsWith(problem), qPrintable(text));
            QVERIFY(!QFile::exists("package"));
        }
    }

    void room()
    {
        // A volume that tells nothing sets no bound, and what is replaced makes room.
        QCOMPARE(DownloadLimit::of(100, -1, 0).problem(100), QString());
        QCOMPARE(DownloadLimit::of(100, 0, 50).problem(100), QString());
        QCOMPARE(DownloadLimit::of(100, 60, 40).problem(100), QString());
        QCOMPARE(DownloadLimit::of(100, 60, 39).problem(100), "no room for 100 bytes");
    }

    void tellsNothing_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<bool>("isProxy");
        for (const char *scheme : {"NTLM", "Negotiate", "Basic realm=\"r\""}) {
            QTest::addRow("401 %s", scheme)
                << HttpAnswer{401, {}, {{"WWW-Authenticate", scheme}}} << false;
            QTest::addRow("407 %s", scheme)
                << HttpAnswer{407, {}, {{"Proxy-Authenticate", scheme}}} << true;
        }
        QTest::newRow("cookie") << HttpAnswer{200, {}, {{"Set-Cookie", "id=1"}}} << false;
    }

    /// The same request for everybody, whatever a server or a proxy wants to know.
    void tellsNothing()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(bool, isProxy);
        QUrl url = m_server.url("/p.zip");
        url.setUserInfo("user:secret");
        m_server.answer("/p.zip", {answer});
        m_server.answer("http://" + m_server.authority() + "/p.zip", {answer});
        const int before = m_server.requests().size();
        DownloadManager manager;
        QSignalSpy finished(&manager, &DownloadManager::finished);
        if (isProxy)
            QNetworkProxy::setApplicationProxy(
                {QNetworkProxy::HttpProxy, "127.0.0.1", quint16(url.port())});
        for (const int count : {1, 2}) {
            manager.append(url, "package");
            QTRY_COMPARE_WITH_TIMEOUT(finished.count(), count, 60000);
        }
        QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
        const auto requests = m_server.requests().mid(before);
        QCOMPARE(requests.size(), 2);
        for (const HttpRecord &request : requests) {
            QCOMPARE(request.headers.value("accept-encoding"), QByteArray("identity"));
            for (const char *name : {"authorization", "proxy-authorization", "cookie"})
                QVERIFY2(!request.headers.contains(name), name);
        }
    }

    void queueAndNames()
    {
        HttpAnswer slow{200, "first"};
        slow.bodyDelayMs = 200;
        m_server.answer("/pkg/a.zip", {slow, {200, "second"}, {200, "third"}});
        m_server.answer("/pkg/", {{200, "no name"}});
        DownloadManager manager;
        QSignalSpy finished(&manager, &DownloadManager::finished);
        for (const char *path : {"/pkg/a.zip", "/pkg/a.zip", "/pkg/a.zip", "/pkg/"})
            manager.append(m_server.url(path), QString());
        manager.append(m_server.url("/pkg/"), "last");
        QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 150000);
        QCOMPARE(finished.first().first().toString(), "last");
        const Files::Tree wanted{{"a.zip", "first"},
                                 {"a.zip.0", "second"},
                                 {"a.zip.1", "third"},
                                 {"download", "no name"},
                                 {"last", "no name"}};
        QCOMPARE(Files::readTree("."), wanted);
    }

    void speed()
    {
        const QMap<qint64, QString> texts{{0, "0.0 bytes/sec"},  {1023, "1023.0 bytes/sec"},
                                          {1024, "1.0 kB/s"},    {1048575, "1024.0 kB/s"},
                                          {1048576, "1.0 MB/s"}, {qint64(5) << 32, "20480.0 MB/s"}};
        for (auto text = texts.begin(); text != texts.end(); ++text)
            QCOMPARE(TransferSpeed::of(text.key(), 1000).text(), text.value());
    }

    void reportsThroughDownloader()
    {
        // 100 times as many bytes do not fit into 31 bits.
        m_server.answer("/large", {{200, QByteArray(30 << 20, 'p')}});
        PluginDownloader downloader;
        QSignalSpy finished(&downloader, &PluginDownloader::DownloadPluginFinished);
        QSignalSpy failed(&downloader, &PluginDownloader::DownloadPluginError);
        QSignalSpy progress(&downloader, &PluginDownloader::DownloadPluginProgress);
        QSignalSpy speed(&downloader, &PluginDownloader::DownloadPluginSpeed);

        QVERIFY(QDir(Paths::downloadFolder()).removeRecursively());
        downloader.DownloadPlugin(m_server.url("/large").toString());
        QCOMPARE(finished.count(), 1);
        QCOMPARE(failed.first().first().value<EC::ErrorCode>(), EC::DOWNLOAD_PLUGIN_NETFAILED);
        QCOMPARE(m_server.count("/large"), 0);

        QVERIFY(QDir().mkpath(Paths::downloadFolder()));
        // What is no address of the web is never opened: a pipe would never let go.
        Files::write("local", "local");
        downloader.DownloadPlugin("file://" + QDir::current().filePath("local"));
        QCOMPARE(finished.count(), 2);
        QCOMPARE(failed.count(), 2);
        QVERIFY(!QFile::exists(Paths::packageFile()));

        downloader.DownloadPlugin(m_server.url("/large").toString());
        QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 3, 60000);
        QCOMPARE(finished.last().first().toString(), Paths::packageFile());
        QCOMPARE(QFile(Paths::packageFile()).size(), qint64(30 << 20));
        QVERIFY(!speed.isEmpty());
        QCOMPARE(progress.last().first().toInt(), 100);
        QVERIFY(QDir(Paths::downloadFolder()).removeRecursively());
    }
};

QTEST_GUILESS_MAIN(tst_Download)
#include "tst_download.moc"
