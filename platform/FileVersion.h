#pragma once

#include <string>

/// The version in the version resource of the Windows file at \a path (UTF-8, which is the local
/// 8-bit encoding of our programs) as "1.6.1.1023"; empty when there is no such file or it carries
/// no version. Also works on Linux. Reads a bounded part of the file, whatever the file says about
/// itself. Windows is asked in its own code page, so a path beyond that one counts as missing.
std::string fileVersion(const std::string &path);
