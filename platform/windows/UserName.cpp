#include "UserName.h"

#include <windows.h>

#include <lmcons.h>

namespace
{

std::string toUtf8(const wchar_t *text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
        return {};
    std::string utf8(size, '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
    utf8.pop_back(); // the terminating NUL that the length of -1 includes
    return utf8;
}

} // namespace

std::string currentUserName()
{
    wchar_t name[UNLEN + 1] = {};
    DWORD size = UNLEN + 1;
    if (GetUserNameW(name, &size))
        return toUtf8(name);
    wchar_t fallback[UNLEN + 1] = {};
    const DWORD length = GetEnvironmentVariableW(L"USERNAME", fallback, UNLEN + 1);
    return length > 0 && length <= UNLEN ? toUtf8(fallback) : std::string();
}
