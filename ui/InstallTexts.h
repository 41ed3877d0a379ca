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
} // namespace InstallTexts
