#pragma once

#include <QString>
#include <QtGlobal>

/// A transfer's mean speed in the unit that suits it.
struct TransferSpeed {
    double value = 0.0;
    QString unit;

    /// Speed of \a bytes in \a milliseconds: "bytes/sec" below 1024, "kB/s" below 1048576, then
    /// "MB/s". Less than a millisecond counts as one.
    static TransferSpeed of(qint64 bytes, qint64 milliseconds);

    /// The speed with one decimal, at least three characters wide, a blank, and the unit.
    QString text() const;
};
