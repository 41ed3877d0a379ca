#include "DownloadManager.h"
#include "Files.h"
#include "HttpServer.h"
#include "Paths.h"
#include "PluginDownloader.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

class tst_Download : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void outcomes_data();
    void outcomes();
    void secondRequestWaits();
    void nameFromUrl();
    void speed_data();
    void speed();
    void reportsThroughDownloader();

private:
    QScopedPointer<QTemporaryDir> m_dir;
};

void tst_Download::init()
{
    m_dir.reset(new QTemporaryDir);
    QDir::setCurrent(m_dir->path());
    qRegisterMetaType<EC::ErrorCode>("EC::ErrorCode");
}

void tst_Download::outcomes_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<bool>("error");
    QTest::addColumn<bool>("kept");
    const auto row = [](const char *name, HttpAnswer answer, bool error, bool kept) {
        answer.body = QByteArray(300000, 'p');
        QTest::newRow(name) << answer << error << kept;
    };
    HttpAnswer ok, cut, reset, redirect, noLength;
    row("ok", ok, false, true);
    noLength.noLength = true;
    row("no length", noLength, false, true);
    cut.cutAfter = 1000;
    row("cut off half way", cut, true, false);
    reset.reset = true;
    row("reset", reset, true, false);
    redirect.headers = {{"Location", "/elsewhere"}};
    for (const int status : {301, 302, 303, 307, 308}) {
        redirect.status = status;
        row(QByteArray::number(status), redirect, false, false);
    }
    for (const int status : {404, 500, 503}) {
        HttpAnswer failed;
        failed.status = status;
        row(QByteArray::number(status), failed, true, false);
    }
}

void tst_Download::outcomes()
{
    QFETCH(HttpAnswer, answer);
    QFETCH(bool, error);
    QFETCH(bool, kept);
    HttpServer server;
    server.answer("/p.zip", {answer});
    const QString path = m_dir->filePath("package");
    Files::write(path, QByteArray(500000, 'o')); // longer than what comes

    DownloadManager manager;
    QSignalSpy finished(&manager, &DownloadManager::finished);
    QSignalSpy failed(&manager, &DownloadManager::error);
    int reports = 0;
    connect(&manager, &DownloadManager::currentDownProgress, this, [&reports] { ++reports; });
    manager.append(server.url("/p.zip"), path);
    QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 20000);
    QCOMPARE(finished.first().first().toString(), path);
    QCOMPARE(failed.count(), error ? 1 : 0);
    QCOMPARE(QFile::exists(path), kept);
    if (kept)
        QCOMPARE(Files::read(path), answer.body);
    if (answer.noLength)
        QVERIFY(reports <= 1); // only the end of the body tells its size
    QCOMPARE(server.count("/elsewhere"), 0);
}

void tst_Download::secondRequestWaits()
{
    HttpServer server;
    HttpAnswer first, second;
    first.body = "first";
    first.bodyDelayMs = 200;
    second.body = "second";
    server.answer("/1", {first});
    server.answer("/2", {second});
    DownloadManager manager;
    QSignalSpy finished(&manager, &DownloadManager::finished);
    manager.append(server.url("/1"), "one");
    manager.append(server.url("/2"), "two");
    QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 20000);
    QCOMPARE(Files::readTree("."), (Files::Tree{{"one", "first"}, {"two", "second"}}));
    QCOMPARE(finished.first().first().toString(), QString("two"));
}

void tst_Download::nameFromUrl()
{
    HttpServer server;
    for (const char *path : {"/pkg/plugin.zip", "/pkg/"})
        server.answer(path, {HttpAnswer()});
    DownloadManager manager;
    QSignalSpy finished(&manager, &DownloadManager::finished);
    for (const char *path : {"/pkg/plugin.zip", "/pkg/plugin.zip", "/pkg/plugin.zip", "/pkg/"}) {
        manager.append(server.url(path), QString());
        QVERIFY(finished.wait(20000));
    }
    QCOMPARE(Files::readTree(".").keys(),
             (QStringList{"download", "plugin.zip", "plugin.zip.0", "plugin.zip.1"}));
}

void tst_Download::speed_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("nothing") << qint64(0) << "0.0 bytes/sec";
    QTest::newRow("below kilo") << qint64(1023) << "1023.0 bytes/sec";
    QTest::newRow("kilo") << qint64(1024) << "1.0 kB/s";
    QTest::newRow("below mega") << qint64(1048575) << "1024.0 kB/s";
    QTest::newRow("mega") << qint64(1048576) << "1.0 MB/s";
    QTest::newRow("beyond 32 bits") << (qint64(5) << 32) << "20480.0 MB/s";
}

void tst_Download::speed()
{
    QFETCH(qint64, bytes);
    QFETCH(QString, text);
    QCOMPARE(TransferSpeed::of(bytes, 1000).text(), text);
}

void tst_Download::reportsThroughDownloader()
{
    HttpServer server;
    HttpAnswer answer;
    answer.body = QByteArray(30 << 20, 'p'); // 100 times as many bytes do not fit into 31 bits
    server.answer("/p.zip", {answer});
    PluginDownloader downloader;
    QSignalSpy finished(&downloader, &PluginDownloader::DownloadPluginFinished);
    QSignalSpy failed(&downloader, &PluginDownloader::DownloadPluginError);
    QSignalSpy progress(&downloader, &PluginDownloader::DownloadPluginProgress);
    QSignalSpy speed(&downloader, &PluginDownloader::DownloadPluginSpeed);

    QVERIFY(QDir(Paths::downloadFolder()).removeRecursively());
    downloader.DownloadPlugin(server.url("/p.zip").toString());
    QCOMPARE(finished.count(), 1);
    QCOMPARE(failed.first().first().value<EC::ErrorCode>(), EC::DOWNLOAD_PLUGIN_NETFAILED);
    QCOMPARE(server.count("/p.zip"), 0);

    QVERIFY(QDir().mkpath(Paths::downloadFolder()));
    downloader.DownloadPlugin(server.url("/p.zip").toString());
    QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 2, 60000);
    QCOMPARE(finished.last().first().toString(), Paths::packageFile());
    QCOMPARE(QFile(Paths::packageFile()).size(), qint64(30 << 20));
    QVERIFY(!speed.isEmpty());
    int last = 0;
    for (const QVariantList &arguments : progress) {
        QVERIFY(arguments.first().toInt() >= last);
        last = arguments.first().toInt();
    }
    QCOMPARE(last, 100);
    QVERIFY(QDir(Paths::downloadFolder()).removeRecursively());
}

QTEST_GUILESS_MAIN(tst_Download)
#include "tst_download.moc"
