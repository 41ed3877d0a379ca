#pragma once

#include <QPair>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QVector>

/// The plugin as it lies on the publisher's disk.
class PluginFolder
{
public:
    /// Files and folders that match one of \a excluded are left out, and so is what systems and
    /// editors leave lying about. A pattern with a slash is compared with paths below the folder,
    /// one without with names.
    explicit PluginFolder(const QString &path, const QStringList &excluded = {});

    /// Lists the files of the folder and of all folders in it. False when there is none, or when
    /// one of them could not be installed by every player; errorString() then says which and why.
    /// Empty folders are passed over: an installed plugin is described by its files alone.
    bool scan();

    /// The files relative to the folder, with forward slashes, each folder's in the order of names.
    QStringList files() const { return m_files; }
    /// What was left out, in the same way; of a folder only itself.
    QStringList leftOut() const { return m_leftOut; }
    QString pathOf(const QString &file) const;

    /// Whether \a path, which need not exist yet, is this folder or lies in it.
    bool contains(const QString &path) const;

    QString errorString() const { return m_error; }

private:
    bool scanFolder(const QString &prefix);
    bool isExcluded(const QString &relative) const;
    bool fail(const QString &text);

    QString m_path;
    QVector<QPair<bool, QRegularExpression>> m_excluded; ///< whether it is for paths, and what
    QStringList m_files;
    QStringList m_leftOut;
    QString m_error;
};
