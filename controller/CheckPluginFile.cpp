#include "CheckPluginFile.h"

#include "Paths.h"
#include "PluginFileList.h"
#include "Sha256.h"

#include <QCryptographicHash>
#include <QDebug>
#include <QFile>
#include <QFileInfo>

CheckPluginFile::CheckPluginFile(QObject *parent) : QObject(parent) {}

void CheckPluginFile::CheckFileMd5(QString strMd5, QString FilePath)
{
    qDebug() << "CheckFileMd5" << FilePath << " md5::" << strMd5;
    bool right = false;
    if (QFileInfo::exists(FilePath)) {
        const QString md5 = GetFileMd5(FilePath);
        right = md5 == strMd5;
        qDebug() << "out:" << md5;
        qDebug() << "CheckFileMd5" << right;
    }
    emit ReturnFileIsRight(FilePath, right);
}

void CheckPluginFile::CheckPackage(QString strMd5, QString strSha256, QString FilePath)
{
    qDebug() << "CheckPackage" << FilePath << " md5::" << strMd5 << "sha256:" << strSha256;
    bool right = false;
    if (QFileInfo::exists(FilePath)) {
        Sha256 sha256;
        const bool md5Right = getFileMd5(FilePath, &sha256) == strMd5;
        const QByteArray digest = sha256.result().toHex();
        right = md5Right && !digest.isEmpty() && QString::fromLatin1(digest) == strSha256;
        qDebug() << "CheckPackage" << right << digest;
    }
    emit ReturnFileIsRight(FilePath, right);
}

void CheckPluginFile::CheckFilesMd5(QString strGamePath, QVariant value)
{
    const BadFile bad = firstBadFile(strGamePath, value);
    if (bad.path.isEmpty()) {
        emit ReturnPluginsCheckResult(strGamePath, true);
        return;
    }
    qDebug() << "plugin file md5 not matach" << bad.path << bad.md5;
    emit ReturnPluginsCheckResult(bad.path, false);
}

void CheckPluginFile::OnAutoUpdateCheckFilesMd5(QString strGamePath, QVariant value)
{
    const BadFile bad = firstBadFile(strGamePath, value);
    const bool right = bad.path.isEmpty();
    emit ReturnAutoUpdatePluginsCheckResult(right ? strGamePath : bad.path, right);
}

CheckPluginFile::BadFile CheckPluginFile::firstBadFile(const QString &gamePath,
                                                       const QVariant &value)
{
    const auto files = value.value<PluginFileList>();
    for (auto file = files.begin(); file != files.end(); ++file) {
        if (file.key().contains(QLatin1String("xml")))
            continue;
        const QString path = Paths::inFolder(gamePath, file.key());
        qDebug() << "plugin file md5" << path;
        const QString md5 = GetFileMd5(path);
        if (md5 != file.value())
            return {path, md5};
    }
    return {};
}

QString CheckPluginFile::GetFileMd5(QString path)
{
    return getFileMd5(path, nullptr);
}

QString CheckPluginFile::getFileMd5(const QString &path, Sha256 *sha256)
{
    constexpr qint64 ChunkSize = 10240;
    char chunk[ChunkSize];

    QFile file(path);
    qint64 remaining = file.size(); // from the file system, as long as the file is not open
    // The chunks are large enough without the file object's own buffer in between.
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        qDebug() << "plugin filemd5 open " << path << " failed";
        return {};
    }
    QCryptographicHash hash(QCryptographicHash::Md5);
    while (remaining > 0) {
        const qint64 length = file.read(chunk, qMin(remaining, ChunkSize));
        if (length < 1)
            break;
        hash.addData(chunk, int(length));
        if (sha256)
            sha256->addData(chunk, length);
        remaining -= length;
    }
    file.close();
    const QString md5 = QString::fromLatin1(hash.result().toHex());
    qDebug() << "plugin file path:" << path << "md5" << md5;
    return md5;
}
