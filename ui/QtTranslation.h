#pragma once

/// Chinese for the texts that are Qt's: the file dialog's, and the menus of its fields.
namespace QtTranslation
{
/// Loads it, from the folder "translations" beside the program or from where Qt has its own, and
/// keeps it for the life of the application. Does nothing where there is none.
void load();
} // namespace QtTranslation
