#pragma once

#include <QString>

/// What the installation tells the user.
namespace InstallTexts
{
/// The install button's two labels.
QString install();
QString update();

/// The message for an installation that failed.
QString failed();
/// The message for a missing game folder, with a link to the game's download page on \a host.
QString noGameFolder(const QString &host);
/// The message for a \a folder of our own that can't be written to.
QString notWritable(const QString &folder);
/// The message for a \a folder of our own whose name is not UTF-8.
QString notUtf8(const QString &folder);
/// The message for settings that can't be saved in \a folder, mostly for want of space.
QString settingsNotSaved(const QString &folder);
} // namespace InstallTexts
