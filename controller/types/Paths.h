#pragma once

#include <QString>

/// Paths that the program builds. On Windows they are spelled with the backslashes that the game's
/// and the program's own records hold; elsewhere the same places are addressed with slashes.
namespace Paths
{
/// \a folder, the native separator and \a relative. On Windows \a relative stays as it is;
/// elsewhere its backslashes, single or doubled, count as separators, because a plugin's file list
/// is written for Windows.
QString inFolder(const QString &folder, const QString &relative);

/// Whether \a relative, joined to a folder, addresses something below that folder: it is not empty,
/// not absolute, has no drive letter and does not climb out with parent-folder components. Both
/// kinds of slash count as separators on every platform.
bool staysInside(const QString &relative);

/// The folder that downloads go to, below the program's own folder.
QString downloadFolder();

/// The file that every downloaded package is saved as; it has no extension.
QString packageFile();

/// The folder of the program's own, or else of its settings, in which no file can be made; empty
/// if all is well. Tries it, because permissions alone don't tell on every system. Any thread.
QString unwritableFolder();

/// The folder of the program's own, or else the current one, whose name is lost because its bytes
/// are not UTF-8; empty if all is well. Whatever is written there lands in another folder.
QString unreadableFolder();

/// The updater beside the program, which is what the system starts at logon.
QString updaterProgram();
} // namespace Paths
