#include "MeetingPlace.h"

#include <QSharedMemory>

MeetingPlace::MeetingPlace(const QString &instanceKey)
    : m_blockName(instanceKey), m_serverName(instanceKey)
{
}

std::unique_ptr<QSharedMemory> MeetingPlace::makeBlock() const
{
    return std::make_unique<QSharedMemory>(m_blockName);
}

// Names without files behind them last as long as somebody uses them.
void MeetingPlace::keep() const {}
