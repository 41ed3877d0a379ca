#pragma once

#include <QString>

/// The rules of the players' file system for a single name. The publisher's own system is usually
/// more generous, and a package that only some machines can unpack helps nobody.
namespace WindowsName
{
/// Why no player can have a file or folder called \a name, to be put after the name; empty when
/// the name is fine.
QString problem(const QString &name);
} // namespace WindowsName
