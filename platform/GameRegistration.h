#pragma once

#include <QVariant>

/// What the game's installer recorded about the game on this machine: in the registry, on Linux in
/// that of the Wine prefix in use. Only read, never written; blocks for the time of reading.
class GameRegistration
{
public:
    /// Reads the game's install folder anew: a string exactly as the installer stored it, on Linux
    /// as the native path of that folder. A null variant when the game is not registered, or on
    /// Linux when the folder is on a drive that the prefix doesn't have.
    QVariant installLocation() const;
};
