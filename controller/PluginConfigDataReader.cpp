#include "PluginConfigDataReader.h"

#include "SettingWord.h"

#include <QDebug>
#include <QDomDocument>
#include <QFile>
#include <QMutexLocker>
#include <QSaveFile>
#include <QTextStream>

namespace
{
QString configFile(const QString &gamePath)
{
    return gamePath + QStringLiteral("/mods/configs/corvane.xml");
}

/// Without a game folder the path would start at the root of the drive.
bool parse(const QString &gamePath, QDomDocument &document)
{
    if (gamePath.isEmpty())
        return false;
    QFile file(configFile(gamePath));
    return file.open(QIODevice::ReadOnly) && document.setContent(&file);
}

QDomElement child(const QDomDocument &document, const char *name)
{
    return document.documentElement().firstChildElement(QLatin1String(name));
}

void logPadding(const SettingWord &word)
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
    QDomDocument document;
    if (!parse(strGamePath, document))
        return;
    const QString version = child(document, "version").text();
    const QString gameVersion = child(document, "game_version").text();
    qDebug() << "plugin version code" << gameVersion;
    if (!version.isEmpty())
        qDebug() << "plugin version code" << version;
    if (!gameVersion.isEmpty()) {
        qDebug() << "plugin game version code" << gameVersion;
        emit pluginSupportGameVersion(gameVersion);
    }

    const SettingWord word(child(document, "setting").text());
    logPadding(word);
    const bool helloMessage = word.isOn(SettingWord::HelloMessage);
    qDebug() << "plugin hello message  " << helloMessage;
    emit pluginHelloMessageOpen(helloMessage);
    const bool uploadStandings = word.isOn(SettingWord::UploadStandings);
    qDebug() << "plugin UploadStanding " << uploadStandings;
    emit pluginUploadStandingsOpen(uploadStandings);
    const bool uploadReplay = word.isOn(SettingWord::UploadReplay);
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
    QDomDocument document;
    if (!parse(strGamePath, document)) {
        emit pluginConfigWriteComplete();
        return;
    }
    const QDomElement setting = child(document, "setting");
    SettingWord word(setting.text());
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

    word.set(SettingWord::HelloMessage, bHelloMessageOpen);
    word.set(SettingWord::UploadStandings, bUploadStandingsOpen);
    word.set(SettingWord::UploadReplay, bUploadReplayOpen);
    const QString digits = word.digits();
    qDebug() << "plugin version code strNew " << digits << "/" << digits.size();
    qDebug() << "plugin version code strNew " << word.value() << true;
    replaceText(setting, QString::number(word.value()));
    qDebug() << "plugin version code" << setting.text();
    save(document, configFile(strGamePath));
    emit pluginConfigWriteComplete();
}

void PluginConfigDataReader::save(const QDomDocument &document, const QString &path) const
{
    // Written beside the file and renamed over it, so that a crash or a full disk costs the player
    // nothing.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        qDebug() << "plugin version code new open file failed";
        return;
    }
    qDebug() << path;
    qDebug() << "dom saved";
    QTextStream stream(&file);
    stream.setCodec("UTF-8");
    document.save(stream, 4, QDomNode::EncodingFromTextStream);
    stream.flush();
    if (!file.commit())
        qDebug() << "dom not saved" << file.errorString();
}
