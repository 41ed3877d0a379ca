#include "BlockGate.h"

// The system discards a block with its last holder, and the block's lock is a mutex of the system.

BlockGate::BlockGate(const QString &nativeKey) : m_path(nativeKey) {}

BlockGate::~BlockGate() = default;

void BlockGate::enter() {}

void BlockGate::leave() {}

void BlockGate::makeWay(qint64) {}
