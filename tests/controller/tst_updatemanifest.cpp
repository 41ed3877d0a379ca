#include "UpdateManifest.h"

#include <QJsonDocument>
#include <QtTest>

class tst_UpdateManifest : public QObject
{
    Q_OBJECT
private slots:
    void roundTrip();
    void oddFields();
};

/// What the publisher writes is what the program reads, whatever the names are made of.
void tst_UpdateManifest::roundTrip()
{
    UpdateManifest written;
    written.hasData = true;
    written.version = "1.2 \"测试\" \\ 😀";
    written.packageMd5 = "0123456789abcdef0123456789abcdef";
    written.updatedAt = "2021-03-05 10:20:30";
    written.link = "http://h/包 \"1\".zip?a=b&c";
    written.files = PluginFileList{{"mods/模型.pyc", "1"},
                                   {"mods\\\\twice\\once", "2"},
                                   {"it's \"quoted\"", "3"},
                                   {"😀/\u2028\x7f\u00e9", "4"}};
    const QByteArray json = QJsonDocument(written.toJson()).toJson();
    const auto read = UpdateManifest::fromJson(QJsonDocument::fromJson(json).object());
    QVERIFY(read.hasData && !read.isServerError);
    QCOMPARE(read.version, written.version);
    QCOMPARE(read.packageMd5, written.packageMd5);
    QCOMPARE(read.updatedAt, written.updatedAt);
    QCOMPARE(read.date(), QString("2021-03-05"));
    QCOMPARE(read.link, written.link);
    QCOMPARE(read.files, written.files);
    written.updatedAt = "2021-03-05";
    QCOMPARE(written.date(), QString("2021-03-05"));
}

void tst_UpdateManifest::oddFields()
{
    const auto read = [](const QByteArray &json) {
        return UpdateManifest::fromJson(QJsonDocument::fromJson(json).object());
    };
    QVERIFY(read(R"({"errno": -1, "data": {}})").isServerError);
    for (const char *good : {R"({"errno": "7", "data": {}})", R"({"errno": 0.5, "data": {}})",
                             R"({"errno": [7], "data": {}})"})
        QVERIFY2(!read(good).isServerError && read(good).hasData, good);
    QVERIFY(!read(R"({"errno": 0, "data": []})").hasData);

    const auto odd = read(R"({"data": {"version_name": 7, "md5": 7, "updated_at": null,
        "link": ["x"], "upgrade_info": {"a": "1"}}})");
    QVERIFY(odd.version.isEmpty() && !odd.packageMd5 && !odd.updatedAt && !odd.link && !odd.files);
    QVERIFY(read(R"({"data": {"upgrade_info": "{nonsense"}})").files->isEmpty());
    const auto climbing = read(R"({"data": {"upgrade_info":
        "{\"../evil\": \"0\", \"a/../../b\": \"1\", \"c:/d\": \"2\", \"fine\": 3}"}})");
    QCOMPARE(*climbing.files, (PluginFileList{{"fine", ""}}));
}

QTEST_APPLESS_MAIN(tst_UpdateManifest)
#include "tst_updatemanifest.moc"
