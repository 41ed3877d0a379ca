#include "TerminationSignal.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace
{
int wakingEnd = -1; // of a pipe: a signal handler may do little more than write

void wake(int)
{
    const int error = errno;
    const char byte = 0;
    // A full pipe has woken the event loop already, and without one the process is ending anyway.
    [[maybe_unused]] const ssize_t written = write(wakingEnd, &byte, 1);
    errno = error;
}

/// Sets what \a signal does, unless it is ignored: programs started by "nohup", or by a script in
/// the background, have to live on.
void setHandler(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    if (sigaction(signal, nullptr, &action) == -1 || action.sa_handler == SIG_IGN)
        return;
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
}
} // namespace

struct TerminationSignal::State {
    explicit State(int end) : notifier(end, QSocketNotifier::Read) {}
    ~State()
    {
        const int end = wakingEnd;
        wakingEnd = -1;
        close(end);
        close(int(notifier.socket()));
    }

    QSocketNotifier notifier;
};

TerminationSignal::TerminationSignal(std::function<void()> handler)
{
    int ends[2] = {};
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == -1)
        return;
    wakingEnd = ends[1];
    m_state = std::make_unique<State>(ends[0]);
    QObject::connect(&m_state->notifier, &QSocketNotifier::activated, &m_state->notifier,
                     [this, handler = std::move(handler)] {
                         // Sessions and terminals send one signal after the other as they end. Only
                         // who types the keys a second time wants no more waiting.
                         setHandler(SIGINT, SIG_DFL);
                         m_state->notifier.setEnabled(false);
                         handler();
                     });
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        setHandler(signal, wake);
}

TerminationSignal::~TerminationSignal()
{
    setHandler(SIGINT, SIG_DFL);
}
