#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

/// What one download may take of this machine.
struct DownloadLimit {
    /// Where nobody says how large a package is: an archive counts its bytes in 32 bits.
    static constexpr qint64 LargestPackage = qint64(4) << 30;

    qint64 size = LargestPackage; ///< bytes of the package, decoded
    std::optional<qint64> room;   ///< bytes that the volume can take; none if it doesn't tell

    /// For a package of \a size bytes, if that is known, on a volume with \a available bytes (0 or
    /// less where it doesn't tell), in place of a file of \a replaced bytes.
    static DownloadLimit of(std::optional<qint64> size, qint64 available, qint64 replaced);

    /// Why a body of \a bytes can't be taken, in words for a log; empty if it can.
    QString problem(qint64 bytes) const;
    /// Bytes on the wire that a body may have in whatever coding.
    qint64 codedSize() const;

    /// The size that a manifest names as \a text, if it is one.
    static std::optional<qint64> sizeFromText(const QString &text);
};
