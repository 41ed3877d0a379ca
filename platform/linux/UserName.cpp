#include "UserName.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

std::string currentUserName()
{
    if (const passwd *entry = getpwuid(geteuid()))
        return entry->pw_name;
    const char *fallback = std::getenv("USERNAME");
    return fallback ? fallback : "";
}
