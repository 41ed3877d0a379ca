#pragma once

#include <QSettings>
#include <QString>

/// Care for the settings file: QSettings writes it without looking at what became of the bytes, so
/// that a full disk leaves an empty file.
namespace SettingsFile
{
/// The last whole state, beside the settings file.
constexpr char CopySuffix[] = ".whole";

/// Where the settings are to be read: the copy when the settings file is there but empty, else the
/// file itself. A missing file means defaults, whether or not there is a copy.
QString readable();

/// Writes what is pending in any QSettings object of the file, and then the copy. False when there
/// isn't enough space or the file can't be written: the file is as it was or, at worst, empty with
/// the copy beside it, and \a settings still has everything pending.
bool save(QSettings &settings);
} // namespace SettingsFile
