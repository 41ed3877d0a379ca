#include "PackageWriter.h"

#include <QCryptographicHash>
#include <QFile>

#include <private/qzipreader_p.h>
#include <private/qzipwriter_p.h>

#include <limits>

namespace
{
// The reader counts entries in 16 bits, and holds a file in one array and offsets in a signed int.
constexpr int MaxFiles = 65535;
constexpr qint64 MaxFileSize = 2000000000;
constexpr qint64 MaxPackageSize = std::numeric_limits<int>::max();

const QFile::Permissions WorldReadable =
    QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;

QString hex(const QByteArray &digest)
{
    return QString::fromLatin1(digest.toHex());
}

QString md5Of(const QByteArray &data)
{
    return hex(QCryptographicHash::hash(data, QCryptographicHash::Md5));
}
} // namespace

PackageWriter::PackageWriter(const QString &folder)
    : m_folder(folder), m_file(folder + QStringLiteral("/XXXXXX.part"))
{
}

PackageWriter::~PackageWriter() = default;

bool PackageWriter::open()
{
    if (!m_file.open())
        return fail(QStringLiteral("cannot write to %1: %2").arg(m_folder, m_file.errorString()));
    m_zip = std::make_unique<QZipWriter>(&m_file);
    m_zip->setCompressionPolicy(QZipWriter::AutoCompress);
    m_zip->setCreationPermissions(WorldReadable);
    return true;
}

bool PackageWriter::add(const QString &file, const QString &sourcePath)
{
    if (m_checksums.size() == MaxFiles)
        return fail(QStringLiteral("more than %1 files do not fit a package").arg(MaxFiles));

    QFile source(sourcePath);
    if (!source.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot read %1: %2").arg(sourcePath, source.errorString()));
    if (source.size() > MaxFileSize)
        return fail(QStringLiteral("%1 is larger than %2 bytes").arg(file).arg(MaxFileSize));
    const QByteArray data = source.readAll();
    if (source.error() != QFile::NoError)
        return fail(QStringLiteral("cannot read %1: %2").arg(sourcePath, source.errorString()));

    m_zip->addFile(file, data);
    // The zip writer keeps failed writes to itself.
    if (!m_file.flush())
        return fail(QStringLiteral("cannot write to %1: %2").arg(m_folder, m_file.errorString()));
    if (m_file.pos() > MaxPackageSize)
        return fail(QStringLiteral("the package does not stay below 2 GiB"));
    m_checksums.insert(file, md5Of(data));
    return true;
}

bool PackageWriter::finish()
{
    m_zip->close();
    if (m_file.error() != QFile::NoError)
        return fail(QStringLiteral("cannot write to %1: %2").arg(m_folder, m_file.errorString()));
    if (m_file.size() > MaxPackageSize)
        return fail(QStringLiteral("the package does not stay below 2 GiB"));
    if (!readBack())
        return fail(QStringLiteral("the package does not hold what was put into it"));

    QCryptographicHash hash(QCryptographicHash::Md5);
    if (!m_file.open() || !hash.addData(&m_file))
        return fail(QStringLiteral("cannot read the package: %1").arg(m_file.errorString()));
    m_md5 = hex(hash.result());
    return true;
}

bool PackageWriter::readBack()
{
    if (!m_file.open())
        return false;
    QZipReader reader(&m_file);
    const auto entries = reader.fileInfoList();
    if (entries.size() != m_checksums.size())
        return false;
    for (const auto &entry : entries) {
        if (m_checksums.value(entry.filePath) != md5Of(reader.fileData(entry.filePath)))
            return false;
    }
    return true;
}

bool PackageWriter::keep()
{
    // The name is the content's checksum, so a package that has it is this one.
    m_isNew = !QFile::exists(path());
    if (!m_isNew)
        return true;
    m_file.setPermissions(WorldReadable);
    if (!m_file.rename(path()))
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
