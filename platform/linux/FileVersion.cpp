#include "FileVersion.h"

std::string fileVersion(const std::string &)
{
    return {};
}
