#pragma once

#include <QVariant>

/// What the game's installer recorded about the game on this machine. Only read, never written.
class GameRegistration
{
public:
    /// Reads the game's install folder anew: a string exactly as the installer stored it, or a null
    /// variant when the game is not registered.
    QVariant installLocation() const;
};
