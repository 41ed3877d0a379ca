#include "ZipWriter.h"

#include <QBuffer>
#include <QTemporaryFile>
#include <QtTest>

#include <climits>

class tst_ZipWriter : public QObject
{
    Q_OBJECT
private slots:
    void readsBack()
    {
        QTemporaryFile file;
        QVERIFY(file.open());
        ZipWriter zip(file);
        QBuffer source;
        source.setData("one two three");
        QString md5;
        QVERIFY(source.open(QIODevice::ReadOnly) && zip.add("a", source, &md5) && zip.finish());
        uchar *const bytes = file.map(0, file.size());
        for (qint64 at = 0; at < file.size(); ++at) {
            bytes[at] ^= 0xff;
            QVERIFY2(!zip.readBack(), qPrintable(QString::number(at)));
            bytes[at] ^= 0xff;
        }
        QVERIFY(zip.readBack());
    }

    void limits()
    {
        QTemporaryFile many, large;
        QVERIFY(many.open() && large.open());
        ZipWriter zip(many);
        QBuffer source;
        source.open(QIODevice::ReadOnly);
        QString md5;
        for (int i = 0; i < 65535; ++i)
            QVERIFY(zip.add("a", source, &md5));
        QVERIFY(!zip.add("a", source, &md5));

        // As if it held that much already.
        const auto fits = [&](qint64 size, bool finish) {
            QFile::resize(large.fileName(), size);
            large.seek(size);
            ZipWriter archive(large);
            return archive.add("a", source, &md5) && (!finish || archive.finish());
        };
        QVERIFY(fits(INT_MAX - 200, true));
        QVERIFY(!fits(INT_MAX - 60, true));
        QVERIFY(!fits(INT_MAX, false));
    }
};

QTEST_GUILESS_MAIN(tst_ZipWriter)
#include "tst_zipwriter.moc"
