#include "Files.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <private/qzipreader_p.h>

#include <csignal>

/// Runs the built publisher as a process and reads its output the way the players' program does.
class tst_publish : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void publishes();
    void refuses_data();
    void refuses();
    void interrupted();

private:
    /// Runs a shell line in the test's folder and returns what it prints; "$0" is the publisher.
    QByteArray run(const QString &line);
    QString at(const QString &path) const { return m_dir->filePath(path); }

    QScopedPointer<QTemporaryDir> m_dir;
    QProcess m_process;
    const QString m_publish = "exec \"$0\" --plugin-dir plugin --plugin-version '1.2 测试'"
                              " --base-url http://127.0.0.1:8102/base/ --out out ";
};

void tst_publish::init()
{
    m_dir.reset(new QTemporaryDir);
    m_process.setWorkingDirectory(m_dir->path());
}

QByteArray tst_publish::run(const QString &line)
{
    m_process.start("/bin/sh", {"-ec", line, PUBLISH_PROGRAM});
    return m_process.waitForFinished(60000) ? m_process.readAllStandardOutput() : "not finished";
}

void tst_publish::publishes()
{
    // 3 MiB that compress and repeat, and bytes of every value.
    QByteArray large(3 << 20, 'a');
    for (int i = 0; i < 256; ++i)
        large[i] = char(i);
    Files::Tree files{{"a.txt", "one"},         {"mods/1.0/deep/er/large.bin", large},
                      {"mods/empty.pyc", ""},   {"mods/中文 名.txt", "zh"},
                      {"mods/😀.txt", "no BMP"}, {"mods/.hidden", "a dot below the top is fine"}};
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        Files::write(at("plugin/") + file.key(), file.value());
    QVERIFY(QDir().mkpath(at("plugin/mods/empty folder")));
    run(m_publish + "--date '2021-03-05 10:20:30'");
    QCOMPARE(m_process.readAllStandardError(), QByteArray());
    QCOMPARE(m_process.exitCode(), 0);

    const auto manifest = QJsonDocument::fromJson(Files::read(at("out/cms/upgrade"))).object();
    QCOMPARE(manifest["errno"], QJsonValue(0));
    const QJsonObject data = manifest["data"].toObject();
    QCOMPARE(data["version_name"].toString(), QString("1.2 测试"));
    QCOMPARE(data["updated_at"].toString(), QString("2021-03-05 10:20:30"));
    const QString package = "packages/" + data["md5"].toString() + ".zip";
    QCOMPARE(data["link"].toString(), "http://127.0.0.1:8102/base/" + package);
    QCOMPARE(Files::md5(Files::read(at("out/") + package)), data["md5"].toString());
    QVERIFY(QFile::permissions(at("out/") + package) & QFile::ReadOther);
    QCOMPARE(Files::readTree(at("out")).keys(), (QStringList{"cms/upgrade", package}));

    // The players' program reads the list one byte a character.
    const auto list = QJsonDocument::fromJson(data["upgrade_info"].toString().toLatin1()).object();
    QCOMPARE(list.keys(), QStringList(files.keys()));
    QZipReader reader(at("out/") + package);
    QCOMPARE(reader.fileInfoList().size(), files.size());
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        QCOMPARE(list[file.key()].toString(), Files::md5(file.value()));
        QCOMPARE(reader.fileData(file.key()), file.value());
    }

    // The earlier package stays but is not announced any more; a failure harms neither. Without a
    // change the same package may come out, or one with a later time in it.
    run("touch plugin/new; " + m_publish);
    const Files::Tree both = Files::readTree(at("out"));
    QCOMPARE(both.size(), 3);
    QVERIFY(both.contains(package) && !both["cms/upgrade"].contains(package.toUtf8()));
    run("touch plugin/nul; " + m_publish);
    QCOMPARE(m_process.exitCode(), 1);
    QCOMPARE(Files::readTree(at("out")), both);
    run("rm plugin/nul; " + m_publish);
    QCOMPARE(m_process.exitCode(), 0);
}

void tst_publish::refuses_data()
{
    QTest::addColumn<QString>("prepare"); // a shell line
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QByteArray>("complaint");
    const auto misuse = [](const char *name, const char *arguments, const QByteArray &complaint) {
        QTest::newRow(name) << "" << arguments << complaint;
    };
    misuse("help", "--help", "");
    misuse("blank output", "--out ' '", "Missing --out.");
    misuse("unknown option", "--force", "force");
    misuse("stray argument", "stray", "'stray'");
    misuse("address without scheme", "--base-url 127.0.0.1:8102", "Not a web address");
    misuse("address without host", "--base-url http:///x", "Not a web address");
    misuse("address with query", "--base-url 'http://h/?a=b'", "Not a web address");
    misuse("date that isn't one", "--date '2021-02-30 10:00:00'", "Not a date");
    const auto bad = [](const char *name, const char *prepare, const QByteArray &complaint) {
        QTest::newRow(name) << prepare << "" << complaint;
    };
    bad("no folder", "rm -r plugin; touch plugin", "no such folder");
    bad("no files", "rm plugin/*; mkdir -p plugin/a/b", "no files");
    bad("dangling link", "ln -s none plugin/link", "link is a symbolic link");
    bad("link to a folder", "ln -s . plugin/link", "link is a symbolic link");
    bad("pipe", "mkfifo plugin/pipe", "pipe is not a regular file");
    bad("case twins", "mkdir plugin/Ä plugin/ä", "only in case");
    bad("backslash below", "mkdir plugin/d; touch 'plugin/d/a\\b'", "d/a\\b has the character \\");
    bad("new line", "touch 'plugin/a\nb'", "a?b has a control character");
    bad("not UTF-8", "touch plugin/$(printf 'a\\377')", "cannot be listed whole");
    bad("trailing dot", "touch plugin/a.", "a. has a name that ends with");
    bad("trailing blank of a folder", "mkdir 'plugin/a '", "has a name that ends with");
    bad("device", "touch plugin/Aux", "Aux has the name of a device");
    bad("device with extension", "touch plugin/LPT².tar.gz", "has the name of a device");
    bad("dot at the top", "mkdir plugin/.git", ".git begins with a dot");
    bad("too large", "truncate -s 2000000001 plugin/huge", "huge is larger than");
    bad("output in the plugin", "mkdir plugin/new; ln -s plugin/new out", "in the plugin folder");
    bad("output is a file", "touch out", "cannot create the folder");
    bad("manifest is a folder", "mkdir -p out/cms/upgrade", "out/cms/upgrade: ");
    bad("full disk", "head -c 200000 /dev/urandom >plugin/random", "cannot write to");
}

void tst_publish::refuses()
{
    QFETCH(QString, prepare);
    QFETCH(QString, arguments);
    QFETCH(QByteArray, complaint);
    const QByteArray before =
        run("mkdir plugin; touch plugin/good; " + prepare + "\nfind . | sort");
    QCOMPARE(m_process.exitCode(), 0);

    // The limit stands in for a full disk; nothing else that is refused writes as much.
    run("trap '' XFSZ; ulimit -f 100; " + m_publish + arguments);
    QCOMPARE(m_process.exitCode(), complaint.isEmpty() ? 0 : prepare.isEmpty() ? 2 : 1);
    const QByteArray error = m_process.readAllStandardError();
    QVERIFY2(error.contains(complaint), error);
    QCOMPARE(error.count('\n'), complaint.isEmpty() ? 0 : 1);
    QCOMPARE(run("find . | sort"), before);
    // The toolkit can't remove names that it can't decode.
    run("rm -rf plugin");
}

void tst_publish::interrupted()
{
    for (int i = 0; i < 40; ++i)
        Files::write(at("plugin/") + QString::number(i), QByteArray(4 << 20, 'x'));
    m_process.start("/bin/sh", {"-ec", m_publish, PUBLISH_PROGRAM});
    // From here on it is packing.
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(at("out/cms")), 10000);
    ::kill(pid_t(m_process.processId()), SIGTERM);
    QVERIFY(m_process.waitForFinished(60000));
    QCOMPARE(m_process.exitCode(), 1);
    QVERIFY(m_process.readAllStandardError().contains("interrupted"));
    QVERIFY(!QFileInfo::exists(at("out")));
}

QTEST_GUILESS_MAIN(tst_publish)
#include "tst_publish.moc"
