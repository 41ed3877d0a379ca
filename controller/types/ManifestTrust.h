#pragma once

#include "ManifestSignature.h"

#include <QJsonObject>
#include <QString>

/// Decides whether a program with public keys may act on a manifest: one of its publishers has
/// signed it, and it is no older than what the program has seen of them. Pure functions on values.
namespace ManifestTrust
{
/// Whom the program was built to trust.
struct Publishers {
    ManifestSignature::Keys keys;
    /// What a program that has seen no serial takes as the last one.
    quint64 lowestSerial = 0;
};

/// What the settings keep of the manifests that were accepted.
struct Memory {
    /// "KEY:SERIAL", with the key in hexadecimal digits, divided by blanks, the latest first.
    QString serials;
    /// A serial without its key, as programs before 1.2 have stored it.
    QString unkeyedSerial;
    /// One had a signature that covers the size, so the others must have one, too.
    bool needsSignature2 = false;
};

struct Verdict {
    enum class Outcome { Accepted, Refused, Outdated };
    Outcome outcome = Outcome::Refused;
    QString reason;            ///< in words for a log, unless accepted
    bool isSizeSigned = false; ///< else nobody vouches for the size, if there is one
    Memory memory;             ///< what to keep from now on
};

/// Judges the manifest's object \a data; \a now is this machine's clock in seconds since 1970.
Verdict judge(const QJsonObject &data, const Publishers &publishers, const Memory &memory,
              qint64 now);
} // namespace ManifestTrust
