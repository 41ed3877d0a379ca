#include "Sha256.h"

#include <openssl/evp.h>

struct Sha256::State {
    ~State() { EVP_MD_CTX_free(context); }

    EVP_MD_CTX *context = EVP_MD_CTX_new();
    bool isGood = EVP_DigestInit_ex(context, EVP_sha256(), nullptr) == 1;
};

Sha256::Sha256() : m_state(new State) {}

Sha256::~Sha256() = default;

void Sha256::addData(const char *bytes, qint64 size)
{
    m_state->isGood =
        m_state->isGood && EVP_DigestUpdate(m_state->context, bytes, size_t(size)) == 1;
}

QByteArray Sha256::result()
{
    QByteArray digest(32, '\0');
    auto *bytes = reinterpret_cast<unsigned char *>(digest.data());
    const bool isGood =
        m_state->isGood && EVP_DigestFinal_ex(m_state->context, bytes, nullptr) == 1;
    return isGood ? digest : QByteArray();
}
