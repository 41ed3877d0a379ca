#include "TransferWatch.h"

#include <numeric>

TransferWatch::TransferWatch(std::chrono::milliseconds window, QObject *parent) : QObject(parent)
{
    m_timer.setInterval(window / int(m_bytes.size()));
    connect(&m_timer, &QTimer::timeout, this, &TransferWatch::tick);
}

void TransferWatch::start()
{
    m_bytes = {};
    m_ticks = 0;
    m_timer.start();
}

void TransferWatch::stop()
{
    m_timer.stop();
}

void TransferWatch::add(qint64 bytes)
{
    m_bytes[m_ticks % m_bytes.size()] += bytes;
}

void TransferWatch::tick()
{
    ++m_ticks;
    const qint64 sum = std::accumulate(m_bytes.begin(), m_bytes.end(), qint64(0));
    if (m_ticks >= m_bytes.size() && sum < LeastBytes) {
        stop();
        emit stalled();
        return;
    }
    m_bytes[m_ticks % m_bytes.size()] = 0;
}
