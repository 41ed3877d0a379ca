#pragma once

#include <QObject>
#include <QTimer>

#include <array>
#include <chrono>

/// Notices a transfer that has fallen silent, or drips to keep its reader waiting.
///
/// Time is counted in ticks of a timer. While the machine sleeps there are none, so a transfer is
/// not blamed for it.
class TransferWatch : public QObject
{
    Q_OBJECT
public:
    static constexpr qint64 LeastBytes = 65536; ///< that have to come within the window

    /// Judges what came within the last \a window, which a tick more or less may be added to.
    explicit TransferWatch(std::chrono::milliseconds window, QObject *parent = nullptr);

    void start();
    void stop();
    /// \a bytes have come.
    void add(qint64 bytes);

signals:
    /// Too little came within a whole window; the watch has stopped.
    void stalled();

private:
    void tick();

    QTimer m_timer;
    std::array<qint64, 12> m_bytes = {}; ///< by tick, the oldest is replaced next
    size_t m_ticks = 0;
};
