#include "Files.h"
#include "ManifestSignature.h"
#include "SigningKey.h"

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
    void stories_data();
    void stories();
    void refuses_data();
    void refuses();
    void interrupted();
    void signingExample();

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
    QCOMPARE(Files::readTree(at("out")).keys(),
             (QStringList{"cms/upgrade", "cms/upgrade.gz", "history/000001.json", package}));

    // The players' program reads the list one byte a character.
    const auto list = QJsonDocument::fromJson(data["upgrade_info"].toString().toLatin1()).object();
    QCOMPARE(list.keys(), QStringList(files.keys()));
    QZipReader reader(at("out/") + package);
    QCOMPARE(reader.fileInfoList().size(), files.size());
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        QCOMPARE(list[file.key()].toString(), Files::md5(file.value()));
        QCOMPARE(reader.fileData(file.key()), file.value());
    }
}

void tst_publish::stories_data()
{
    QTest::addColumn<QString>("story"); // a shell line; p publishes, o does something else
    const auto row = [](const char *name, const char *story) {
        QTest::newRow(name) << QString(story);
    };
    row("failure harms nothing",
        "p; cp -rp out before; touch plugin/nul; no p; diff -r out before; rm plugin/nul; p");
    row("again",
        "p; find out -type f -printf '%p %T+\n' >a; touch plugin/good; p | grep 'already offered'; "
        "find out -type f -printf '%p %T+\n' | cmp a -");
    row("again with another date",
        "p; p --date '2021-03-05 10:20:30'; grep 2021-03-05 out/cms/upgrade");
    row("again under another address", "p; p --base-url http://other; grep other out/cms/upgrade");
    row("again as another version", "p; p --plugin-version 2; grep '\"2\"' out/cms/upgrade");
    row("again without its package", "p; rm out/packages/*; p; [ -f out/packages/*.zip ]");
    row("same everywhere",
        "echo b >plugin/b; p; mv out one; cp plugin/good good; rm plugin/good; cp good plugin; "
        "touch -d '2 days' plugin/b; chmod 700 plugin/b; umask 077; p; diff -r one/packages "
        "out/packages; [ \"$(stat -c %a out out/cms out/packages | sort -u)\" = 755 ]; "
        "[ \"$(stat -c %a out/cms/* out/packages/* | sort -u)\" = 644 ]");
    row("compressed", "p; gzip -dc out/cms/upgrade.gz | cmp - out/cms/upgrade; "
                      "no [ out/cms/upgrade -nt out/cms/upgrade.gz ]; : >out/cms/upgrade.gz; p; "
                      "gzip -dc out/cms/upgrade.gz | cmp - out/cms/upgrade");
    row("rolled back",
        "p; old=$(md5); echo 2 >plugin/good; p --plugin-version 2; o --rollback $old; "
        "[ $(md5) = $old ]; o --list >a; [ $(grep -c $old a) = 2 ]; "
        "grep '^3 .*(offered)$' a; no grep '^2 .*(offered)$' a; "
        "o --rollback $old --base-url http://moved; grep \"http://moved/packages/$old\" out/cms/*; "
        "p --plugin-version 2; no [ $(md5) = $old ]");
    row("rolled back to nothing",
        "p; no o --rollback 0; for z in out/packages/*; do echo x >>$z; done; "
        "cp out/cms/upgrade a; no o --rollback $(md5); cmp a out/cms/upgrade");
    row("in a wrong folder", "no o --list; no o --pause; no [ -e out ]; mkdir out; o --list; "
                             "no o --pause; rmdir out");
    row("paused",
        "p; old=$(md5); o --pause; grep '\"errno\": 1' out/cms/upgrade; gzip -dc "
        "out/cms/upgrade.gz | cmp - out/cms/upgrade; o --list | grep paused; p; [ $(md5) = $old ]");
    row("told apart by time",
        "p; a=$(stat -c %Y out/cms/upgrade); p --plugin-version 2; "
        "[ $(stat -c %Y out/cms/upgrade) -gt $a ]; a=$(stat -c %Y out/cms/upgrade.gz); "
        "p --plugin-version 3; [ $(stat -c %Y out/cms/upgrade.gz) -gt $a ]");
    row("without a history",
        "p; old=$(md5); rm -r out/history; echo 2 >plugin/good; p; o --rollback $old");
    row("with another history",
        "o --new-key k; p --key k; cp -r out/history a; mv out/history/000001.json "
        "out/history/x.json; "
        "echo 2 >plugin/good; p --key k; o --list >b; [ $(wc -l <b) = 2 ]; rm -r out/history; "
        "cp -r a out/history; no p --plugin-version 3; o --list >b; [ $(wc -l <b) = 2 ]; "
        "grep \"^2 .*$(md5)\" b; ls out/history; [ $(ls out/history | wc -l) = 1 ]");
    row("kept", "p; old=$(md5); for i in 2 3 4; do echo $i >plugin/good; p; done; "
                "touch out/packages/other.zip; touch -d '-2 days' out/packages/* out/history/*; "
                "echo 5 >plugin/good; p --keep 2; [ $(ls out/packages | wc -l) = 3 ]; o --list | "
                "grep \"$old.*removed\"; "
                "no o --rollback $old");
    row("kept for a day", "for i in 1 2 3; do echo $i >plugin/good; p --keep 1; done; "
                          "[ $(ls out/packages | wc -l) = 3 ]; touch -d '-2 days' out/packages/*; "
                          "p --plugin-version 2 --keep 1; [ $(ls out/packages | wc -l) = 3 ]");
    row("left out", "mkdir -p plugin/.git plugin/d/e; touch plugin/.git/x plugin/a~ plugin/d/e/x "
                    "plugin/d/Thumbs.db plugin/d/x; p --exclude 'd/e' --exclude '?.tmp' | "
                    "grep 'left out: .git, a~, d/Thumbs.db, d/e$'; "
                    "[ \"$(unzip -Z1 out/packages/*)\" = \"$(printf 'd/x\ngood')\" ]");
    row("removed files",
        "touch plugin/a plugin/b; p; old=$(md5); rm plugin/a; no p >a; grep 'no longer there: a$' "
        "a; [ $(md5) = $old ]; p --allow-removed | grep ': a$'; new=$(md5); no [ $new = $old ]; "
        "touch plugin/a; p; o --rollback $new | grep ': a$'");
    row("two at a time", "p; cp $(command -v sleep) brekka-publish; ./brekka-publish 60 & "
                         "printf '%s\nbrekka-publish\n%s\n' $! $(uname -n) >out/.publishing; "
                         "cp out/cms/upgrade a; no p --plugin-version 2 2>b; grep 'another "
                         "publisher' b; cmp a out/cms/upgrade; "
                         "kill $!; wait $! || p --plugin-version 2; "
                         "printf '1\nbrekka-publish\nelsewhere\n' >out/.publishing; no p 2>b; "
                         "grep 'on elsewhere.*out/.publishing$' b");
    row("killed before", "p; touch out/packages/a.part; p; no [ -e out/packages/a.part ]");
    row("keys",
        "o --new-key k >pub; [ $(stat -c %a k) = 600 ]; openssl pkey -in k -pubout -outform DER | "
        "tail -c 32 | base64 | cmp - pub; no o --new-key k; openssl genpkey -algorithm ed25519 >l; "
        "p --key l; no p --key pub");
    row("signed",
        "o --new-key k; p --key k; p --key k | grep 'already offered'; no p; old=$(md5); "
        "no p --date '2021-03-05 10:20:30'; s=$(serial); echo 2 >plugin/good; p --key k; "
        "[ $(serial) -gt $s ]; s=$(serial); no o --rollback $old; o --key k --rollback $old; "
        "[ $(serial) -gt $s ]; "
        "p --unsigned; no grep signature out/cms/upgrade; p");
    row("key in reach", "o --new-key plugin/k; no p --key plugin/k; no [ -e out ]; p; "
                        "o --new-key out/k; no p --key out/k 2>a; grep 'could fetch' a");
    row("resigned", "o --new-key k; o --new-key l; p; p --key k; p --key l >a; no grep already a");
    row("serial ahead", "o --new-key k; p --key k; sed -i \"s/$(serial)/9$(serial)/\" out/*/*; "
                        "no p --key k --plugin-version 2 2>a; grep 'go back' a");
    row("manifest does not fit",
        "p; find out | sort >a; cp out/cms/upgrade b; trap '' XFSZ; "
        "(set +x; ulimit -f 40; no p --plugin-version $(head -c 99999 /dev/zero | tr '\\0' v) "
        "2>c); grep 'File too large' c; find out | sort | cmp a -; cmp b out/cms/upgrade");
}

void tst_publish::stories()
{
    QFETCH(QString, story);
    const QString words = R"sh(
p() { "$0" --plugin-dir plugin --plugin-version 1 --base-url http://h/base/ --out out "$@"; }
o() { "$0" --out out "$@"; }
value() { sed -n 's/.*"'$1'": "\([^"]*\)".*/\1/p' out/cms/upgrade; }
md5() { value md5; }
serial() { value serial; }
no() { if "$@"; then echo "unexpected: $*" >&2; exit 1; fi; }
mkdir plugin; echo 1 >plugin/good
)sh";
    run(words + "set -x; " + story);
    QVERIFY2(m_process.exitCode() == 0, m_process.readAllStandardError().right(800));
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
    misuse("empty key", "--key ''", "Missing --key.");
    misuse("two actions", "--list --pause", "One thing");
    misuse("no number", "--keep 0", "Not a number above 0");
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
    bad("dot at the top", "mkdir plugin/.x", ".x begins with a dot");
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

/// What docs/signing.md shows others is what we sign.
void tst_publish::signingExample()
{
    const QString folder = EXAMPLES;
    const auto data =
        QJsonDocument::fromJson(Files::read(folder + "/example-manifest.json"))["data"].toObject();
    const QByteArray bytes = Files::read(folder + "/example-signed.txt");
    QCOMPARE(ManifestSignature::signedBytes(data).value_or(""), bytes);
    QString error;
    const auto key = SigningKey::load(folder + "/example-key.pem", &error);
    QCOMPARE(key->signatureOf(bytes).toBase64(), data["signature"].toString().toLatin1());
    QCOMPARE(ManifestSignature::problem(data, {key->publicKey()}), QString());
    run("cd " + folder +
        "; openssl pkey -in example-key.pem -pubout >$OLDPWD/public; "
        "sed -n 's/.*\"signature\": \"\\(.*\\)\".*/\\1/p' example-manifest.json | base64 -d "
        ">$OLDPWD/signature; "
        "openssl pkeyutl -verify -pubin -inkey $OLDPWD/public -rawin -in example-signed.txt "
        "-sigfile $OLDPWD/signature");
    QCOMPARE(m_process.exitCode(), 0);
}

QTEST_GUILESS_MAIN(tst_publish)
#include "tst_publish.moc"
