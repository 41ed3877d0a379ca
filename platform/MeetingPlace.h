#pragma once

#include <QString>

#include <memory>

class QSharedMemory;

/// Where the copies of the program that have an instance key in common find each other: the native
/// names of their shared memory block and of the primary's local server.
///
/// On Windows these are Qt's own. On Linux they are files in the user's runtime folder,
/// where no other user's remains can be in the way; so each user has a primary there. Without such
/// a folder of the user's own they are in the temporary one, which all users share.
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
