#include "MeetingPlace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSharedMemory>
#include <QStandardPaths>
#include <QTemporaryFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{
constexpr int TemporaryNames = 16;
constexpr mode_t AllRights = S_IRWXU | S_IRWXG | S_IRWXO;

/// A real folder, not a link, that only this user can enter.
bool isPrivate(const QString &folder)
{
    struct stat status = {};
    return lstat(QFile::encodeName(folder).constData(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && (status.st_mode & AllRights) == S_IRWXU;
}

/// Creates \a folder if necessary. Whether it is private and files can be created in it.
bool makePrivate(const QString &folder)
{
    QDir().mkpath(QFileInfo(folder).path());
    mkdir(QFile::encodeName(folder).constData(), S_IRWXU);
    return isPrivate(folder) && QTemporaryFile(folder + "/XXXXXX").open();
}

/// The folders that come into question, the preferred one first.
QStringList candidates()
{
    QStringList folders;
    const QString runtimeFolder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (isPrivate(runtimeFolder)) // never created here
        folders.append(runtimeFolder);
    folders.append(QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + "/run");
    // All users share these, so somebody else may have taken a name.
    for (const QString &shared : {QDir::tempPath(), QStringLiteral("/tmp")}) {
        const QString name = shared + "/brekka-" + QString::number(geteuid());
        folders.append(name);
        for (int number = 1; number < TemporaryNames; ++number)
            folders.append(name + '-' + QString::number(number));
    }
    return folders;
}

QString meetingFolder(const QString &blockFile, const QString &socketFile)
{
    QStringList folders;
    for (const QString &folder : candidates()) {
        const int length = QFile::encodeName(folder + '/' + socketFile).size();
        if (QDir::isAbsolutePath(folder) && length < int(sizeof(sockaddr_un::sun_path)))
            folders.append(folder);
    }

    // A folder that the first copy could not use may be usable by now.
    for (const QString &folder : qAsConst(folders))
        if (isPrivate(folder) && QFile::exists(folder + '/' + blockFile))
            return folder;
    for (const QString &folder : qAsConst(folders))
        if (makePrivate(folder))
            return folder;
    return "/dev/null"; // no block can be created in it, which ends the start with a message
}
} // namespace

MeetingPlace::MeetingPlace(const QString &instanceKey)
{
    const QString blockFile = QFileInfo(QSharedMemory(instanceKey).nativeKey()).fileName();
    const QDir folder(meetingFolder(blockFile, instanceKey));
    m_blockName = folder.filePath(blockFile);
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
