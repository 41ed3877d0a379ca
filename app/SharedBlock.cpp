#include "SharedBlock.h"

namespace
{
constexpr qint64 NoProcess = -1;
} // namespace

void SharedBlock::reset()
{
    secondaryCount = 0;
    clearPrimary();
}

void SharedBlock::setPrimary(qint64 processId, const QByteArray &userName)
{
    primaryRunning = 1;
    primaryProcessId = processId;
    qstrncpy(primaryUserName, userName.constData(), UserNameSize);
    checksum = computeChecksum();
}

void SharedBlock::clearPrimary()
{
    primaryRunning = 0;
    primaryProcessId = NoProcess;
    primaryUserName[0] = '\0';
    checksum = computeChecksum();
}

quint32 SharedBlock::addSecondary()
{
    ++secondaryCount;
    checksum = computeChecksum();
    return secondaryCount;
}

QString SharedBlock::userName() const
{
    return QString::fromUtf8(primaryUserName, int(qstrnlen(primaryUserName, UserNameSize)));
}

quint16 SharedBlock::computeChecksum() const
{
    return qChecksum(reinterpret_cast<const char *>(this), offsetof(SharedBlock, checksum));
}
