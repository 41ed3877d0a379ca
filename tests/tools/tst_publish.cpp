#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <private/qzipreader_p.h>

namespace
{
const QString Zip =
    QStringLiteral("^http://127\\.0\\.0\\.1:8102/base/packages/([0-9a-f]{32})\\.zip$");

QString md5(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Everything below a folder, relative to it; what stays behind shows here.
QStringList tree(const QString &folder)
{
    QStringList paths;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        paths += QDir(folder).relativeFilePath(it.next());
    paths.sort();
    return paths;
}

bool onWindows()
{
    return QSysInfo::kernelType() == QLatin1String("winnt");
}
} // namespace

/// Runs the built publisher as a process and reads its output the way the players' program does.
class tst_publish : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void roundTrip();
    void secondRunKeepsEarlierPackage();
    void usage_data();
    void usage();
    void badInput_data();
    void badInput();
    void interrupted();

private:
    void put(const QString &file, const QByteArray &data = "x");
    QStringList arguments() const;
    void run(const QStringList &args, const QString &limits = QString());
    QString at(const QString &path) const { return m_dir->filePath(path); }

    std::unique_ptr<QTemporaryDir> m_dir;
    QProcess m_process;
    QString m_error;
};

void tst_publish::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("plugin")));
}

void tst_publish::put(const QString &file, const QByteArray &data)
{
    QFile out(at(QStringLiteral("plugin/") + file));
    QVERIFY(QDir().mkpath(QFileInfo(out).path()));
    QVERIFY(out.open(QIODevice::WriteOnly));
    QCOMPARE(out.write(data), qint64(data.size()));
}

QStringList tst_publish::arguments() const
{
    return {QStringLiteral("--plugin-dir"),
            at(QStringLiteral("plugin")),
            QStringLiteral("--plugin-version"),
            QStringLiteral("1.2 \u6d4b\u8bd5"),
            QStringLiteral("--base-url"),
            QStringLiteral("http://127.0.0.1:8102/base/"),
            QStringLiteral("--out"),
            at(QStringLiteral("out"))};
}

void tst_publish::run(const QStringList &args, const QString &limits)
{
    if (limits.isEmpty()) {
        m_process.start(QStringLiteral(PUBLISH_PROGRAM), args);
    } else {
        const QStringList shell{QStringLiteral("-c"),
                                limits + QStringLiteral("; exec \"$0\" \"$@\""),
                                QStringLiteral(PUBLISH_PROGRAM)};
        m_process.start(QStringLiteral("/bin/sh"), shell + args);
    }
    QVERIFY2(m_process.waitForFinished(60000), qPrintable(m_process.errorString()));
    QCOMPARE(m_process.exitStatus(), QProcess::NormalExit);
    m_error = QString::fromUtf8(m_process.readAllStandardError());
}

void tst_publish::roundTrip()
{
    // 3 MiB that compress and repeat, and bytes of every value.
    QByteArray large(3 << 20, 'a');
    for (int i = 0; i < 256; ++i)
        large[i] = char(i);
    const QMap<QString, QByteArray> files{
        {QStringLiteral("a.txt"), "one"},
        {QStringLiteral("mods/1.0/deep/er/large.bin"), large},
        {QStringLiteral("mods/empty.pyc"), ""},
        {QStringLiteral("mods/\u4e2d\u6587 \u540d.txt"), "zh"},
        {QStringLiteral("mods/\U0001F600.txt"), "outside the BMP"},
        {QStringLiteral("mods/.hidden"), "a dot below the top is fine"},
    };
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        put(file.key(), file.value());
    QVERIFY(QDir().mkpath(at(QStringLiteral("plugin/mods/empty folder"))));

    run(arguments() << QStringLiteral("--date") << QStringLiteral("2021-03-05 10:20:30"));
    QCOMPARE(m_error, QString());
    QCOMPARE(m_process.exitCode(), 0);

    const auto document = QJsonDocument::fromJson(contentOf(at(QStringLiteral("out/cms/upgrade"))));
    QCOMPARE(document.object()[QStringLiteral("errno")], QJsonValue(0));
    const QJsonObject data = document.object()[QStringLiteral("data")].toObject();
    QCOMPARE(data[QStringLiteral("version_name")].toString(), QStringLiteral("1.2 \u6d4b\u8bd5"));
    QCOMPARE(data[QStringLiteral("updated_at")].toString(), QStringLiteral("2021-03-05 10:20:30"));

    const QString packageMd5 = data[QStringLiteral("md5")].toString();
    const auto link = QRegularExpression(Zip).match(data[QStringLiteral("link")].toString());
    QCOMPARE(link.captured(1), packageMd5);
    const QString package = at(QStringLiteral("out/packages/%1.zip").arg(packageMd5));
    QCOMPARE(md5(contentOf(package)), packageMd5);
    QVERIFY(QFile::permissions(package) & QFile::ReadOther);
    QCOMPARE(tree(at(QStringLiteral("out"))).size(), 4);

    const QString info = data[QStringLiteral("upgrade_info")].toString();
    const QJsonObject list = QJsonDocument::fromJson(info.toLatin1()).object();
    QCOMPARE(list.keys(), QStringList(files.keys()));
    QZipReader reader(package);
    QCOMPARE(reader.fileInfoList().size(), files.size());
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        QCOMPARE(list[file.key()].toString(), md5(file.value()));
        QCOMPARE(reader.fileData(file.key()), file.value());
    }
}

void tst_publish::secondRunKeepsEarlierPackage()
{
    // Twice in a row the same package may come out, or one with a later time in it.
    put(QStringLiteral("a"), "1");
    for (int i = 0; i < 2; ++i) {
        run(arguments());
        QCOMPARE(m_process.exitCode(), 0);
    }
    const QStringList first = tree(at(QStringLiteral("out/packages")));
    put(QStringLiteral("a"), "2");
    run(arguments());
    QCOMPARE(m_process.exitCode(), 0);
    const QStringList both = tree(at(QStringLiteral("out/packages")));
    QCOMPARE(both.size(), first.size() + 1);
    QVERIFY(both.contains(first.constFirst()));

    // The earlier one must not be announced any more, and a failure must harm neither.
    const QByteArray manifest = contentOf(at(QStringLiteral("out/cms/upgrade")));
    QVERIFY(!manifest.contains(first.constFirst().toUtf8()));
    put(QStringLiteral("nul"));
    run(arguments());
    QCOMPARE(m_process.exitCode(), 1);
    QCOMPARE(tree(at(QStringLiteral("out/packages"))), both);
    QCOMPARE(contentOf(at(QStringLiteral("out/cms/upgrade"))), manifest);
}

void tst_publish::usage_data()
{
    QTest::addColumn<QStringList>("more");
    QTest::addColumn<int>("removed"); // so many of the right arguments, from the end
    QTest::addColumn<int>("exitCode");

    const auto option = [](const char *name, const char *value) {
        return QStringList{QString::fromLatin1(name), QString::fromLatin1(value)};
    };
    QTest::newRow("help") << QStringList{QStringLiteral("--help")} << 8 << 0;
    QTest::newRow("nothing") << QStringList() << 8 << 2;
    QTest::newRow("no output") << QStringList() << 2 << 2;
    QTest::newRow("no value") << QStringList() << 1 << 2;
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--force")} << 0 << 2;
    QTest::newRow("stray argument") << QStringList{QStringLiteral("stray")} << 0 << 2;
    QTest::newRow("blank version") << option("--plugin-version", " ") << 0 << 2;
    QTest::newRow("address without scheme") << option("--base-url", "127.0.0.1:8102") << 0 << 2;
    QTest::newRow("address without host") << option("--base-url", "http:///x") << 0 << 2;
    QTest::newRow("address of a file") << option("--base-url", "file:///tmp") << 0 << 2;
    QTest::newRow("address with query") << option("--base-url", "http://h/?a=b") << 0 << 2;
    QTest::newRow("date without time") << option("--date", "2021-03-05") << 0 << 2;
    QTest::newRow("date that isn't one") << option("--date", "2021-02-30 10:00:00") << 0 << 2;
}

void tst_publish::usage()
{
    QFETCH(QStringList, more);
    QFETCH(int, removed);
    QFETCH(int, exitCode);
    put(QStringLiteral("a"));
    run(arguments().mid(0, 8 - removed) + more);
    QCOMPARE(m_process.exitCode(), exitCode);
    QCOMPARE(m_error.count(QLatin1Char('\n')), exitCode == 0 ? 0 : 1);
    QVERIFY(!QFileInfo::exists(at(QStringLiteral("out"))));
}

void tst_publish::badInput_data()
{
    QTest::addColumn<QString>("prepare"); // a shell line, run in the test's folder
    QTest::addColumn<QString>("limits");
    QTest::addColumn<QString>("complaint");

    const auto row = [](const char *name, const QString &prepare, const char *complaint,
                        const char *limits = "") {
        QTest::newRow(name) << prepare << QString::fromLatin1(limits)
                            << QString::fromUtf8(complaint);
    };
    row("no such folder", QStringLiteral("rm -r plugin"), "no such folder");
    row("a file for a folder", QStringLiteral("rm -r plugin; touch plugin"), "no such folder");
    row("no files", QStringLiteral("rm plugin/*; mkdir -p plugin/a/b"), "no files");
    row("link to a file", QStringLiteral("ln -s good plugin/link"), "link is a symbolic link");
    row("dangling link", QStringLiteral("ln -s none plugin/link"), "link is a symbolic link");
    row("link to a folder", QStringLiteral("ln -s . plugin/link"), "link is a symbolic link");
    row("pipe", QStringLiteral("mkfifo plugin/pipe"), "pipe is not a regular file");
    row("case twins", QStringLiteral("touch plugin/Good"), "differ only in case");
    row("case twins of folders", QStringLiteral("mkdir -p plugin/\u00c4 plugin/\u00e4"),
        "only in case");
    row("colon", QStringLiteral("touch plugin/a:b"), "a:b has the character : in its name");
    row("backslash below", QStringLiteral("mkdir plugin/d; touch 'plugin/d/a\\b'"),
        "d/a\\b has the");
    row("new line", QStringLiteral("touch \"plugin/a\nb\""), "a?b has a control character");
    row("not UTF-8", QStringLiteral("touch \"plugin/$(printf 'a\\377')\""),
        "cannot be listed whole");
    row("trailing dot", QStringLiteral("touch plugin/a."), "a. has a name that ends with");
    row("trailing blank of a folder", QStringLiteral("mkdir 'plugin/a '"),
        "has a name that ends with");
    row("device", QStringLiteral("touch plugin/Aux"), "Aux has the name of a device");
    row("device with extension", QStringLiteral("touch plugin/com1.tar.gz"),
        "the name of a device");
    row("device with a superscript", QStringLiteral("touch plugin/LPT\u00b2.x"),
        "name of a device");
    row("dot at the top", QStringLiteral("mkdir plugin/.git"), ".git begins with a dot");
    row("too large", QStringLiteral("truncate -s 2000000001 plugin/huge"), "huge is larger than");
    row("output in the plugin", QStringLiteral("mkdir plugin/new; ln -s plugin/new out"),
        "lies in the plugin folder");
    row("output is a file", QStringLiteral("touch out"), "cannot create the folder");
    row("packages is a file", QStringLiteral("mkdir out; touch out/packages"), "cannot create the");
    row("manifest is a folder", QStringLiteral("mkdir -p out/cms/upgrade"), "out/cms/upgrade: ");
    row("full disk", QStringLiteral("head -c 200000 /dev/urandom >plugin/random"),
        "cannot write to", "trap '' XFSZ; ulimit -f 100");
}

void tst_publish::badInput()
{
    QFETCH(QString, prepare);
    QFETCH(QString, limits);
    QFETCH(QString, complaint);
    if (onWindows())
        QSKIP("its file system has no such names, links and pipes, and no shell to make them");
    put(QStringLiteral("good"));
    QProcess shell;
    shell.setWorkingDirectory(m_dir->path());
    shell.start(QStringLiteral("/bin/sh"), {QStringLiteral("-ec"), prepare});
    QVERIFY(shell.waitForFinished());
    QCOMPARE(shell.exitCode(), 0);
    const QStringList before = tree(m_dir->path());

    run(arguments(), limits);
    QCOMPARE(m_process.exitCode(), 1);
    QVERIFY2(m_error.contains(complaint), qPrintable(m_error));
    QCOMPARE(m_error.count(QLatin1Char('\n')), 1);
    QCOMPARE(tree(m_dir->path()), before);
    // The toolkit can't remove names that it can't decode.
    QProcess::execute(QStringLiteral("rm"), {QStringLiteral("-rf"), at(QStringLiteral("plugin"))});
}

void tst_publish::interrupted()
{
    if (onWindows())
        QSKIP("there a program without a console of its own can't be interrupted by another");
    const QByteArray data(4 << 20, 'x');
    for (int i = 0; i < 40; ++i)
        put(QString::number(i), data);
    m_process.start(QStringLiteral(PUBLISH_PROGRAM), arguments());
    QVERIFY(m_process.waitForStarted());
    // From here on it is packing.
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(at(QStringLiteral("out/cms"))), 10000);
    m_process.terminate();
    QVERIFY(m_process.waitForFinished(60000));
    QCOMPARE(m_process.exitCode(), 1);
    QVERIFY(m_process.readAllStandardError().contains("interrupted"));
    QVERIFY(!QFileInfo::exists(at(QStringLiteral("out"))));
}

QTEST_GUILESS_MAIN(tst_publish)
#include "tst_publish.moc"
