#pragma once

#include <functional>
#include <memory>

/// Calls a function on the main thread's event loop when the system politely asks the process to
/// end, so that it ends as if the user had quit: with its settings written and its role given up.
///
/// On Linux that is SIGTERM, SIGINT or SIGHUP, unless the process was started with orders to ignore
/// it. Once asked, the process ends at its own pace, whatever else of these it is sent; SIGINT
/// alone, the one that a user types, then ends it at once. On Windows it is WM_CLOSE to a
/// message-only window of the class "BrekkaTermination", which is how the installer ends a running
/// copy; a session's end reaches the program as aboutToQuit instead, and the process is killed soon
/// after, so what must be finished is finished from that signal. Make one at the most, on the main
/// thread, while there is an application object, and don't let the process live on for long without
/// it.
class TerminationSignal
{
public:
    explicit TerminationSignal(std::function<void()> handler);
    ~TerminationSignal();
    TerminationSignal(const TerminationSignal &) = delete;
    TerminationSignal &operator=(const TerminationSignal &) = delete;

private:
    struct State;
    std::unique_ptr<State> m_state;
};
