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

bool swapOnce(const std::wstring &part, const std::wstring &target)
{
    // Keeps the access list, the attributes and the further streams.
    if (ReplaceFileW(target.c_str(), part.c_str(), nullptr, 0, nullptr, nullptr))
        return true;
    // There was none, or it is gone already and the new one still has its first name.
    const DWORD error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_UNABLE_TO_MOVE_REPLACEMENT)
        return MoveFileExW(part.c_str(), target.c_str(), 0);
    return false;
}

bool isBusy(DWORD error)
{
    return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED ||
           error == ERROR_UNABLE_TO_REMOVE_REPLACED || error == ERROR_UNABLE_TO_MOVE_REPLACEMENT;
}
} // namespace

bool Steps::isReplaceable(const QString &target)
{
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
