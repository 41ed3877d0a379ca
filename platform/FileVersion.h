#pragma once

#include <string>

/// The version that the file at \a path carries (UTF-8, which is the local 8-bit encoding of our
/// programs), as "1.6.1.1023"; empty when there is no such file or no version in it. On Windows
/// that is the version resource of a program or library, on Linux the first line of a text. Reads a
/// bounded part of the file, whatever that says about itself. A Windows older than the UTF-8 code
/// page of our manifest is asked in its own, so there a path beyond that one counts as missing.
std::string fileVersion(const std::string &path);
