#include "BlockGate.h"

#include <QFile>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace
{
constexpr int KeyProject = 'Q'; // what Qt gives to ftok() beside the key file
constexpr mode_t KeyFileMode = 0640;
constexpr int ReplaceAttempts = 8;

void lockFile(int file)
{
    while (flock(file, LOCK_EX) == -1 && errno == EINTR) {
    }
}

bool isFileAt(int file, const QByteArray &path)
{
    struct stat opened = {};
    struct stat named = {};
    return fstat(file, &opened) == 0 && lstat(path.constData(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

/// Makes a locked file and gives it the name \a path by \a publish, link() or rename(). Nobody can
/// get between making and locking it, so the caller is the first to use the file. -1 and errno when
/// that fails.
int makeLockedFile(const QByteArray &path, int (*publish)(const char *, const char *))
{
    QByteArray temporary = path + ".XXXXXX";
    const int file = mkostemp(temporary.data(), O_CLOEXEC);
    if (file == -1)
        return -1;
    lockFile(file);
    if (fchmod(file, KeyFileMode) == 0 && publish(temporary.constData(), path.constData()) == 0) {
        unlink(temporary.constData());
        return file;
    }
    const int error = errno;
    unlink(temporary.constData());
    close(file);
    errno = error;
    return -1;
}

/// Whether the key of the file at \a path leads to no block or to ours. Frees a block of our size
/// that nobody holds.
bool isKeyUsable(const QByteArray &path, qint64 size, bool fresh)
{
    const key_t key = ftok(path.constData(), KeyProject);
    const int block = key == -1 ? -1 : shmget(key, 0, 0);
    if (block == -1)
        return true;
    // The key holds 16 bits of the inode number, so other programs' blocks can turn up under it.
    shmid_ds state = {};
    if (shmctl(block, IPC_STAT, &state) == -1 || qint64(state.shm_segsz) != size)
        return false;
    if (state.shm_nattch == 0)
        return shmctl(block, IPC_RMID, nullptr) == 0;
    // Held by somebody; not by one of us if our key file is only just there.
    return !fresh;
}
} // namespace

struct BlockGate::State {
    QByteArray path;
    int file = -1;
    bool fresh = false; ///< the key file did not exist before
};

BlockGate::BlockGate(const QString &nativeKey) : m_state(new State{QFile::encodeName(nativeKey)}) {}

BlockGate::~BlockGate()
{
    leave();
}

void BlockGate::enter()
{
    const QByteArray &path = m_state->path;
    while (m_state->file == -1) {
        const int file = open(path.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        m_state->fresh = file == -1 && errno == ENOENT;
        if (m_state->fresh) {
            m_state->file = makeLockedFile(path, link);
            if (m_state->file == -1 && errno != EEXIST)
                return;
            continue;
        }
        if (file == -1)
            return;
        lockFile(file);
        // The one before us may have removed or replaced the file while we waited for it.
        if (isFileAt(file, path))
            m_state->file = file;
        else
            close(file);
    }
}

void BlockGate::leave()
{
    if (m_state->file == -1)
        return;
    close(m_state->file);
    m_state->file = -1;
}

bool BlockGate::lock(QSharedMemory &)
{
    enter();
    return m_state->file != -1;
}

bool BlockGate::unlock(QSharedMemory &)
{
    const bool held = m_state->file != -1;
    leave();
    return held;
}

void BlockGate::makeWay(qint64 size)
{
    const QByteArray &path = m_state->path;
    // Stay open until the end, or the next file would be given the inode number of the last one.
    std::vector<int> replaced;
    for (int attempt = 0; m_state->file != -1 && attempt < ReplaceAttempts; ++attempt) {
        if (isKeyUsable(path, size, m_state->fresh))
            break;
        const int file = makeLockedFile(path, rename);
        if (file == -1)
            break;
        replaced.push_back(m_state->file);
        m_state->file = file;
        m_state->fresh = true;
    }
    for (const int file : replaced)
        close(file);
}
