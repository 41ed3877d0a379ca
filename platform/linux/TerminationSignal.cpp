#include "TerminationSignal.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <vector>

namespace
{
constexpr int Signals[] = {SIGTERM, SIGINT, SIGHUP};

std::vector<int> handled; // those of them that nobody told us to ignore
int ends[2] = {-1, -1};   // of a pipe: a signal handler may do little more than write
std::unique_ptr<QSocketNotifier> notifier;

void wake(int)
{
    const char byte = 0;
    // A full pipe has woken the event loop already.
    [[maybe_unused]] const ssize_t written = write(ends[1], &byte, 1);
}

void handleSignals(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int signal : handled)
        sigaction(signal, &action, nullptr);
}

/// Programs started by "nohup", or by a script in the background, have to live on.
bool isIgnored(int signal)
{
    struct sigaction action = {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}
} // namespace

TerminationSignal::TerminationSignal(std::function<void()> handler)
{
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == -1)
        return;
    notifier = std::make_unique<QSocketNotifier>(ends[0], QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                     [handler = std::move(handler)] {
                         // Whoever asks a second time gets the system's own way.
                         handleSignals(SIG_DFL);
                         notifier->setEnabled(false);
                         handler();
                     });
    for (const int signal : Signals) {
        if (!isIgnored(signal))
            handled.push_back(signal);
    }
    handleSignals(wake);
}

TerminationSignal::~TerminationSignal()
{
    handleSignals(SIG_DFL);
    handled.clear();
    notifier.reset();
    for (int &end : ends) {
        if (end != -1)
            close(end);
        end = -1;
    }
}
