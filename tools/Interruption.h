#pragma once

/// The user's wish to stop (Ctrl-C, or a polite kill), kept until the program has tidied up.
namespace Interruption
{
/// Catches the signals from now on.
void watch();
/// Whether one of them has come.
bool requested();
} // namespace Interruption
