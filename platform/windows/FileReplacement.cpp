#include "FileReplacementSteps.h"

#include <QDir>
#include <QFile>

#include <chrono>

#include <io.h>
#include <windows.h>

namespace Steps = FileReplacement::Steps;

namespace
{
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds SharingTimeout(2); // for whoever reads the file just now
constexpr DWORD SharingPause = 50;                // milliseconds

/// A path of any length, as the wide calls take it.
std::wstring nativePath(const QString &path)
{
    const QString absolute = QDir::toNativeSeparators(QDir::cleanPath(QDir(path).absolutePath()));
    if (absolute.startsWith(QLatin1String("\\\\?\\")) || absolute.size() < MAX_PATH)
        return absolute.toStdWString();
    if (absolute.startsWith(QLatin1String("\\\\")))
        return (QStringLiteral("\\\\?\\UNC") + absolute.mid(1)).toStdWString();
    return (QStringLiteral("\\\\?\\") + absolute).toStdWString();
}

/// One rename, which a kill can't cut in two. The access list is then that of a new file there.
bool swapOnce(const std::wstring &part, const std::wstring &target)
{
    return MoveFileExW(part.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING);
}

bool isBusy(DWORD error)
{
    return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
}
} // namespace

bool Steps::isReplaceable(const QString &target, bool mayBeInPlace)
{
    // A file of the game that had just been replaced was found with its old content under Wine.
    if (mayBeInPlace)
        return false;
    const HANDLE file = CreateFileW(nativePath(target).c_str(), FILE_READ_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    BY_HANDLE_FILE_INFORMATION information = {};
    const bool isReplaceable = GetFileType(file) == FILE_TYPE_DISK &&
                               GetFileInformationByHandle(file, &information) &&
                               information.nNumberOfLinks == 1;
    CloseHandle(file);
    return isReplaceable;
}

bool Steps::takeRights(QFile &, const QString &)
{
    return true;
}

bool Steps::sync(QFile &file, Sync sync)
{
    // A volume can't be flushed as a whole without an administrator's rights.
    return sync == Sync::None ||
           FlushFileBuffers(reinterpret_cast<HANDLE>(_get_osfhandle(file.handle())));
}

Steps::Space Steps::reserve(QFile &file, qint64 size)
{
    return size <= file.size() || file.resize(size) ? Space::Reserved : Space::Missing;
}

bool Steps::swap(const QString &part, const QString &target)
{
    const std::wstring from = nativePath(part), to = nativePath(target);
    const auto deadline = Clock::now() + SharingTimeout;
    while (!swapOnce(from, to)) {
        if (!isBusy(GetLastError()) || Clock::now() >= deadline)
            return false;
        Sleep(SharingPause);
    }
    return true;
}

QString Steps::lastError()
{
    return qt_error_string(int(GetLastError()));
}

bool FileReplacement::syncBatch(const QString &, QString *)
{
    return true; // done file by file
}
