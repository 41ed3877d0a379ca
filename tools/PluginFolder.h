#pragma once

#include <QString>
#include <QStringList>

/// The plugin as it lies on the publisher's disk.
class PluginFolder
{
public:
    explicit PluginFolder(const QString &path);

    /// Lists the files of the folder and of all folders in it. False when there is none, or when
    /// one of them could not be installed by every player; errorString() then says which and why.
    /// Empty folders are passed over: an installed plugin is described by its files alone.
    bool scan();

    /// The files in ascending order, relative to the folder, with forward slashes.
    QStringList files() const { return m_files; }
    QString pathOf(const QString &file) const;

    /// Whether \a path, which need not exist yet, is this folder or lies in it.
    bool contains(const QString &path) const;

    QString errorString() const { return m_error; }

private:
    bool scanFolder(const QString &prefix);
    bool fail(const QString &text);

    QString m_path;
    QStringList m_files;
    QString m_error;
};
