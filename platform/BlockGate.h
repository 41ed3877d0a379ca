#pragma once

#include <QString>

#include <memory>

class QSharedMemory;

/// Lets one process at a time create, attach, lock or release a shared memory block, and ends with
/// its holder, however that ends.
///
/// On Linux the gate is a file lock on the block's own key file, so it adds no file, and it is the
/// block's lock as well. Qt has none for a block with a native key; the one that it has
/// for others is a System V semaphore, which every process that tries to create the block resets,
/// each removes as it ends, and one that is killed at the wrong moment leaves behind for ever. A
/// block outlives the last process that held it when that one was killed.
///
/// On Windows the lock is Qt's. It stays taken for ever when its holder is killed while
/// others still have the block. There the gate is a mutex, which the system gives back, and who
/// enters next frees the lock. Besides, what is made before the gate is left for the first time is
/// open to all processes of its user: else a copy that runs with an administrator's rights, as the
/// one started at logon does, would shut out all those started without.
///
/// Not thread-safe; one gate serves one block for one thread.
class BlockGate
{
public:
    /// \a nativeKey is what QSharedMemory::nativeKey() gives for the block.
    explicit BlockGate(const QString &nativeKey);
    ~BlockGate();
    BlockGate(const BlockGate &) = delete;
    BlockGate &operator=(const BlockGate &) = delete;

    /// Waits for the gate, without a time limit. Does nothing when this process is inside already.
    /// What can't be opened leaves the gate open: Qt meets the same obstacle and says so.
    void enter();
    /// Lets the next one in. Does nothing outside.
    void leave();

    /// Enters and takes the lock of \a block. Whether that is held now.
    bool lock(QSharedMemory &block);
    /// Gives the lock back and leaves. Whether it was held.
    bool unlock(QSharedMemory &block);

    /// Prepares the creation of a block of \a size bytes; call it inside. Frees a block of that
    /// size that no process holds any more. When the key leads to a block that can't be ours, that
    /// block stays as it is and the key file is replaced, which changes the key.
    void makeWay(qint64 size);

private:
    struct State;
    const std::unique_ptr<State> m_state;
};
