#include "UpdateServer.h"

#include "UpdateManifest.h"

#include <QJsonDocument>

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
    UpdateManifest offer;
    offer.hasData = true;
    offer.version = version;
    offer.packageMd5 = Files::md5(archive);
    offer.updatedAt = "2021-03-05 10:20:30";
    offer.link = url(Package).toString();
    offer.files.emplace();
    for (auto file = tree.begin(); file != tree.end(); ++file) {
        // Half of the servers spell paths the Windows way.
        offer.files->insert(QString(file.key()).replace("res/", "res\\"), Files::md5(file.value()));
    }
    manifest = QJsonDocument(offer.toJson()).toJson();
    HttpAnswer reply;
    reply.body = manifest;
    answer(Manifest, {reply});
    reply.body = archive;
    answer(Package, {reply});
}
