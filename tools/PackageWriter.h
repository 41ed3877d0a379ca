#pragma once

#include "PluginFileList.h"
#include "ZipWriter.h"

#include <QString>
#include <QTemporaryFile>

#include <optional>

/// Packs a plugin's files into the zip package that players download.
///
/// The package grows in a temporary file of the folder that it is meant for and gets its name, the
/// MD5 of its content, only when it is complete and has been read back; until then, and after a
/// failure, destroying the writer leaves nothing behind. The same files give the same package.
///
/// Limits are those of the reader in the players' program: 65,535 files, 2,000,000,000 bytes a
/// file, and a package below 2 GiB.
class PackageWriter
{
public:
    explicit PackageWriter(const QString &folder);

    // Each of the steps is false on failure, and errorString() says why in one line.

    bool open();
    /// Adds the file at \a sourcePath under the name \a file, with forward slashes.
    bool add(const QString &file, const QString &sourcePath);
    /// Completes the package and reads every file back from it.
    bool finish();
    /// Gives the finished package its name in the folder, where it may lie already. When that is
    /// done, it is on the disk to stay.
    bool keep();

    /// The files added and their MD5 sums, taken from the very bytes that were packed.
    PluginFileList checksums() const { return m_checksums; }
    /// Sums of the finished package, in lowercase hexadecimal digits.
    QString md5() const { return m_md5; }
    QString sha256() const { return m_sha256; }
    /// Bytes of the finished package.
    qint64 size() const { return m_size; }
    /// Path of the package once it is kept.
    QString path() const;
    /// Whether keeping it has created it.
    bool isNew() const { return m_isNew; }
    QString errorString() const { return m_error; }

private:
    bool fail(const QString &text);

    QString m_folder;
    QTemporaryFile m_file;
    std::optional<ZipWriter> m_zip;
    PluginFileList m_checksums;
    QString m_md5;
    QString m_sha256;
    qint64 m_size = 0;
    bool m_isNew = false;
    QString m_error;
};
