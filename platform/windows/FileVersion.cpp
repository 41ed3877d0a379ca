#include "FileVersion.h"

#include <vector>
#include <windows.h>

std::string fileVersion(const std::string &path)
{
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
