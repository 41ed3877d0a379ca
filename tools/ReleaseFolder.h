#pragma once

#include "UpdateManifest.h"

#include <QDateTime>
#include <QLockFile>
#include <QString>
#include <QStringList>
#include <QVector>

#include <memory>
#include <optional>

class QSaveFile;

/// A manifest that was offered at some time.
struct Release {
    int number = 0; ///< in the order of publishing, from 1
    QDateTime since;
    UpdateManifest manifest;
    QJsonObject data; ///< what the manifest was read from, for its signatures
};

/// The folder that a web server serves: packages/, the manifest cms/upgrade with a compressed twin,
/// and history/ with every manifest that there has been.
///
/// One publisher at a time has it open. What is offered is replaced in one step, after everything
/// that it names is on the disk. What a run has created is taken back unless it succeeds.
class ReleaseFolder
{
public:
    explicit ReleaseFolder(const QString &path);
    ~ReleaseFolder();

    // Each of these is false on failure, and errorString() says why in one line.

    /// Locks it and reads what there is. With \a make it is created where it doesn't exist.
    bool open(bool make);
    /// Offers \a manifest from now on, and records it.
    bool offer(const UpdateManifest &manifest);
    /// Offers nothing until the next manifest.
    bool pause();
    /// Writes what is offered once more where its two forms don't agree.
    bool repair();

    /// Removes packages that the last \a count manifests don't name. None that was offered within
    /// the last day, since players may still be fetching it, and no file that isn't named as ours
    /// are. The names of those removed.
    QStringList prune(int count);

    /// The last one last.
    const QVector<Release> &history() const { return m_history; }
    /// What is offered; nothing while paused.
    const std::optional<UpdateManifest> &offered() const { return m_offered; }
    QString packagesPath() const { return m_path + QStringLiteral("/packages"); }
    QString packagePath(const UpdateManifest &manifest) const;
    QString manifestPath() const { return m_path + QStringLiteral("/cms/upgrade"); }
    /// To be taken back with the rest.
    void addNewFile(const QString &path) { m_newFiles.prepend(path); }
    /// From here on nothing is taken back.
    void settle();
    QString errorString() const { return m_error; }

private:
    bool makeFolder(const QString &path);
    QString lockProblem() const;
    void removeLeftovers() const;
    void readHistory();
    bool record(const UpdateManifest &manifest);
    bool write(const QByteArray &json);
    bool fill(QSaveFile &file, const QByteArray &content, const QDateTime &time);
    bool replace(QSaveFile &file);
    bool fail(const QString &text);

    QString m_path;
    std::unique_ptr<QLockFile> m_lock;
    QVector<Release> m_history;
    std::optional<UpdateManifest> m_offered;
    QStringList m_newFiles;
    QStringList m_newFolders;
    QString m_error;
};
