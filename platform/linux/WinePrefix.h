#pragma once

#include <QString>

/// A folder in which Windows programs run under Wine: what their installers recorded, and where
/// their files really are. Only read, never written. Values that are being written reach the files
/// read here a little later, at the latest when the last program of the prefix has ended.
class WinePrefix
{
public:
    explicit WinePrefix(const QString &folder);

    /// The prefix that Wine would use: the environment variable "WINEPREFIX", else the one in the
    /// home folder.
    static WinePrefix current();

    /// The string \a name of the current user's registry \a key, such as "Software\Vendor"; the
    /// case of both does not matter. Null when it is missing or no string, or the registry is
    /// damaged up to there or too large to be one.
    QString userString(const QString &key, const QString &name) const;

    /// The native path of a file or folder such as "C:\Games": through the drive's link, names in
    /// the case in which they exist, a last separator kept. Null when it names no known drive.
    QString nativePath(const QString &windowsPath) const;

private:
    QString m_folder;
};
