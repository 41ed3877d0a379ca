#pragma once

#include <QByteArray>

#include <memory>

/// The SHA-256 digest of data that come piece by piece, by the system's own library, which uses
/// what the processor has for it: packages are large, and Qt's digest is slow.
class Sha256
{
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256 &) = delete;
    Sha256 &operator=(const Sha256 &) = delete;

    void addData(const char *bytes, qint64 size);
    /// The digest of all data, 32 bytes, or nothing when the library refuses; ends the object's
    /// use.
    QByteArray result();

private:
    struct State;
    const std::unique_ptr<State> m_state;
};
