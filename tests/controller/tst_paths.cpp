#include "Paths.h"

#include <QtTest>

class tst_Paths : public QObject
{
    Q_OBJECT
private slots:
    void staysInside_data();
    void staysInside();
};

void tst_Paths::staysInside_data()
{
    QTest::addColumn<bool>("inside");
    for (const char *path : {"a", "mods/a.pyc", "mods\\a.pyc", "mods\\\\a.pyc", "a/../b", "..a/b",
                             "a/./b", "res/模型/b"})
        QTest::newRow(path) << true;
    for (const char *path : {"", ".", "..", "../a", "..\\a", "a/../../b", "a\\..\\..\\b", "/a",
                             "\\a", "\\\\server\\share", "C:\\a", "c:a", "a/b:stream", "a/.."})
        QTest::newRow(path) << false;
}

void tst_Paths::staysInside()
{
    QFETCH(bool, inside);
    QCOMPARE(Paths::staysInside(QString::fromUtf8(QTest::currentDataTag())), inside);
}

QTEST_APPLESS_MAIN(tst_Paths)
#include "tst_paths.moc"
