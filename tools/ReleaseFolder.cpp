#include "ReleaseFolder.h"

#include "Durable.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>

#include <zlib.h>

#include <algorithm>
#include <limits>

namespace
{
constexpr char CompressedSuffix[] = ".gz";
constexpr char LockName[] = ".publishing";

/// As "gzip -9n" does it, without time and system, so that the same text gives the same bytes.
QByteArray gzip(const QByteArray &text)
{
    z_stream stream = {};
    gz_header header = {};
    header.os = 255;
    constexpr int WithGzipHeader = 15 + 16;
    deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, WithGzipHeader, 8, Z_DEFAULT_STRATEGY);
    deflateSetHeader(&stream, &header);
    QByteArray packed(int(deflateBound(&stream, uLong(text.size()))), '\0');
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.constData()));
    stream.avail_in = uInt(text.size());
    stream.next_out = reinterpret_cast<Bytef *>(packed.data());
    stream.avail_out = uInt(packed.size());
    deflate(&stream, Z_FINISH);
    packed.truncate(int(stream.total_out));
    deflateEnd(&stream);
    return packed;
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QJsonObject jsonIn(const QString &path)
{
    return QJsonDocument::fromJson(contentOf(path)).object();
}

QJsonObject dataOf(const QJsonObject &json)
{
    return json.value(QStringLiteral("data")).toObject();
}
} // namespace

ReleaseFolder::ReleaseFolder(const QString &path) : m_path(path) {}

ReleaseFolder::~ReleaseFolder()
{
    for (const QString &file : qAsConst(m_newFiles))
        QFile::remove(file);
    if (m_lock)
        m_lock->unlock();
    for (const QString &folder : qAsConst(m_newFolders))
        QDir().rmdir(folder);
}

bool ReleaseFolder::open(bool make)
{
    if (!make && !QFileInfo(m_path).isDir())
        return fail(QStringLiteral("no such folder: %1").arg(m_path));
    if (!makeFolder(m_path))
        return false;
    m_lock = std::make_unique<QLockFile>(m_path + QLatin1Char('/') + QLatin1String(LockName));
    m_lock->setStaleLockTime(0); // however long one takes
    if (!m_lock->tryLock(0)) {
        const QString problem = lockProblem();
        m_lock.reset();
        return fail(problem);
    }
    for (const char *folder : {"/packages", "/cms", "/history"}) {
        if (!makeFolder(m_path + QLatin1String(folder)))
            return false;
    }
    removeLeftovers();
    readHistory();
    const auto manifest = UpdateManifest::fromJson(jsonIn(manifestPath()));
    if (manifest.hasData && !manifest.isServerError)
        m_offered = manifest;
    // There may be no history yet, or one that a power cut or a restored folder left behind.
    const bool isKnown = !m_history.isEmpty() && m_offered &&
                         m_history.constLast().manifest.toJson() == m_offered->toJson();
    return isKnown || !m_offered || record(*m_offered);
}

QString ReleaseFolder::lockProblem() const
{
    if (m_lock->error() != QLockFile::LockFailedError)
        return QStringLiteral("cannot write to %1").arg(m_path);
    qint64 process = 0;
    QString host, program;
    m_lock->getLockInfo(&process, &host, &program);
    // Whether a process of another machine still lives can't be found out here.
    return QStringLiteral("another publisher is at work in %1: process %2 on %3; if there is none, "
                          "remove %1/%4")
        .arg(m_path, QString::number(process), host, QLatin1String(LockName));
}

/// What publishers that were killed have begun.
void ReleaseFolder::removeLeftovers() const
{
    QDir packages(packagesPath());
    for (const QString &file : packages.entryList({QStringLiteral("*.part")}, QDir::Files))
        packages.remove(file);
}

void ReleaseFolder::readHistory()
{
    const QFileInfoList files =
        QDir(m_path + QStringLiteral("/history"))
            .entryInfoList({QStringLiteral("*.json")}, QDir::Files, QDir::Name);
    for (const QFileInfo &file : files) {
        const int number = file.completeBaseName().toInt();
        const QJsonObject json = jsonIn(file.filePath());
        const auto manifest = UpdateManifest::fromJson(json);
        if (number > 0 && manifest.hasData)
            m_history.append({number, file.lastModified(), manifest, dataOf(json)});
    }
    // Names with more digits sort before those with fewer.
    std::stable_sort(m_history.begin(), m_history.end(),
                     [](const Release &a, const Release &b) { return a.number < b.number; });
}

bool ReleaseFolder::record(const UpdateManifest &manifest)
{
    const int last = m_history.isEmpty() ? 0 : m_history.constLast().number;
    if (last == std::numeric_limits<int>::max())
        return fail(QStringLiteral(
                        "%1/history/%2.json leaves no number for the next; remove it, unless it is "
                        "yours")
                        .arg(m_path)
                        .arg(last));
    const int number = last + 1;
    const QString path =
        QStringLiteral("%1/history/%2.json").arg(m_path).arg(number, 6, 10, QLatin1Char('0'));
    const QDateTime now = QDateTime::currentDateTime();
    QSaveFile file(path);
    addNewFile(path);
    if (!fill(file, QJsonDocument(manifest.toJson()).toJson(), now) || !replace(file))
        return false;
    m_history.append({number, now, manifest, dataOf(manifest.toJson())});
    return true;
}

bool ReleaseFolder::offer(const UpdateManifest &manifest)
{
    const QByteArray json = QJsonDocument(manifest.toJson()).toJson();
    if (json.size() > UpdateManifest::MaxSize)
        return fail(
            QStringLiteral("the manifest would take %1 bytes, and programs read %2 at most; "
                           "fewer files, or shorter names, fit")
                .arg(json.size())
                .arg(UpdateManifest::MaxSize));
    if (!record(manifest) || !write(json))
        return false;
    m_offered = manifest;
    return true;
}

bool ReleaseFolder::pause()
{
    UpdateManifest nothing;
    nothing.isServerError = true;
    return write(QJsonDocument(nothing.toJson()).toJson());
}

bool ReleaseFolder::repair()
{
    const QByteArray json = contentOf(manifestPath());
    return contentOf(manifestPath() + QLatin1String(CompressedSuffix)) == gzip(json) || write(json);
}

/// The compressed one first, so that it is never the older of the two; and neither before both are
/// sure to fit.
bool ReleaseFolder::write(const QByteArray &json)
{
    // Web servers tell versions apart by size and second.
    const QDateTime before = QFileInfo(manifestPath()).lastModified();
    QDateTime now = QDateTime::currentDateTime();
    if (before.isValid())
        now = std::max(now, before.addSecs(1));
    QSaveFile compressed(manifestPath() + QLatin1String(CompressedSuffix)), plain(manifestPath());
    if (!fill(compressed, gzip(json), now) || !fill(plain, json, now) || !replace(compressed))
        return false;
    // From here on players may come for what it names, whatever happens to the plain one.
    settle();
    return replace(plain);
}

bool ReleaseFolder::fill(QSaveFile &file, const QByteArray &content, const QDateTime &time)
{
    // Only a write of which nothing fits has a reason, and only while the file is open.
    int written = 0;
    if (file.open(QIODevice::WriteOnly)) {
        while (const int more = int(std::max(qint64(0), file.write(content.mid(written)))))
            written += more;
    }
    if (written != content.size() || !Durable::sync(file))
        return fail(QStringLiteral("cannot write %1: %2").arg(file.fileName(), file.errorString()));
    file.setPermissions(Durable::ServedFile);
    file.setFileTime(time, QFileDevice::FileModificationTime);
    return true;
}

bool ReleaseFolder::replace(QSaveFile &file)
{
    return (file.commit() && Durable::syncFolder(QFileInfo(file.fileName()).path())) ||
           fail(QStringLiteral("cannot write %1: %2").arg(file.fileName(), file.errorString()));
}

QStringList ReleaseFolder::prune(int count)
{
    const QDateTime yesterday = QDateTime::currentDateTime().addDays(-1);
    QSet<QString> kept;
    for (int i = 0; i < m_history.size(); ++i) {
        const bool isLast = i == m_history.size() - 1;
        if (i >= m_history.size() - count || isLast || m_history[i + 1].since > yesterday)
            kept += m_history[i].manifest.packageMd5.value_or(QString());
    }
    QStringList removed;
    const QRegularExpression ours(QStringLiteral("^[0-9a-f]{32}\\.zip$"));
    const QFileInfoList packages = QDir(packagesPath()).entryInfoList(QDir::Files);
    for (const QFileInfo &package : packages) {
        if (ours.match(package.fileName()).hasMatch() && !kept.contains(package.baseName()) &&
            package.lastModified() < yesterday && QFile::remove(package.filePath()))
            removed += package.fileName();
    }
    return removed;
}

QString ReleaseFolder::packagePath(const UpdateManifest &manifest) const
{
    return packagesPath() + QLatin1Char('/') + manifest.packageMd5.value_or(QString()) +
           QStringLiteral(".zip");
}

void ReleaseFolder::settle()
{
    m_newFiles.clear();
    m_newFolders.clear();
}

bool ReleaseFolder::makeFolder(const QString &path)
{
    if (QFileInfo(path).isDir())
        return true;
    const QString parent = QFileInfo(QDir::cleanPath(path)).path();
    if (!makeFolder(parent))
        return false;
    if (!QDir().mkdir(path) || !Durable::syncFolder(parent))
        return fail(QStringLiteral("cannot create the folder %1").arg(path));
    QFile::setPermissions(path, Durable::ServedFolder);
    m_newFolders.prepend(path);
    return true;
}

bool ReleaseFolder::fail(const QString &text)
{
    m_error = text;
    return false;
}
