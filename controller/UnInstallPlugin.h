#pragma once

#include <QObject>

/// Deletes the installed plugin's files from the game folder, from what the settings file records.
class UnInstallPlugin : public QObject
{
    Q_OBJECT
public:
    explicit UnInstallPlugin(QObject *parent = nullptr);

    /// Deletes every listed file that exists, with what an interrupted extraction of it left, on
    /// the calling thread. Folders, the downloaded package and the settings stay; a file that can't
    /// be deleted stays, too. Without a recorded game folder nothing is deleted.
    void RemovePluginFiles();
};
