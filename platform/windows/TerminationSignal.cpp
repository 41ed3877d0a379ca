#include "TerminationSignal.h"

#include <windows.h>

namespace
{
// scripts/windows/installer.nsi looks for windows of this class.
constexpr wchar_t ClassName[] = L"BrekkaTermination";

LRESULT CALLBACK answer(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message != WM_CLOSE)
        return DefWindowProcW(window, message, wParam, lParam);
    const auto *handler =
        reinterpret_cast<std::function<void()> *>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (handler)
        (*handler)();
    return 0;
}
} // namespace

/// A window that only messages can find; the main window can't be asked to end, it would hide.
struct TerminationSignal::State {
    explicit State(std::function<void()> function) : handler(std::move(function))
    {
        const HINSTANCE program = GetModuleHandleW(nullptr);
        WNDCLASSW windowClass = {};
        windowClass.lpfnWndProc = answer;
        windowClass.hInstance = program;
        windowClass.lpszClassName = ClassName;
        RegisterClassW(&windowClass);
        window = CreateWindowExW(0, ClassName, nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                 program, nullptr);
        if (!window)
            return;
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&handler));
        // The task that starts us at logon may give us more rights than the installer has.
        ChangeWindowMessageFilterEx(window, WM_CLOSE, MSGFLT_ALLOW, nullptr);
    }
    ~State() { DestroyWindow(window); }
    State(const State &) = delete;
    State &operator=(const State &) = delete;

    const std::function<void()> handler;
    HWND window = nullptr;
};

TerminationSignal::TerminationSignal(std::function<void()> handler)
    : m_state(std::make_unique<State>(std::move(handler)))
{
}

TerminationSignal::~TerminationSignal() = default;
