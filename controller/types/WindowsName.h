#pragma once

#include <QString>

/// The rules of the players' file system for a single name. Other systems are usually more
/// generous, and a package that only some machines can unpack helps nobody: the publisher makes
/// none, and the program unpacks none.
namespace WindowsName
{
/// Why no player can have a file or folder called \a name, to be put after the name; empty when
/// the name is fine.
QString problem(const QString &name);
} // namespace WindowsName
