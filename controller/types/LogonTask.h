#pragma once

/// The task that the system runs at each logon, as the program registers it and the updater removes
/// it. The program that it starts is Paths::updaterProgram().
namespace LogonTask
{
constexpr wchar_t Name[] = L"BrekkaTask";
constexpr wchar_t Arguments[] = L"-s";
} // namespace LogonTask
