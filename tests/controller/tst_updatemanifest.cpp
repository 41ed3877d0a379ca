#include "UpdateManifest.h"

#include <QJsonDocument>
#include <QtTest>

namespace
{
UpdateManifest read(const QByteArray &json)
{
    return UpdateManifest::fromJson(QJsonDocument::fromJson(json).object());
}
} // namespace

class tst_UpdateManifest : public QObject
{
    Q_OBJECT
private slots:
    void roundTrip();
    void oddFields();
};

/// What the publisher writes is what the program reads, whatever the names are made of, except for
/// paths that lead elsewhere.
void tst_UpdateManifest::roundTrip()
{
    UpdateManifest written;
    written.hasData = true;
    written.version = "1.2 \"测试\" \\ 😀";
    written.packageMd5 = "0123456789abcdef0123456789abcdef";
    written.updatedAt = "2021-03-05 10:20:30";
    written.packageSize = "3000000000";
    written.link = "http://h/包 \"1\".zip?a=b&c";
    written.files.emplace();
    for (const char *path : {"a", "mods\\a.pyc", "mods\\\\twice", "a/../b", "..a/b", "a/./b",
                             "res/模型/b", "it's \"quoted\"", "😀/\u2028\x7f\u00e9"})
        written.files->insert(path, "1");
    const QJsonObject good = written.toJson();
    for (const char *path : {"", ".", "..", "../a/b", "..\\a", "a/../../b/c", "a\\..\\..\\b", "/a",
                             "\\a", "C:\\a", "c:a", "a/b:stream", "a/.."})
        written.files->insert(path, "1");
    const auto got = read(QJsonDocument(written.toJson()).toJson());
    QVERIFY(got.hasData && !got.isServerError);
    QCOMPARE(got.toJson(), good);
    QCOMPARE(got.packageSize, written.packageSize);
    QCOMPARE(got.date(), QString("2021-03-05"));
    written.updatedAt = "2021-03-05";
    QCOMPARE(written.date(), QString("2021-03-05"));
}

void tst_UpdateManifest::oddFields()
{
    QVERIFY(!read(R"({"errno": 0.5, "data": {}})").isServerError);
    QVERIFY(!read(R"({"errno": 0, "data": []})").hasData);
    const auto odd = read(R"({"data": {"version_name": 7, "md5": 7, "updated_at": null,
        "link": ["x"], "size": 7, "upgrade_info": {"a": "1"}}})");
    QVERIFY(odd.version.isEmpty() && !odd.packageMd5 && !odd.updatedAt && !odd.link && !odd.files &&
            !odd.packageSize);
    QVERIFY(read(R"({"data": {"upgrade_info": "{nonsense"}})").files->isEmpty());
}

QTEST_APPLESS_MAIN(tst_UpdateManifest)
#include "tst_updatemanifest.moc"
