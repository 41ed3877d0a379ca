#include "UpdateServer.h"

#include <QJsonDocument>
#include <QJsonObject>

Files::Tree UpdateServer::samplePlugin()
{
    return {
        {"mods/a.pyc", "first"},
        {"mods/empty", {}},
        {"res/模型/b.bin", QByteArray(200000, 'b')},
        {"mods/configs/corvane.xml",
         "<r><setting>0</setting><version>1.2.3</version><game_version>1.12</game_version></r>"}};
}

void UpdateServer::publish(const Files::Tree &tree, const QString &version)
{
    archive = Files::zip(tree);
    QJsonObject files;
    for (auto file = tree.begin(); file != tree.end(); ++file) {
        QString key = file.key();
        // Half of the servers spell paths the Windows way.
        files[key.replace("res/", "res\\")] = Files::md5(file.value());
    }
    QString list;
    for (const QChar c : QString::fromUtf8(QJsonDocument(files).toJson(QJsonDocument::Compact)))
        list += c.unicode() < 128 ? QString(c)
                                  : QString("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    const QJsonObject data{{"version_name", version},
                           {"md5", Files::md5(archive)},
                           {"updated_at", "2021-03-05 10:20:30"},
                           {"upgrade_info", list},
                           {"link", url(Package).toString()}};
    manifest = QJsonDocument(QJsonObject{{"errno", 0}, {"data", data}}).toJson();
    HttpAnswer reply;
    reply.body = manifest;
    answer(Manifest, {reply});
    reply.body = archive;
    answer(Package, {reply});
}
