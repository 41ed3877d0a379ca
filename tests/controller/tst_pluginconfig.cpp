#include "Files.h"
#include "PluginConfigDataReader.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace
{
QByteArray document(const QByteArray &setting)
{
    return "<root><version>1.2</version><game_version>1.12.0</game_version>" + setting +
           "<other  a='1'>模型</other></root>";
}

QByteArray rewritten(const char *word)
{
    return QByteArray(R"(<?xml version="1.0" encoding="UTF-8"?>
<root>
    <version>1.2</version>
    <game_version>1.12.0</game_version>
    <setting>%1</setting>
    <other a="1">模型</other>
</root>
)")
        .replace("%1", word);
}
} // namespace

class tst_PluginConfig : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void reads_data();
    void reads();
    void writes_data();
    void writes();
    void writesWithoutTheFolder();

private:
    QString path() const { return m_game->filePath("mods/configs/corvane.xml"); }

    QScopedPointer<QTemporaryDir> m_game;
};

void tst_PluginConfig::init()
{
    m_game.reset(new QTemporaryDir);
}

void tst_PluginConfig::reads_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>(
        "signalled"); // in order: game version, hello, standings, replay, version
    const auto word = [](const char *name, const QByteArray &text, const QString &signalled) {
        QTest::newRow(name) << document("<setting>" + text + "</setting>") << signalled;
    };
    word("0", "0", "1.12.0 0 0 0 1.2");
    word("all on", "3674210304", "1.12.0 1 1 1 1.2");
    word("only the upper half of hello", "2147483648", "1.12.0 0 0 0 1.2");
    word("hello", "2164260864", "1.12.0 1 0 0 1.2");
    word("replay and foreign bits", "1006633215", "1.12.0 0 0 1 1.2");
    word("largest", "4294967295", "1.12.0 1 1 1 1.2");
    word("too large", "4294967296", "1.12.0 0 0 0 1.2");
    word("far too large", "99999999999999999999999", "1.12.0 0 0 0 1.2");
    word("no number", "on", "1.12.0 0 0 0 1.2");
    QTest::newRow("no setting") << document({}) << "1.12.0 0 0 0 1.2";
    QTest::newRow("nothing known") << QByteArray("<r/>") << "0 0 0 ";
    QTest::newRow("not well-formed") << QByteArray("<r><setting>1</r>") << QString();
    const auto nested = [](int depth) {
        return document(QByteArray("<n>").repeated(depth) + QByteArray("</n>").repeated(depth));
    };
    QTest::newRow("nested deep") << nested(999) << "1.12.0 0 0 0 1.2";
    QTest::newRow("nested too deep") << nested(1000) << QString();
    QTest::newRow("nested far too deep") << nested(200000) << QString();
}

void tst_PluginConfig::reads()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, signalled);
    Files::write(path(), content);
    PluginConfigDataReader reader;
    QStringList got;
    const auto text = [&got](const QString &value) { got += value; };
    const auto flag = [&got](bool value) { got += QString::number(value); };
    connect(&reader, &PluginConfigDataReader::pluginSupportGameVersion, this, text);
    connect(&reader, &PluginConfigDataReader::pluginHelloMessageOpen, this, flag);
    connect(&reader, &PluginConfigDataReader::pluginUploadStandingsOpen, this, flag);
    connect(&reader, &PluginConfigDataReader::pluginUploadReplayOpen, this, flag);
    connect(&reader, &PluginConfigDataReader::pluginVersion, this, text);
    reader.readPluginConfigData(m_game->path());
    QCOMPARE(got.join(' '), signalled);
}

void tst_PluginConfig::writes_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("on"); // all three options
    QTest::addColumn<QByteArray>("after");
    const auto word = [](const char *name, const char *before, bool on, const char *after) {
        QTest::newRow(name) << document(QByteArray("<setting>") + before + "</setting>") << on
                            << rewritten(after);
    };
    word("0 on", "0", true, "3674210304");
    word("all off", "3674210304", false, "0");
    word("half-set pair", "2147483648", true, "3674210304");
    word("foreign bits stay, off", "4294967295", false, "620756991");
    word("foreign bits stay, on", "620756991", true, "4294967295");
    word("no number", "on", true, "3674210304");
    const QByteArray tooLarge = document("<setting>4294967296</setting>");
    QTest::newRow("too large") << tooLarge << true << tooLarge;
    // Other programs' ways to store the same text.
    const QString text = document("<setting>0</setting>").replace("模型", "不\nb &amp; c");
    const QByteArray lines = rewritten("3674210304").replace("模型", "不\nb &amp; c");
    QTest::newRow("CRLF") << QString(text).replace("\n", "\r\n").toUtf8() << true << lines;
    QTest::newRow("byte order mark") << "\xef\xbb\xbf" + text.toUtf8() << true << lines;
    QTest::newRow("UTF-16") << QTextCodec::codecForName("UTF-16")->fromUnicode(
                                   "<?xml version='1.0' encoding='UTF-16'?>" +
                                   QString(text).replace("\n", "\r\n"))
                            << true << lines;
    const QByteArray docType = "<!DOCTYPE root [\n  <!ENTITY  a 'b'> <!-- > -->\n]>\n";
    QTest::newRow("document type") << docType + text.toUtf8() << true
                                   << QByteArray(lines).insert(lines.indexOf('\n') + 1, docType);
    QTest::newRow("not well-formed") << QByteArray("<r>") << true << QByteArray("<r>");
    QTest::newRow("missing") << QByteArray() << true << QByteArray();
}

void tst_PluginConfig::writes()
{
    QFETCH(QByteArray, before);
    QFETCH(bool, on);
    QFETCH(QByteArray, after);
    if (!before.isEmpty())
        Files::write(path(), before);
    PluginConfigDataReader reader;
    QSignalSpy complete(&reader, &PluginConfigDataReader::pluginConfigWriteComplete);
    reader.writePluginConfigData(on, on, on, m_game->path());
    QCOMPARE(complete.count(), 1);
    QCOMPARE(Files::readTree(m_game->path()).values(),
             before.isEmpty() ? QList<QByteArray>() : QList<QByteArray>{after});
}

/// The file is the user's to write, its folder is not.
void tst_PluginConfig::writesWithoutTheFolder()
{
#ifdef Q_OS_UNIX
    constexpr uid_t Nobody = 65534;
    const uid_t self = geteuid();
    const QByteArray folder = QFile::encodeName(QFileInfo(path()).path());
    Files::write(path(), document("<setting>0</setting>"));
    QVERIFY(chmod(QFile::encodeName(path()), 0666) == 0 && chmod(folder, 0555) == 0 &&
            chmod(QFile::encodeName(m_game->path()), 0755) == 0);
    QVERIFY(self != 0 || seteuid(Nobody) == 0); // a superuser may write everywhere
    PluginConfigDataReader().writePluginConfigData(true, true, true, m_game->path());
    QVERIFY(seteuid(self) == 0 && chmod(folder, 0755) == 0);
    QCOMPARE(Files::readTree(m_game->path()).values(), QList<QByteArray>{rewritten("3674210304")});
#else
    return QTest::qSkip("permissions are another matter here", __FILE__, __LINE__);
#endif
}

QTEST_GUILESS_MAIN(tst_PluginConfig)
#include "tst_pluginconfig.moc"
