#include "PluginConfigDataReader.h"

#include "PluginOptions.h"

#include <QDebug>
#include <QDomDocument>
#include <QFile>
#include <QMutexLocker>
#include <QSaveFile>
#include <QTextStream>
#include <QXmlStreamReader>

#include <optional>

namespace
{
QString configFile(const QString &gamePath)
{
    return gamePath + QStringLiteral("/mods/configs/corvane.xml");
}

/// The plugin's configuration as it was read.
struct Config {
    QDomDocument document;
    QString docType; ///< the declaration as it stands in the file, which the document doesn't keep
};

/// The document type declaration in \a xml, which may be empty; nothing when \a xml is not
/// well-formed or nested too deep for the recursion that takes a document down.
std::optional<QString> docTypeOf(const QByteArray &xml)
{
    constexpr int MaxDepth = 1000;
    QXmlStreamReader reader(xml);
    reader.setNamespaceProcessing(false);
    QString docType = QLatin1String("");
    int depth = 0;
    while (!reader.atEnd() && depth <= MaxDepth) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            ++depth;
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        case QXmlStreamReader::DTD:
            docType = reader.text().toString();
            break;
        default:
            break;
        }
    }
    if (reader.hasError() || depth > MaxDepth)
        return std::nullopt;
    return docType;
}

/// The reader hands out the comments in the declaration as if they stood behind it.
void dropCommentsOf(Config &config)
{
    QDomNode node = config.document.firstChild();
    while (!node.isNull()) {
        const QDomNode next = node.nextSibling();
        if (node.isComment() && config.docType.contains(node.nodeValue()))
            config.document.removeChild(node);
        node = next;
    }
}

/// Without a game folder the path would start at the root of the drive.
std::optional<Config> parse(const QString &gamePath)
{
    constexpr qint64 MaxSize = 16 << 20; // bytes
    QFile file(configFile(gamePath));
    if (gamePath.isEmpty() || !file.open(QIODevice::ReadOnly) || file.size() > MaxSize)
        return std::nullopt;
    const QByteArray xml = file.readAll();
    const auto docType = docTypeOf(xml);
    if (!docType)
        return std::nullopt;
    // This reader, other than the document's own, leaves no carriage returns in the texts.
    QXmlStreamReader reader(xml);
    Config config{{}, *docType};
    if (!config.document.setContent(&reader, false))
        return std::nullopt;
    dropCommentsOf(config);
    return config;
}

QString textOf(const Config &config)
{
    QString xml;
    QTextStream stream(&xml);
    stream.setCodec("UTF-8");
    config.document.save(stream, 4, QDomNode::EncodingFromTextStream);
    if (!config.docType.isEmpty())
        xml.insert(xml.indexOf(QLatin1Char('\n')) + 1, config.docType + QLatin1Char('\n'));
    return xml;
}

QDomElement child(const QDomDocument &document, const char *name)
{
    return document.documentElement().firstChildElement(QLatin1String(name));
}

void logPadding(const PluginOptions &word)
{
    if (word.binary().size() < word.digits().size())
        qDebug() << "plugin version code not enough32 " << word.value() << word.isNumber();
}

void replaceText(QDomElement element, const QString &text)
{
    for (QDomNode node = element.firstChild(); !node.isNull(); node = node.nextSibling()) {
        if (!node.isText())
            continue;
        qDebug() << "Old text was " << node.nodeValue();
        node.setNodeValue(text);
    }
}
} // namespace

PluginConfigDataReader::PluginConfigDataReader(QObject *parent) : QObject(parent) {}

void PluginConfigDataReader::readPluginConfigData(QString strGamePath)
{
    const auto config = parse(strGamePath);
    if (!config)
        return;
    const QDomDocument &document = config->document;
    const QString version = child(document, "version").text();
    const QString gameVersion = child(document, "game_version").text();
    qDebug() << "plugin version code" << gameVersion;
    if (!version.isEmpty())
        qDebug() << "plugin version code" << version;
    if (!gameVersion.isEmpty()) {
        qDebug() << "plugin game version code" << gameVersion;
        emit pluginSupportGameVersion(gameVersion);
    }

    const PluginOptions word(child(document, "setting").text());
    logPadding(word);
    const bool helloMessage = word.isOn(PluginOptions::HelloMessage);
    qDebug() << "plugin hello message  " << helloMessage;
    emit pluginHelloMessageOpen(helloMessage);
    const bool uploadStandings = word.isOn(PluginOptions::UploadStandings);
    qDebug() << "plugin UploadStanding " << uploadStandings;
    emit pluginUploadStandingsOpen(uploadStandings);
    const bool uploadReplay = word.isOn(PluginOptions::UploadReplay);
    qDebug() << "plugin UploadReplay " << uploadReplay;
    emit pluginUploadReplayOpen(uploadReplay);
    qDebug() << "plugin strVersionAll " << word.encodedVersion();
    emit pluginVersion(version);
}

void PluginConfigDataReader::writePluginConfigData(bool bHelloMessageOpen,
                                                   bool bUploadStandingsOpen,
                                                   bool bUploadReplayOpen, QString strGamePath)
{
    const QMutexLocker lock(&m_writing);
    const auto config = parse(strGamePath);
    if (!config) {
        emit pluginConfigWriteComplete();
        return;
    }
    const QDomElement setting = child(config->document, "setting");
    PluginOptions word(setting.text());
    qDebug() << "plugin version code" << setting.text();
    qDebug() << "plugin version code in int " << word.value() << word.isNumber();
    if (word.isTooLarge()) {
        // A later format of the plugin's, perhaps: writing a word of ours would destroy it.
        qDebug() << "plugin version code too large, left alone";
        emit pluginConfigWriteComplete();
        return;
    }
    qDebug() << "plugin version code in string " << word.binary();
    logPadding(word);

    word.set(PluginOptions::HelloMessage, bHelloMessageOpen);
    word.set(PluginOptions::UploadStandings, bUploadStandingsOpen);
    word.set(PluginOptions::UploadReplay, bUploadReplayOpen);
    const QString digits = word.digits();
    qDebug() << "plugin version code strNew " << digits << "/" << digits.size();
    qDebug() << "plugin version code strNew " << word.value() << true;
    replaceText(setting, QString::number(word.value()));
    qDebug() << "plugin version code" << setting.text();
    save(textOf(*config), configFile(strGamePath));
    emit pluginConfigWriteComplete();
}

void PluginConfigDataReader::save(const QString &xml, const QString &path) const
{
    // Written beside the file and renamed over it, so that a crash or a full disk costs the player
    // nothing; into the file itself where its folder takes no other one.
    QSaveFile file(path);
    file.setDirectWriteFallback(true);
    if (!file.open(QIODevice::WriteOnly)) {
        qDebug() << "plugin version code new open file failed";
        return;
    }
    qDebug() << path;
    qDebug() << "dom saved";
    file.write(xml.toUtf8());
    if (!file.commit())
        qDebug() << "dom not saved" << file.errorString();
}
