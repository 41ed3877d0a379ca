#include "PackageWriter.h"

#include "Durable.h"

#include <QCryptographicHash>
#include <QFile>

PackageWriter::PackageWriter(const QString &folder)
    : m_folder(folder), m_file(folder + QStringLiteral("/XXXXXX.part"))
{
}

bool PackageWriter::open()
{
    if (!m_file.open())
        return fail(QStringLiteral("cannot write to %1: %2").arg(m_folder, m_file.errorString()));
    m_zip.emplace(m_file);
    return true;
}

bool PackageWriter::add(const QString &file, const QString &sourcePath)
{
    QFile source(sourcePath);
    if (!source.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot read %1: %2").arg(sourcePath, source.errorString()));
    QString md5;
    if (!m_zip->add(file, source, &md5))
        return fail(m_zip->errorString());
    m_checksums.insert(file, md5);
    return true;
}

bool PackageWriter::finish()
{
    if (!m_zip->finish() || !m_zip->readBack())
        return fail(m_zip->errorString());
    QCryptographicHash md5(QCryptographicHash::Md5), sha256(QCryptographicHash::Sha256);
    m_file.seek(0);
    while (!m_file.atEnd()) {
        const QByteArray piece = m_file.read(1 << 20);
        if (piece.isEmpty())
            return fail(QStringLiteral("cannot read the package: %1").arg(m_file.errorString()));
        md5.addData(piece);
        sha256.addData(piece);
    }
    m_md5 = QString::fromLatin1(md5.result().toHex());
    m_size = m_file.size();
    m_sha256 = QString::fromLatin1(sha256.result().toHex());
    return true;
}

bool PackageWriter::keep()
{
    // The name is the content's checksum, so a package that has it is this one.
    m_isNew = !QFile::exists(path());
    if (!m_isNew)
        return true;
    m_file.setPermissions(Durable::ServedFile);
    if (!Durable::sync(m_file) || !m_file.rename(path()) || !Durable::syncFolder(m_folder))
        return fail(QStringLiteral("cannot write %1: %2").arg(path(), m_file.errorString()));
    m_file.setAutoRemove(false);
    return true;
}

QString PackageWriter::path() const
{
    return m_folder + QLatin1Char('/') + m_md5 + QStringLiteral(".zip");
}

bool PackageWriter::fail(const QString &text)
{
    m_error = text;
    return false;
}
