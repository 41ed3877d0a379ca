#include "MeetingPlace.h"

#include <QSharedMemory>

MeetingPlace::MeetingPlace(const QString &instanceKey)
    : m_blockName(instanceKey), m_serverName(instanceKey)
{
}

void MeetingPlace::nameBlock(QSharedMemory &block) const
{
    block.setKey(m_blockName);
}

// Names without files behind them last as long as somebody uses them.
void MeetingPlace::keep() const {}
