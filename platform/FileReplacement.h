#pragma once

#include <QByteArray>
#include <QString>

/// Gives a file new content as a whole: after a failure, a full disk or a kill it holds either the
/// old content or the new. Any thread; blocks it.
///
/// The new content is written to a temporary file beside the target, which then takes the target's
/// place, name, mode, owner and, on Windows, access list. Links are followed.
namespace FileReplacement
{
/// What a temporary file is called: its target's name and this. One fixed name, so that whoever
/// knows the target can remove what a kill left.
constexpr char Suffix[] = ".brekka-part";

enum class Result {
    Replaced,
    NotOpened,  ///< the target can't be opened for writing, or made; nothing has changed
    NotWritten, ///< the old content is still there; only a failing device loses it in place
};

enum class Sync {
    None,  ///< reaches the disk when the system likes
    File,  ///< is on the disk before it replaces anything
    Batch, ///< one of many: all are on the disk after syncBatch()
};

struct Options {
    Sync sync = Sync::None;
    /// Where no other file can take the target's place (several hard links, another owner or an
    /// access list that can't be passed on, a folder that takes no new file, a busy reader on
    /// Windows, no space for both), the target itself is overwritten. Its space is reserved first,
    /// so a full disk still costs nothing; a kill in the middle does. Otherwise this is NotWritten.
    bool inPlace = false;
};

/// Gives the file at \a path the \a content; makes it where there is none. Without Replaced,
/// \a error, if given, says why.
Result replace(const QString &path, const QByteArray &content, Options options = {},
               QString *error = nullptr);

/// Removes what an interrupted replace() of \a path has left. Whether there was something.
bool removeLeftover(const QString &path);

/// Ends a batch below \a folder; false, with the reason, when the system can't write it out.
bool syncBatch(const QString &folder, QString *error = nullptr);
} // namespace FileReplacement
