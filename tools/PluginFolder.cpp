#include "PluginFolder.h"
#include "WindowsName.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>

#include <algorithm>
#include <filesystem>

namespace
{
// Qt leaves out names that it can't decode, and a plugin must not be published in part.
bool hidesNames(const QDir &folder, int listed)
{
    namespace fs = std::filesystem;
    std::error_code error;
    fs::directory_iterator entry(fs::u8path(folder.path().toUtf8().constData()), error);
    int all = 0;
    for (; !error && entry != fs::directory_iterator(); entry.increment(error))
        ++all;
    return error || all != listed;
}
} // namespace

PluginFolder::PluginFolder(const QString &path, const QStringList &excluded) : m_path(path)
{
    QStringList patterns = excluded;
    for (const char *litter : {".DS_Store", "Thumbs.db", "desktop.ini", ".git", ".gitignore",
                               ".svn", "*~", "*.bak", "*.orig", "*.swp", ".#*", "#*#"})
        patterns += QLatin1String(litter);
    for (const QString &pattern : qAsConst(patterns)) {
        const QRegularExpression expression(
            QRegularExpression::wildcardToRegularExpression(pattern),
            QRegularExpression::CaseInsensitiveOption);
        m_excluded.append({pattern.contains(QLatin1Char('/')), expression});
    }
}

bool PluginFolder::scan()
{
    if (!QFileInfo(m_path).isDir())
        return fail(QStringLiteral("no such folder: %1").arg(m_path));
    m_files.clear();
    m_leftOut.clear();
    if (!scanFolder(QString()))
        return false;
    if (m_files.isEmpty())
        return fail(QStringLiteral("no files in %1").arg(m_path));
    return true;
}

bool PluginFolder::scanFolder(const QString &prefix)
{
    const QDir folder(pathOf(prefix));
    if (!folder.isReadable())
        return fail(QStringLiteral("cannot list %1").arg(folder.path()));

    // System entries as well: a pipe or a dangling link is to be refused, not left out.
    const QFileInfoList entries = folder.entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    if (hidesNames(folder, entries.size()))
        return fail(QStringLiteral("%1 cannot be listed whole; are all names valid UTF-8?")
                        .arg(folder.path()));
    QHash<QString, QString> folded;
    for (const QFileInfo &entry : entries) {
        const QString name = entry.fileName();
        const QString relative = prefix + name;
        if (isExcluded(relative)) {
            m_leftOut += relative;
            continue;
        }
        QString &twin = folded[name.toCaseFolded()];
        const QString problem = WindowsName::problem(name);
        if (!problem.isEmpty())
            return fail(QStringLiteral("%1 %2").arg(relative, problem));
        if (!twin.isEmpty())
            return fail(
                QStringLiteral("%1 and %2 differ only in case").arg(prefix + twin, relative));
        twin = name;
        // The players' zip reader drops it and then doesn't find the data.
        if (prefix.isEmpty() && name.startsWith(QLatin1Char('.')))
            return fail(QStringLiteral("%1 begins with a dot").arg(relative));
        if (entry.isSymLink())
            return fail(QStringLiteral("%1 is a symbolic link").arg(relative));
        if (entry.isDir()) {
            if (!scanFolder(relative + QLatin1Char('/')))
                return false;
        } else if (entry.isFile()) {
            m_files.append(relative);
        } else {
            return fail(QStringLiteral("%1 is not a regular file").arg(relative));
        }
    }
    return true;
}

bool PluginFolder::isExcluded(const QString &relative) const
{
    const QString name = relative.section(QLatin1Char('/'), -1);
    return std::any_of(m_excluded.begin(), m_excluded.end(), [&](const auto &pattern) {
        return pattern.second.match(pattern.first ? relative : name).hasMatch();
    });
}

QString PluginFolder::pathOf(const QString &file) const
{
    return m_path + QLatin1Char('/') + file;
}

bool PluginFolder::contains(const QString &path) const
{
    // Only what exists can be freed of links, so the comparison starts at the nearest such folder.
    QString existing = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    while (!QFileInfo::exists(existing) && existing.contains(QLatin1Char('/')))
        existing = QFileInfo(existing).path();
    const QString own = QFileInfo(m_path).canonicalFilePath() + QLatin1Char('/');
    return (QFileInfo(existing).canonicalFilePath() + QLatin1Char('/')).startsWith(own);
}

bool PluginFolder::fail(const QString &text)
{
    m_error = text;
    return false;
}
