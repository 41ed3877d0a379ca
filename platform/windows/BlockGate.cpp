#include "BlockGate.h"

#include <QSharedMemory>

#include <cstddef>
#include <vector>

#include <windows.h>

#include <aclapi.h>

namespace
{
/// What the system tells about \a token; empty when it refuses.
std::vector<std::byte> informationOf(HANDLE token, TOKEN_INFORMATION_CLASS kind)
{
    DWORD size = 0;
    GetTokenInformation(token, kind, nullptr, 0, &size);
    std::vector<std::byte> information(size);
    if (!GetTokenInformation(token, kind, information.data(), size, &size))
        information.clear();
    return information;
}

/// While it lives, what this process makes is open to all processes of its user.
class OpenToUser
{
public:
    OpenToUser()
    {
        if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_ADJUST_DEFAULT, &m_token))
            return;
        m_before = informationOf(m_token, TokenDefaultDacl);
        auto user = informationOf(m_token, TokenUser);
        if (m_before.empty() || user.empty())
            return;
        EXPLICIT_ACCESSW entry = {};
        entry.grfAccessPermissions = GENERIC_ALL;
        entry.grfAccessMode = GRANT_ACCESS;
        BuildTrusteeWithSidW(&entry.Trustee, reinterpret_cast<TOKEN_USER *>(user.data())->User.Sid);
        TOKEN_DEFAULT_DACL wider = {};
        if (SetEntriesInAclW(1, &entry, before()->DefaultDacl, &wider.DefaultDacl) != ERROR_SUCCESS)
            return;
        SetTokenInformation(m_token, TokenDefaultDacl, &wider, sizeof wider);
        LocalFree(wider.DefaultDacl);
    }

    ~OpenToUser()
    {
        if (!m_before.empty())
            SetTokenInformation(m_token, TokenDefaultDacl, before(), sizeof(TOKEN_DEFAULT_DACL));
        if (m_token)
            CloseHandle(m_token);
    }

    OpenToUser(const OpenToUser &) = delete;
    OpenToUser &operator=(const OpenToUser &) = delete;

private:
    TOKEN_DEFAULT_DACL *before() { return reinterpret_cast<TOKEN_DEFAULT_DACL *>(m_before.data()); }

    HANDLE m_token = nullptr;
    std::vector<std::byte> m_before;
};

const wchar_t *wide(const QString &text)
{
    return reinterpret_cast<const wchar_t *>(text.utf16());
}

/// Sees to it that nobody holds the block's lock. Inside the gate nobody alive does.
void freeLock(QString nativeKey)
{
    nativeKey.replace(QLatin1String("sharedmemory"), QLatin1String("systemsem"));
    const HANDLE lock =
        OpenSemaphoreW(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, wide(nativeKey));
    if (!lock)
        return;
    WaitForSingleObject(lock, 0);
    ReleaseSemaphore(lock, 1, nullptr);
    CloseHandle(lock);
}
} // namespace

struct BlockGate::State {
    ~State()
    {
        if (mutex)
            CloseHandle(mutex);
    }

    QString nativeKey;
    std::unique_ptr<OpenToUser> openToUser = std::make_unique<OpenToUser>();
    HANDLE mutex = CreateMutexW(nullptr, FALSE, wide(nativeKey + QLatin1String("_gate")));
    bool inside = false;
};

BlockGate::BlockGate(const QString &nativeKey) : m_state(new State{nativeKey}) {}

BlockGate::~BlockGate()
{
    leave();
}

void BlockGate::enter()
{
    if (!m_state->mutex || m_state->inside)
        return;
    const DWORD result = WaitForSingleObject(m_state->mutex, INFINITE);
    m_state->inside = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
    if (result == WAIT_ABANDONED)
        freeLock(m_state->nativeKey);
}

void BlockGate::leave()
{
    m_state->openToUser.reset();
    if (m_state->inside)
        ReleaseMutex(m_state->mutex);
    m_state->inside = false;
}

bool BlockGate::lock(QSharedMemory &block)
{
    enter();
    return block.lock();
}

bool BlockGate::unlock(QSharedMemory &block)
{
    const bool held = block.unlock();
    leave();
    return held;
}

// The system discards a block with its last holder, and keys are names, which nobody else uses.
void BlockGate::makeWay(qint64) {}
