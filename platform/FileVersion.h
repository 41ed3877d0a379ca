#pragma once

#include <string>

/// The version in the version resource of the file at \a path (local 8-bit encoding) as
/// "1.6.1.1023"; empty when there is no such file or it carries no version.
std::string fileVersion(const std::string &path);
