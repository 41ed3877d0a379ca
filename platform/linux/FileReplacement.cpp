#include "FileReplacementSteps.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace Steps = FileReplacement::Steps;

bool Steps::isReplaceable(const QString &target, bool)
{
    const QByteArray name = QFile::encodeName(target);
    struct stat status = {};
    return stat(name.constData(), &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_nlink == 1 &&
           getxattr(name.constData(), "system.posix_acl_access", nullptr, 0) <= 0;
}

bool Steps::takeRights(QFile &part, const QString &target)
{
    struct stat wanted = {}, given = {};
    if (stat(QFile::encodeName(target).constData(), &wanted) != 0 ||
        fstat(part.handle(), &given) != 0)
        return false;
    const bool isSameOwner = wanted.st_uid == given.st_uid && wanted.st_gid == given.st_gid;
    // The mode comes last: a change of the owner takes bits away from it.
    return (isSameOwner || fchown(part.handle(), wanted.st_uid, wanted.st_gid) == 0) &&
           fchmod(part.handle(), wanted.st_mode & 07777) == 0;
}

bool Steps::sync(QFile &file, Sync sync)
{
    // Pipes and devices have nothing to sync.
    return sync != Sync::File || fsync(file.handle()) == 0 || errno == EINVAL;
}

Steps::Space Steps::reserve(QFile &file, qint64 size)
{
    if (size == 0 || fallocate(file.handle(), 0, 0, size) == 0)
        return Space::Reserved;
    return errno == ENOSPC || errno == EDQUOT || errno == EFBIG ? Space::Missing : Space::Unknown;
}

bool Steps::swap(const QString &part, const QString &target)
{
    return std::rename(QFile::encodeName(part).constData(),
                       QFile::encodeName(target).constData()) == 0;
}

QString Steps::lastError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

bool FileReplacement::syncBatch(const QString &folder, QString *error)
{
    const int handle =
        open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle < 0 && errno == EACCES) {
        ::sync(); // every file system, since this folder may be written to but not read
        return true;
    }
    const bool isSynced = handle >= 0 && syncfs(handle) == 0;
    if (!isSynced && error)
        *error = Steps::lastError();
    if (handle >= 0)
        close(handle);
    return isSynced;
}
