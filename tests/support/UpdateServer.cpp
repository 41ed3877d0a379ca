#include "UpdateServer.h"

#include "ManifestSignature.h"

#include <QCryptographicHash>
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
    offered = {};
    offered.hasData = true;
    offered.version = version;
    offered.packageMd5 = Files::md5(archive);
    offered.updatedAt = "2021-03-05 10:20:30";
    offered.link = url(Package).toString();
    offered.files.emplace();
    for (auto file = tree.begin(); file != tree.end(); ++file) {
        // Half of the servers spell paths the Windows way.
        const QString path = QString(file.key()).replace("res/", "res\\");
        offered.files->insert(path, Files::md5(file.value()));
    }
    if (key) {
        const auto digest = QCryptographicHash::hash(archive, QCryptographicHash::Sha256);
        offered.packageSha256 = QString::fromLatin1(digest.toHex());
        offered.serial = QString::number(++serial);
    }
    serve();
}

void UpdateServer::serve()
{
    using namespace ManifestSignature;
    offered.packageSize = QString::number(archive.size());
    QJsonObject body = offered.toJson(), data = body["data"].toObject();
    for (const Format format : {Format::V1, Format::V2}) {
        const auto bytes = signedBytes(data, format);
        if (key && bytes)
            data[nameOf(format)] = QString::fromLatin1(key->signatureOf(*bytes).toBase64());
    }
    if (falsify)
        falsify(data);
    body["data"] = data;
    const QByteArray manifest = QJsonDocument(body).toJson();
    const QByteArray tag = '"' + Files::md5(manifest).toLatin1() + '"';
    answer(Manifest, {{200, manifest, {{"ETag", tag}}}});
    answer(Package, {{200, archive}});
}
