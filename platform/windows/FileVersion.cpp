#include "FileVersion.h"

#include <vector>
#include <windows.h>

namespace
{
/// The program's own 8-bit encoding is UTF-8, the system's is that of its code page.
std::string toCodePage(const std::string &utf8)
{
    const int length = MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, nullptr, 0);
    std::wstring wide(length > 0 ? size_t(length) : 1, L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, &wide[0], length);
    const int size = WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, nullptr, 0, nullptr, nullptr);
    std::string bytes(size > 0 ? size_t(size) : 1, '\0');
    WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, &bytes[0], size, nullptr, nullptr);
    return bytes;
}
} // namespace

std::string fileVersion(const std::string &utf8Path)
{
    const std::string path = toCodePage(utf8Path);
    const DWORD size = GetFileVersionInfoSizeA(path.c_str(), nullptr);
    if (size == 0)
        return {};
    std::vector<char> block(size);
    if (!GetFileVersionInfoA(path.c_str(), 0, size, block.data()))
        return {};
    void *root = nullptr;
    UINT length = 0;
    if (!VerQueryValueA(block.data(), "\\", &root, &length) || length < sizeof(VS_FIXEDFILEINFO))
        return {};
    const auto *info = static_cast<const VS_FIXEDFILEINFO *>(root);
    return std::to_string(HIWORD(info->dwFileVersionMS)) + '.' +
           std::to_string(LOWORD(info->dwFileVersionMS)) + '.' +
           std::to_string(HIWORD(info->dwFileVersionLS)) + '.' +
           std::to_string(LOWORD(info->dwFileVersionLS));
}
