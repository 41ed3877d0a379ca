#pragma once

#include "FileReplacement.h"

#include <QFile>

/// What each system does in its own way for FileReplacement, and nobody else's business.
namespace FileReplacement::Steps
{
enum class Space { Reserved, Missing, Unknown };

/// Whether another file can take \a target's place and nobody would notice; \a mayBeInPlace if it
/// could be overwritten instead.
bool isReplaceable(const QString &target, bool mayBeInPlace);
/// Gives the open \a part the rights of \a target, unless swap() does.
bool takeRights(QFile &part, const QString &target);
/// Has the disk take what was written to \a file before anything else happens.
bool sync(QFile &file, Sync sync);
/// Gives the open \a file at least \a size bytes of space; its size may then be \a size.
Space reserve(QFile &file, qint64 size);
/// Puts \a part in the place of \a target, which may not exist.
bool swap(const QString &part, const QString &target);
/// What the system says of the last step that failed.
QString lastError();
} // namespace FileReplacement::Steps
