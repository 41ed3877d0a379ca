#include "FileReplacement.h"

#include "FileReplacementSteps.h"

#include <QFile>
#include <QFileInfo>

using FileReplacement::Options;
using FileReplacement::Result;
using FileReplacement::Sync;
namespace Steps = FileReplacement::Steps;

namespace
{
enum class Attempt { Done, NoSpace, Impossible };

QString withLinksFollowed(const QString &path)
{
    constexpr int LongestChain = 40; // as the systems themselves bound it
    QString target = path;
    for (int i = 0; i < LongestChain && QFileInfo(target).isSymbolicLink(); ++i)
        target = QFileInfo(target).symLinkTarget();
    return target;
}

QString partOf(const QString &target)
{
    return target + QLatin1String(FileReplacement::Suffix);
}

/// Nothing is truncated by this.
bool canBeOpened(const QString &target, QString *error)
{
    QFile file(target);
    const bool isOpen = file.open(QIODevice::WriteOnly | QIODevice::Append);
    *error = file.errorString();
    return isOpen;
}

bool writeWhole(QFile &file, const QByteArray &content, Sync sync, QString *error)
{
    if (file.write(content) != content.size() ||
        (file.size() > content.size() && !file.resize(content.size()))) {
        *error = file.errorString();
        return false;
    }
    if (Steps::sync(file, sync))
        return true;
    *error = Steps::lastError();
    return false;
}

Attempt replaceBeside(const QString &target, bool exists, const QByteArray &content, Sync sync,
                      QString *error)
{
    QFile part(partOf(target));
    part.remove(); // of an interrupted run
    if (!part.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered)) {
        *error = part.errorString();
        return Attempt::Impossible;
    }
    if (!writeWhole(part, content, sync, error)) {
        part.remove();
        return Attempt::NoSpace;
    }
    bool isDone = !exists || Steps::takeRights(part, target);
    if (isDone) {
        part.close();
        isDone = Steps::swap(part.fileName(), target);
    }
    if (isDone)
        return Attempt::Done;
    *error = Steps::lastError();
    part.remove();
    return Attempt::Impossible;
}

Result replaceInPlace(const QString &target, bool exists, const QByteArray &content, Sync sync,
                      bool needsReserve, QString *error)
{
    QFile file(target);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Unbuffered)) {
        *error = file.errorString();
        return Result::NotOpened;
    }
    const qint64 oldSize = file.size();
    const Steps::Space space = Steps::reserve(file, content.size());
    if (space == Steps::Space::Missing || (needsReserve && space == Steps::Space::Unknown)) {
        if (space == Steps::Space::Missing)
            *error = Steps::lastError();
        file.resize(oldSize);
    } else if (writeWhole(file, content, sync, error)) {
        return Result::Replaced;
    }
    if (!exists)
        file.remove();
    return Result::NotWritten;
}

Result tryReplace(const QString &target, const QByteArray &content, Options options, QString *error)
{
    const bool exists = QFileInfo::exists(target);
    if (exists && !canBeOpened(target, error))
        return Result::NotOpened;
    Attempt attempt = Attempt::Impossible;
    if (!exists || Steps::isReplaceable(target, options.inPlace))
        attempt = replaceBeside(target, exists, content, options.sync, error);
    else
        *error = QStringLiteral("no other file can take its place");
    if (attempt == Attempt::Done)
        return Result::Replaced;
    if (options.inPlace)
        return replaceInPlace(target, exists, content, options.sync, attempt == Attempt::NoSpace,
                              error);
    return exists || attempt == Attempt::NoSpace ? Result::NotWritten : Result::NotOpened;
}
} // namespace

Result FileReplacement::replace(const QString &path, const QByteArray &content, Options options,
                                QString *error)
{
    QString reason;
    const Result result = tryReplace(withLinksFollowed(path), content, options, &reason);
    if (error)
        *error = result == Result::Replaced ? QString() : reason;
    return result;
}

bool FileReplacement::removeLeftover(const QString &path)
{
    return QFile::remove(partOf(withLinksFollowed(path)));
}
