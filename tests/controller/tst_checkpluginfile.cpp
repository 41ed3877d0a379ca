#include "CheckPluginFile.h"
#include "Files.h"
#include "PluginFileList.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

/// The files of every case: sizes on both sides of a chunk, an empty one, and a Chinese name.
class tst_CheckPluginFile : public QObject
{
    Q_OBJECT
    QTemporaryDir m_game;
    const QString m_chunk = Files::md5(QByteArray(10240, 'a'));

    QString path(const QString &relative) const
    {
        return m_game.path() + QDir::separator() + relative;
    }

private slots:
    void initTestCase()
    {
        Files::write(path("a/chunk.bin"), QByteArray(10240, 'a'));
        Files::write(path("b/chunk1.bin"), QByteArray(10241, 'b'));
        Files::write(path("c/empty"), {});
        Files::write(path("d/模型.pyc"), "x");
    }

    void list_data()
    {
        QTest::addColumn<QVariant>("list");
        QTest::addColumn<QString>("bad"); // relative; empty when all is well
        const auto row = [](const char *name, const PluginFileList &list, const char *bad = "") {
            QTest::newRow(name) << QVariant::fromValue(list) << bad;
        };
        row("all right", {{"a\\chunk.bin", m_chunk},
                          {"b\\\\chunk1.bin", Files::md5(QByteArray(10241, 'b'))},
                          {"c/empty", Files::md5({})},
                          {"d/模型.pyc", Files::md5("x")}});
        QTest::newRow("not a list") << QVariant(7) << QString();
        row("first bad file in key order",
            {{"c/empty", m_chunk}, {"b/chunk1.bin", m_chunk}, {"a/chunk.bin", m_chunk}},
            "b/chunk1.bin");
        row("missing", {{"a/chunk.bin", m_chunk}, {"nowhere", m_chunk}}, "nowhere");
        row("missing and nothing expected", {{"nowhere", {}}});
        row("capitals never match", {{"a/chunk.bin", m_chunk.toUpper()}}, "a/chunk.bin");
        row("xml is skipped", {{"mods/configs/corvane.xml", m_chunk}, {"myxmlfile", m_chunk}});
        row("XML is not skipped", {{"mods/a.XML", m_chunk}}, "mods/a.XML");
    }

    void list()
    {
        QFETCH(QVariant, list);
        QFETCH(QString, bad);
        CheckPluginFile checker;
        QSignalSpy manual(&checker, &CheckPluginFile::ReturnPluginsCheckResult);
        QSignalSpy automatic(&checker, &CheckPluginFile::ReturnAutoUpdatePluginsCheckResult);
        const QVariantList expected{bad.isEmpty() ? m_game.path() : path(bad), bad.isEmpty()};

        checker.CheckFilesMd5(m_game.path(), list);
        QCOMPARE(manual, (QList<QVariantList>{expected}));
        checker.OnAutoUpdateCheckFilesMd5(m_game.path(), list);
        QCOMPARE(automatic, (QList<QVariantList>{expected}));
    }

    void missingFile()
    {
        CheckPluginFile checker;
        QSignalSpy result(&checker, &CheckPluginFile::ReturnFileIsRight);
        checker.CheckFileMd5(QString(), path("nowhere"));
        QCOMPARE(result, (QList<QVariantList>{{path("nowhere"), false}}));
    }
};

QTEST_GUILESS_MAIN(tst_CheckPluginFile)
#include "tst_checkpluginfile.moc"
