#include "Sha256.h"

#include <windows.h>

#include <bcrypt.h>

struct Sha256::State {
    State()
    {
        isGood = BCRYPT_SUCCESS(
                     BCryptOpenAlgorithmProvider(&provider, BCRYPT_SHA256_ALGORITHM, nullptr, 0)) &&
                 BCRYPT_SUCCESS(BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0));
    }
    ~State()
    {
        if (hash)
            BCryptDestroyHash(hash);
        if (provider)
            BCryptCloseAlgorithmProvider(provider, 0);
    }
    State(const State &) = delete;
    State &operator=(const State &) = delete;

    BCRYPT_ALG_HANDLE provider = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    bool isGood = false;
};

Sha256::Sha256() : m_state(new State) {}

Sha256::~Sha256() = default;

void Sha256::addData(const char *bytes, qint64 size)
{
    auto *data = reinterpret_cast<PUCHAR>(const_cast<char *>(bytes));
    m_state->isGood =
        m_state->isGood && BCRYPT_SUCCESS(BCryptHashData(m_state->hash, data, ULONG(size), 0));
}

QByteArray Sha256::result()
{
    QByteArray digest(32, '\0');
    auto *bytes = reinterpret_cast<PUCHAR>(digest.data());
    const bool isGood =
        m_state->isGood &&
        BCRYPT_SUCCESS(BCryptFinishHash(m_state->hash, bytes, ULONG(digest.size()), 0));
    return isGood ? digest : QByteArray();
}
