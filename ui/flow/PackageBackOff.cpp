#include "PackageBackOff.h"

#include <algorithm>

void PackageBackOff::fail(const QString &md5)
{
    constexpr int LongestPause = 12;
    m_pause = md5 == m_md5 ? std::clamp(2 * m_pause, 1, LongestPause) : 1;
    m_md5 = md5;
    m_ticks = 0;
}
