#include "DownloadManager.h"
#include "Files.h"
#include "HttpServer.h"
#include "Paths.h"
#include "PluginDownloader.h"
#include "SmallDisk.h"

#include <QDir>
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
        HttpAnswer noLength = answer, cut = answer, slow = answer, stalled = answer;
        noLength.body = QByteArray(30 << 20, 'p'); // long enough for reports on its way
        noLength.raw = "HTTP/1.1 200 OK\r\n\r\n" + noLength.body;
        cut.cutAfter = 1000;
        slow.bodyDelayMs = slow.tailDelayMs = 3000;
        stalled.tailDelayMs = 150000;
        const auto row = [](const char *name, const HttpAnswer &what, const char *end) {
            QTest::newRow(name) << what << end;
        };
        row("no length", noLength, "kept");
        row("slow", slow, "kept");
        row("cut off half way", cut, "failed");
        row("stalled", stalled, "failed");
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
        DownloadManager manager(nullptr, std::chrono::seconds(answer.tailDelayMs > 0 ? 5 : 150));
        QSignalSpy finished(&manager, &DownloadManager::finished);
        QSignalSpy failed(&manager, &DownloadManager::error);
        bool isTotalKnown = true;
        connect(&manager, &DownloadManager::currentDownProgress, this,
                [&](int &, int &total) { isTotalKnown &= total > 0; });
        manager.append(m_server.url("/p.zip"), "package");
        QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 150000);
        QCOMPARE(finished.first().first().toString(), "package");
        QCOMPARE(failed.count(), end == "failed" ? 1 : 0);
        const Files::Tree saved{{"package", answer.body}};
        QCOMPARE(Files::readTree("."), end == "kept" ? saved : Files::Tree());
        QVERIFY(isTotalKnown);
        QCOMPARE(m_server.count("/elsewhere"), 0);
        if (disk)
            QCOMPARE(failed.first().first().toString(), qt_error_string(EFBIG));
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
