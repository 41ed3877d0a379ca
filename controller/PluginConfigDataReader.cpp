#include "PluginConfigDataReader.h"

#include "FileReplacement.h"
#include "PluginConfigDocument.h"
#include "PluginOptions.h"

#include <QDebug>
#include <QDomElement>
#include <QFile>
#include <QMutexLocker>

#include <optional>

namespace
{
QString configFile(const QString &gamePath)
{
    return gamePath + QStringLiteral("/mods/configs/corvane.xml");
}

/// Without a game folder the path would start at the root of the drive.
std::optional<QByteArray> contentOf(const QString &gamePath)
{
    constexpr qint64 MaxSize = 16 << 20; // bytes
    QFile file(configFile(gamePath));
    if (gamePath.isEmpty() || !file.open(QIODevice::ReadOnly) || file.size() > MaxSize)
        return std::nullopt;
    return file.readAll();
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
    const auto xml = contentOf(strGamePath);
    const auto config = xml ? PluginConfigDocument::parse(*xml) : std::nullopt;
    if (!config)
        return;
    const QString version = config->child("version").text();
    const QString gameVersion = config->child("game_version").text();
    qDebug() << "plugin version code" << gameVersion;
    if (!version.isEmpty())
        qDebug() << "plugin version code" << version;
    if (!gameVersion.isEmpty()) {
        qDebug() << "plugin game version code" << gameVersion;
        emit pluginSupportGameVersion(gameVersion);
    }

    const PluginOptions word(config->child("setting").text());
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
    const auto xml = contentOf(strGamePath);
    const auto config = xml ? PluginConfigDocument::parse(*xml) : std::nullopt;
    if (!config) {
        emit pluginConfigWriteComplete();
        return;
    }
    const QDomElement setting = config->child("setting");
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
    if (const auto changed = config->serialized(*xml))
        save(*changed, configFile(strGamePath));
    else
        qDebug() << "dom not saved, more than the setting would change";
    emit pluginConfigWriteComplete();
}

void PluginConfigDataReader::save(const QByteArray &xml, const QString &path) const
{
    FileReplacement::Options options;
    options.inPlace = true; // the file may be the user's to write, and its folder not
    QString error;
    const auto result = FileReplacement::replace(path, xml, options, &error);
    if (result == FileReplacement::Result::NotOpened) {
        qDebug() << "plugin version code new open file failed";
        return;
    }
    qDebug() << path;
    if (result == FileReplacement::Result::Replaced)
        qDebug() << "dom saved";
    else
        qDebug() << "dom not saved" << error;
}
