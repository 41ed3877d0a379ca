#include "Files.h"
#include "PluginConfigDataReader.h"
#include "SmallDisk.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace
{
constexpr char XmlHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

QByteArray document(const QByteArray &word, const QByteArray &more = {})
{
    return "<root><version>1.2</version><game_version>1.12.0</game_version><setting>" + word +
           "</setting>" + more + "<other  a='1'>不\nb &amp; c</other></root>";
}

QByteArray rewritten(const char *word, const QByteArray &docType = {})
{
    return R"(<?xml version="1.0" encoding="UTF-8"?>
)" + docType +
           R"(<root>
    <version>1.2</version>
    <game_version>1.12.0</game_version>
    <setting>)" +
           word + R"(</setting>
    <other a="1">不
b &amp; c</other>
</root>
)";
}
} // namespace

class tst_PluginConfig : public QObject
{
    Q_OBJECT
    QScopedPointer<QTemporaryDir> m_game;

    QString path() const { return m_game->filePath("mods/configs/corvane.xml"); }

private slots:
    void init() { m_game.reset(new QTemporaryDir); }

    void reads_data()
    {
        QTest::addColumn<QByteArray>("content");
        // In order: game version, hello, standings, replay, version.
        QTest::addColumn<QString>("signalled");
        const auto row = [](const char *name, const QByteArray &content, const char *signalled) {
            QTest::newRow(name) << content << signalled;
        };
        row("all on", document("3674210304"), "1.12.0 true true true 1.2");
        row("only the upper half of hello", document("2147483648"), "1.12.0 false false false 1.2");
        row("hello", document("2164260864"), "1.12.0 true false false 1.2");
        row("replay and foreign bits", document("1006633215"), "1.12.0 false false true 1.2");
        row("nothing known", "<r/>", "false false false ");
        row("not well-formed", "<r><setting>1</r>", "");
        const QByteArray nested =
            QByteArray("<n>").repeated(1000) + QByteArray("</n>").repeated(1000);
        row("nested too deep", document("1", nested), "");
    }

    void reads()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, signalled);
        Files::write(path(), content);
        PluginConfigDataReader reader;
        QStringList got;
        const auto note = [&got](const auto &value) { got += QVariant(value).toString(); };
        connect(&reader, &PluginConfigDataReader::pluginSupportGameVersion, this, note);
        connect(&reader, &PluginConfigDataReader::pluginHelloMessageOpen, this, note);
        connect(&reader, &PluginConfigDataReader::pluginUploadStandingsOpen, this, note);
        connect(&reader, &PluginConfigDataReader::pluginUploadReplayOpen, this, note);
        connect(&reader, &PluginConfigDataReader::pluginVersion, this, note);
        reader.readPluginConfigData(m_game->path());
        QCOMPARE(got.join(' '), signalled);
    }

    void writes_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("options"); // in the same order
        QTest::addColumn<QByteArray>("after");
        const auto row = [](const char *name, const QByteArray &before, const char *options,
                            const QByteArray &after) {
            QTest::newRow(name) << before << QByteArray(options) << after;
        };
        row("hello", document("2147483648"), "100", rewritten("2164260864"));
        row("replay", document("on"), "001", rewritten("402653184"));
        row("foreign bits stay, off", document("4294967295"), "000", rewritten("620756991"));
        row("foreign bits stay, on", document("620756991"), "111", rewritten("4294967295"));
        for (const char *tooLarge : {"4294967296", "99999999999999999999999"})
            row(tooLarge, document(tooLarge), "111", document(tooLarge));
        // Other programs' ways to store the same text.
        const QString text = document("0");
        row("UTF-16, CRLF",
            QTextCodec::codecForName("UTF-16")->fromUnicode(
                "<?xml version='1.0' encoding='UTF-16'?>" + QString(text).replace("\n", "\r\n")),
            "000", rewritten("0"));
        const QByteArray docType = "<!DOCTYPE root [\n  <!ENTITY  a 'b'> <!-- > -->\n]>\n";
        row("document type", docType + text.toUtf8(), "000", rewritten("0", docType));
        // What is not the setting comes out as it went in, or nothing is written.
        const auto kept = [&row](const char *name, const QByteArray &head, const QByteArray &inner,
                                 const QByteArray &outer = "<r>") {
            const QByteArray end = "</r>\n";
            row(name, head + outer + "<setting>0</setting>" + inner + end, "001",
                QByteArray(XmlHead) + head + outer + "\n    <setting>402653184</setting>\n    " +
                    inner + "\n" + end);
        };
        // One attribute an element, because their order is any.
        kept("namespaces", "", "<p:a p:b=\"1\">t</p:a>\n    <c xmlns=\"urn:e\">u</c>",
             "<r xmlns:p=\"urn:d\">");
        kept("CDATA", "", "<a>x<![CDATA[<1>]]> <![CDATA[&2]]></a>");
        kept("comments and instructions", "<!-- 甲 -->\n<?p q=\"1\"?>\n", "<!-- - -->");
        kept("comment before the type", "<!--c-->\n<!DOCTYPE r [<!--d--><!ENTITY e \"f\">]>\n",
             "<a>f</a>");
        kept("tab and line feed in an attribute", "", "<a b=\"1&#x9;2&#xa;3\"/>");
        const auto refused = [&row](const char *name, const QByteArray &xml) {
            row(name, xml, "111", xml);
        };
        refused("blanks to keep", "<r><setting>0</setting><a xml:space='preserve'> </a></r>");
        refused("instruction before text", "<r><setting>0</setting><a><?p q?>t</a></r>");
        refused("type's comment twice",
                "<!--d--><!DOCTYPE r [<!--d-->]><r><setting>0</setting></r>");
        const QTextCodec *gb18030 = QTextCodec::codecForName("GB18030");
        row("GB18030", gb18030->fromUnicode("<?xml version='1.0' encoding='GB18030'?>" + text),
            "000", rewritten("0"));
        row("byte order mark", "\xef\xbb\xbf" + document("0"), "000", rewritten("0"));
        refused("GB18030, not declared", gb18030->fromUnicode(text));
        refused("UTF-16, not declared",
                QByteArray(reinterpret_cast<const char *>(text.utf16()), text.size() * 2));
        row("setting in CDATA", "<r><setting><![CDATA[0]]></setting></r>", "000",
            QByteArray(XmlHead) + "<r>\n    <setting><![CDATA[0]]></setting>\n</r>\n");
        row("entity for the setting",
            "<!DOCTYPE r [<!ENTITY e \"6\">]>\n<r><setting>1&e;7</setting></r>", "000",
            QByteArray(XmlHead) +
                "<!DOCTYPE r [<!ENTITY e \"6\">]>\n<r>\n    <setting>167</setting>\n</r>\n");
        row("not well-formed", "<r>", "111", "<r>");
        row("missing", {}, "111", {});
    }

    void writes()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, options);
        QFETCH(QByteArray, after);
        if (!before.isEmpty())
            Files::write(path(), before);
        PluginConfigDataReader reader;
        QSignalSpy complete(&reader, &PluginConfigDataReader::pluginConfigWriteComplete);
        reader.writePluginConfigData(options[0] == '1', options[1] == '1', options[2] == '1',
                                     m_game->path());
        QCOMPARE(complete.count(), 1);
        QCOMPARE(Files::readTree(m_game->path()).values(),
                 before.isEmpty() ? QList<QByteArray>() : QList<QByteArray>{after});
    }

    void keepsTheFileOnAFullDisk()
    {
#ifdef Q_OS_UNIX
        const QByteArray before = document("0", "<a>" + QByteArray(2000, 'x') + "</a>");
        Files::write(path(), before);
        {
            const SmallDisk disk;
            PluginConfigDataReader().writePluginConfigData(true, true, true, m_game->path());
        }
        QCOMPARE(Files::readTree(m_game->path()).values(), QList<QByteArray>{before});
#endif
    }

    /// The file is the user's to write, its folder is not.
    void writesWithoutTheFolder()
    {
#ifdef Q_OS_UNIX
        constexpr uid_t Nobody = 65534;
        const uid_t self = geteuid();
        const QByteArray folder = QFile::encodeName(QFileInfo(path()).path());
        Files::write(path(), document("0"));
        QVERIFY(chmod(QFile::encodeName(path()), 0666) == 0 && chmod(folder, 0555) == 0 &&
                chmod(QFile::encodeName(m_game->path()), 0755) == 0);
        QVERIFY(self != 0 || seteuid(Nobody) == 0); // a superuser may write everywhere
        PluginConfigDataReader().writePluginConfigData(false, false, true, m_game->path());
        QVERIFY(seteuid(self) == 0 && chmod(folder, 0755) == 0);
        QCOMPARE(Files::read(path()), rewritten("402653184"));
#else
        return QTest::qSkip("permissions are another matter here", __FILE__, __LINE__);
#endif
    }
};

QTEST_GUILESS_MAIN(tst_PluginConfig)
#include "tst_pluginconfig.moc"
