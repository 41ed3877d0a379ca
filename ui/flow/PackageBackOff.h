#pragma once

#include <QString>

/// How long to leave a package alone that turned out bad, so that a bad one on the server costs its
/// owner little: after each failure in a row a longer pause, counted in periodic checks. A value
/// of the window, in memory only; a restart starts afresh.
class PackageBackOff
{
public:
    /// The package with the checksum \a md5 could not be installed: the next 1, 2, 4, 8 and then
    /// always 12 checks leave it alone.
    void fail(const QString &md5);
    /// A periodic check begins.
    void tick() { ++m_ticks; }
    /// Whether \a md5 is the package to be left alone for now.
    bool holds(const QString &md5) const { return m_ticks <= m_pause && md5 == m_md5; }
    void forget() { *this = {}; }

private:
    QString m_md5;
    int m_pause = 0;
    int m_ticks = 1; ///< since the failure
};
