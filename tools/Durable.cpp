#include "Durable.h"

#include <QFile>

#ifdef Q_OS_WIN
#include <io.h>
#else
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#endif

bool Durable::sync(QFileDevice &file)
{
#ifdef Q_OS_WIN
    return file.flush() && _commit(file.handle()) == 0;
#else
    return file.flush() && fsync(file.handle()) == 0;
#endif
}

bool Durable::syncFolder(const QString &path)
{
#ifdef Q_OS_WIN
    Q_UNUSED(path)
    return true;
#else
    const int folder = open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (folder < 0)
        return false;
    // Some file systems, such as those of other machines, keep names without being asked.
    const bool done = fsync(folder) == 0 || errno == EINVAL || errno == ENOTSUP || errno == EBADF;
    close(folder);
    return done;
#endif
}
