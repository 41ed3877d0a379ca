#include "Files.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <private/qzipwriter_p.h>

void Files::write(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("can't write %s", qPrintable(path));
}

QByteArray Files::read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("can't read %s", qPrintable(path));
    return file.readAll();
}

Files::Tree Files::readTree(const QString &root)
{
    Tree tree;
    QDirIterator files(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        // The program under test may just be renaming a temporary file.
        if (file.open(QIODevice::ReadOnly))
            tree[QDir(root).relativeFilePath(file.fileName())] = file.readAll();
    }
    return tree;
}

QString Files::md5(const QByteArray &content)
{
    return QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
}

QByteArray Files::zip(const Tree &tree)
{
    QByteArray archive;
    QBuffer buffer(&archive);
    buffer.open(QIODevice::WriteOnly);
    QZipWriter writer(&buffer);
    for (auto file = tree.begin(); file != tree.end(); ++file)
        writer.addFile(file.key(), file.value());
    writer.close();
    return archive;
}
