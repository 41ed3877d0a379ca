#include "MeetingPlace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSharedMemory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
bool isOurs(const QString &folder)
{
    struct stat status = {};
    return QDir::isAbsolutePath(folder) &&
           stat(QFile::encodeName(folder).constData(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && !(status.st_mode & (S_IWGRP | S_IWOTH));
}

QString meetingFolder()
{
    const QString runtimeFolder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return isOurs(runtimeFolder) ? runtimeFolder : QDir(QDir::tempPath()).absolutePath();
}
} // namespace

MeetingPlace::MeetingPlace(const QString &instanceKey)
{
    const QDir folder(meetingFolder());
    m_blockName = folder.filePath(QFileInfo(QSharedMemory(instanceKey).nativeKey()).fileName());
    m_serverName = folder.filePath(instanceKey);
}

std::unique_ptr<QSharedMemory> MeetingPlace::makeBlock() const
{
    auto block = std::make_unique<QSharedMemory>();
    block->setNativeKey(m_blockName);
    return block;
}

void MeetingPlace::keep() const
{
    for (const QString &file : {m_blockName, m_serverName})
        utimensat(AT_FDCWD, QFile::encodeName(file).constData(), nullptr, AT_SYMLINK_NOFOLLOW);
}
