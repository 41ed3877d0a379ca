#pragma once

#include <QString>

#include <memory>

class QSharedMemory;

/// Where the copies of the program that have an instance key in common find each other: the native
/// names of their shared memory block and of the primary's local server.
///
/// On Windows these are Qt's own. On Linux they are files in a folder that only the user can enter,
/// so nobody else can be in the way, and each user has a primary. The first of these that is
/// private, can be written to and has a path short enough for a socket is used:
///  - $XDG_RUNTIME_DIR, if it exists;
///  - "run" in the program's cache folder ($XDG_CACHE_HOME or ~/.cache);
///  - "brekka-UID" in $TMPDIR, then in /tmp, or where another user has taken that name,
///    "brekka-UID-1" to "brekka-UID-15".
/// A folder where the block's file exists already has precedence over all of them.
///
/// All processes with the same values of these variables and HOME meet, even if a folder becomes
/// usable or unusable in between. A process without XDG_RUNTIME_DIR does not see the primary of one
/// that has it, and a home shared by several machines is meant for one of them at a time.
class MeetingPlace
{
public:
    explicit MeetingPlace(const QString &instanceKey);

    /// The block, to be created or attached.
    std::unique_ptr<QSharedMemory> makeBlock() const;
    QString serverName() const { return m_serverName; }

    /// Marks the files as being in use, since folders of this kind are cleared of what has not been
    /// touched for hours or days: without them a second primary would start. To be called once an
    /// hour by a primary.
    void keep() const;

private:
    QString m_blockName;
    QString m_serverName;
};
