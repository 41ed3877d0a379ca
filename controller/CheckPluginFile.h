#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

class Sha256;

/// Decides whether files on disk are the ones that the update server describes.
///
/// Lives on the worker thread and blocks it while it reads. Every request is answered by exactly
/// one signal; nothing is retried. Checksums are compared as text, so an expected one in capitals
/// never matches.
class CheckPluginFile : public QObject
{
    Q_OBJECT
public:
    explicit CheckPluginFile(QObject *parent = nullptr);

public slots:
    /// Checks one file: \a strMd5 is the expected checksum. Answered by ReturnFileIsRight.
    void CheckFileMd5(QString strMd5, QString FilePath);
    /// Checks one file by both checksums, in hexadecimal, in one reading. Answered by
    /// ReturnFileIsRight.
    void CheckPackage(QString strMd5, QString strSha256, QString FilePath);
    /// Checks the files of a PluginFileList (\a value) below \a strGamePath, up to the first bad
    /// one; entries with "xml" in their path are the player's to change and are skipped. Answered
    /// by ReturnPluginsCheckResult.
    void CheckFilesMd5(QString strGamePath, QVariant value);
    /// The same check for an automatic run. Answered by ReturnAutoUpdatePluginsCheckResult.
    void OnAutoUpdateCheckFilesMd5(QString strGamePath, QVariant value);

signals:
    /// The path that was asked for, and the verdict.
    void ReturnFileIsRight(QString strFilePath, bool bIsRight);
    /// The game folder and true, or the full path of the first bad file and false.
    void ReturnPluginsCheckResult(QString strFilePath, bool bIsRight);
    /// As ReturnPluginsCheckResult.
    void ReturnAutoUpdatePluginsCheckResult(QString strFilePath, bool bIsRight);

private:
    struct BadFile {
        QString path; ///< empty when every file is right
        QString md5;
    };

    QString GetFileMd5(QString path);
    QString getFileMd5(const QString &path, Sha256 *sha256);
    BadFile firstBadFile(const QString &gamePath, const QVariant &value);
};
