#include "Coded.h"
#include "ContentDecoder.h"

#include <QtTest>

#include <random>

namespace
{
struct Body {
    QByteArray coding, encoded;
    QByteArray decoded;  ///< null if it must not be accepted
    QString error = {};  ///< a part of the reason
    int limit = 1 << 20; ///< bytes
};

/// Long enough for several pieces, and partly incompressible, so that they end anywhere.
QByteArray sample()
{
    std::mt19937 random(1);
    QByteArray bytes(200000, 'a');
    for (int i = 50000; i < 100000; ++i)
        bytes[i] = char(random());
    return bytes;
}
} // namespace
Q_DECLARE_METATYPE(Body)

class tst_ContentDecoder : public QObject
{
    Q_OBJECT
private slots:
    void decoding_data()
    {
        QTest::addColumn<Body>("body");
        const QByteArray plain = sample(), gzip = Coded::body(plain, Coded::Gzip),
                         zlib = Coded::body(plain, Coded::Zlib),
                         raw = Coded::body(plain, Coded::Raw);
        QByteArray wrongSum = gzip;
        wrongSum[gzip.size() - 8] = char(~wrongSum[gzip.size() - 8]);
        const auto row = [](const char *name, const Body &body) { QTest::newRow(name) << body; };
        row("none", {"", plain, plain});
        row("identity", {"identity", plain, plain});
        row("gzip", {" GZip ", gzip, plain});
        row("x-gzip", {"x-gzip", gzip, plain});
        row("members", {"gzip", gzip + gzip, plain + plain});
        row("zlib", {"deflate", zlib, plain});
        row("raw", {"deflate", raw, plain});
        row("empty", {"deflate", Coded::body("", Coded::Raw), ""});
        row("no body", {"gzip", "", ""});
        row("full", {"gzip", gzip, plain, "", plain.size()});

        row("too large", {"gzip", gzip, {}, "larger than 199999 bytes", plain.size() - 1});
        row("plain too large", {"", plain, {}, "larger than 199999 bytes", plain.size() - 1});
        row("brotli", {"br", plain, {}, "unknown coding br"});
        row("twice", {"gzip, gzip", gzip, {}, "unknown coding gzip, gzip"});
        row("wrong sum", {"gzip", wrongSum, {}, "damaged"});
        row("no gzip", {"gzip", plain, {}, "damaged"});
        row("zlib as gzip", {"gzip", zlib, {}, "damaged"});
        row("cut off", {"gzip", gzip.chopped(1), {}, "cut off"});
        row("second member cut off", {"gzip", gzip + gzip.left(5), {}, "cut off"});
        row("one byte", {"deflate", "x", {}, "cut off"});
        row("garbage behind", {"deflate", zlib + 'x', {}, "behind"});
        row("garbage behind raw", {"deflate", raw + "xy", {}, "behind"});
        row("garbage behind gzip", {"gzip", gzip + "xy", {}, "damaged"});
    }

    /// However the network cuts it.
    void decoding()
    {
        QFETCH(Body, body);
        for (const int part : {1, 1000, 1 << 20}) {
            QByteArray result = "";
            ContentDecoder decoder(body.coding, body.limit, [&](const char *bytes, int size) {
                result.append(bytes, size);
                return size <= ContentDecoder::PieceSize;
            });
            bool isGood = true;
            for (int at = 0; isGood && at < body.encoded.size(); at += part)
                isGood = decoder.add(body.encoded.mid(at, part));
            isGood = isGood && decoder.finish();
            QCOMPARE(isGood, !body.decoded.isNull());
            QCOMPARE(decoder.errorText().isEmpty(), isGood);
            QVERIFY2(decoder.errorText().contains(body.error), qPrintable(decoder.errorText()));
            QCOMPARE(decoder.decodedSize(), qint64(result.size()));
            QVERIFY(isGood ? result == body.decoded : result.size() <= body.limit);
            // What was bad stays bad.
            QCOMPARE(isGood || decoder.add("x") || decoder.finish(), isGood);
        }
    }

    void unwanted()
    {
        int calls = 0;
        ContentDecoder decoder("gzip", 1 << 20, [&](const char *, int) { return ++calls < 3; });
        QVERIFY(!decoder.add(Coded::body(sample(), Coded::Gzip)));
        QCOMPARE(calls, 3);
        QCOMPARE(decoder.decodedSize(), qint64(2) * ContentDecoder::PieceSize);
    }
};

QTEST_GUILESS_MAIN(tst_ContentDecoder)
#include "tst_contentdecoder.moc"
