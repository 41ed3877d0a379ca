#include "ManifestTrust.h"
#include "SigningKey.h"

#include <QTemporaryDir>
#include <QtTest>

#include <map>

using ManifestSignature::Format;

namespace
{
constexpr qint64 Now = 1000000, Day = 86400;

/// By one letter each; the program trusts A and B.
using Signers = std::map<char, SigningKey>;

Signers makeSigners()
{
    const QTemporaryDir dir;
    QString error;
    Signers signers;
    for (const char name : {'A', 'B', 'C'})
        signers.emplace(name, *SigningKey::create(dir.filePath(QChar(name)), &error));
    return signers;
}
} // namespace

class tst_ManifestTrust : public QObject
{
    Q_OBJECT
    const Signers m_signers = makeSigners();

    /// As it stands in the memory.
    static QString hex(const SigningKey &signer)
    {
        return QString::fromLatin1(signer.publicKey().toHex());
    }

    /// "SIGNER SERIAL CHANGE...", where "name=text" changes a field before it is signed,
    /// "name:=text" afterwards, and "-name" removes one afterwards.
    QJsonObject manifest(const QString &words) const
    {
        const QStringList parts = words.split(' ');
        const SigningKey &signer = m_signers.at(parts[0][0].toLatin1());
        QJsonObject data{{"serial", parts[1]}, {"size", "9"}};
        for (const char *name : {"version_name", "md5", "sha256", "updated_at", "upgrade_info"})
            data[name] = "x";
        data["link"] = "";
        for (const QString &change : parts.filter(QRegularExpression("^\\w+=")))
            data[change.section('=', 0, 0)] = change.section('=', 1);
        const QJsonObject unsignedData = data;
        for (const Format format : {Format::V1, Format::V2}) {
            const QByteArray bytes = *ManifestSignature::signedBytes(unsignedData, format);
            data[ManifestSignature::nameOf(format)] =
                QString::fromLatin1(signer.signatureOf(bytes).toBase64());
        }
        for (const QString &change : parts.filter(":="))
            data[change.section(":=", 0, 0)] = change.section(":=", 1);
        for (const QString &removed : parts.filter(QRegularExpression("^-")))
            data.remove(removed.mid(1));
        return data;
    }

    /// "A:7 C:9 unkeyed:8 needs2", with keys by their letters.
    ManifestTrust::Memory memory(const QString &words) const
    {
        ManifestTrust::Memory memory;
        QStringList serials = words.split(' ', Qt::SkipEmptyParts);
        memory.needsSignature2 = serials.removeAll("needs2") > 0;
        if (!serials.isEmpty() && serials.last().startsWith("unkeyed:"))
            memory.unkeyedSerial = serials.takeLast().section(':', 1);
        memory.serials = serials.join(' ');
        for (const auto &[name, signer] : m_signers)
            memory.serials.replace(QString(QChar(name)) + ':', hex(signer) + ':');
        return memory;
    }

    QString words(const ManifestTrust::Verdict &verdict) const
    {
        QString serials = verdict.memory.serials;
        for (const auto &[name, signer] : m_signers)
            serials.replace(hex(signer), QChar(name));
        using Outcome = ManifestTrust::Verdict::Outcome;
        if (verdict.outcome != Outcome::Accepted)
            return verdict.outcome == Outcome::Refused ? "refused" : "outdated";
        return QString(verdict.isSizeSigned ? "sized " : "unsized ") + serials +
               (verdict.memory.needsSignature2 ? " needs2" : "");
    }

private slots:
    void judge_data();
    void judge();
    void keyLists();
};

void tst_ManifestTrust::judge_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("offered");
    QTest::addColumn<QString>("verdict");
    QTest::addColumn<int>("lowest");
    const auto row = [](const QString &before, const QString &offered, const QString &verdict,
                        int lowest = 0) {
        QTest::addRow("%s | %s | %d", qPrintable(before), qPrintable(offered), lowest)
            << before << offered << verdict << lowest;
    };
    const QString accepted = "sized A:100 needs2";
    // Which signature counts
    row("", "A 100", accepted);
    row("needs2", "A 100 -signature", accepted);
    row("", "A 100 -signature2", "unsized A:100");
    row("", "A 100 -signature2 size:=nonsense", "unsized A:100");
    row("needs2", "A 100 -signature2", "refused");
    row("", "A 100 -signature2 -signature", "refused");
    for (const char *change :
         {"signature2:=", "signature2:=AAAA", "size:=8", "-size", "rollout:=5", "serial:=101"})
        row("", QString("A 100 ") + change, "refused");
    row("", "A 100 -signature2 serial:=101", "refused");
    row("", "C 100", "refused");
    row("", "A 100 rollout=5", accepted);
    // What is signed and can't be
    row("", "A 100 size=", accepted);
    row("", "A 100 size=9x", "refused");
    row("", "A 100 size=-9", "refused");
    row("", "A 1x", "refused");
    row("", "A 99999999999999999999", "refused");

    // Never an older one, whichever of the program's own keys has signed it
    row("A:100", "A 100", accepted);
    row("A:101 needs2", "A 100", "outdated");
    row("B:101 A:7", "A 100", "outdated");
    row("A:7 B:50", "A 100", "sized A:100 B:50 needs2");
    row("C:101", "A 100", "sized A:100 C:101 needs2");
    row("A:x nonsense B: :", "A 100", "sized A:100 nonsense B: : needs2");
    row(QString("C:101 ").repeated(20), "A 100",
        "sized A:100 " + QString("C:101 ").repeated(15) + "needs2");
    row("unkeyed:101", "A 100", "outdated");
    row(QString("unkeyed:%1").arg(Now + Day), "A 100", "outdated");
    row(QString("unkeyed:%1").arg(Now + Day + 1), "A 100", accepted);
    // Built in, for want of anything better
    row("", "A 100", "outdated", 101);
    row("", "A 100", accepted, 100);
    row("C:7", "A 100", "outdated", 101);
    row("A:7", "A 100", accepted, 101);
    row("unkeyed:7", "A 100", accepted, 101);
}

void tst_ManifestTrust::judge()
{
    QFETCH(QString, before);
    QFETCH(QString, offered);
    QFETCH(int, lowest);
    const ManifestTrust::Publishers publishers{
        {m_signers.at('A').publicKey(), m_signers.at('B').publicKey()}, quint64(lowest)};
    QTEST(words(ManifestTrust::judge(manifest(offered), publishers, memory(before), Now)),
          "verdict");
}

/// No word of a list is left out in silence.
void tst_ManifestTrust::keyLists()
{
    const QByteArray key = m_signers.at('A').publicKey().toBase64();
    QVERIFY(ManifestSignature::isKeyList(""));
    QVERIFY(ManifestSignature::isKeyList((key + ',' + key).toStdString()));
    QCOMPARE(ManifestSignature::keysFromText(key + ',' + key).size(), 2);
    for (const QByteArray &text :
         {key.chopped(1), key + ',', ',' + key, key + ",," + key, key + ';' + key, key + ", " + key,
          key + 'A', key.chopped(2) + "B=", key.chopped(2) + "==", '-' + key.mid(1)})
        QVERIFY2(!ManifestSignature::isKeyList(text.toStdString()), text);
}

QTEST_APPLESS_MAIN(tst_ManifestTrust)
#include "tst_manifesttrust.moc"
