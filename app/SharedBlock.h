#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>

/// What the running copies of the program tell each other, laid over the bytes of the shared memory
/// block that all of them see.
///
/// A value must only be touched while the block's lock is held. Every changing operation brings the
/// checksum up to date; the padding is never written.
struct alignas(8) SharedBlock {
    static constexpr int UserNameSize = 128; ///< with the terminating zero

    quint8 primaryRunning;
    quint32 secondaryCount; ///< secondaries since the last reset; ends are not counted
    qint64 primaryProcessId;
    char primaryUserName[UserNameSize]; ///< UTF-8
    quint16 checksum;

    /// Back to the state in which nobody runs and nobody ever did.
    void reset();
    /// Enters the primary; a longer name is cut to 127 bytes, possibly inside a character.
    void setPrimary(qint64 processId, const QByteArray &userName);
    void clearPrimary();
    /// Counts a secondary and returns the new count.
    quint32 addSecondary();

    QString userName() const;
    quint16 computeChecksum() const;
};

static_assert(offsetof(SharedBlock, secondaryCount) == 4);
static_assert(offsetof(SharedBlock, primaryProcessId) == 8);
static_assert(offsetof(SharedBlock, primaryUserName) == 16);
static_assert(offsetof(SharedBlock, checksum) == 144);
static_assert(sizeof(SharedBlock) == 152);
