#pragma once

#include <QObject>

/// Runs each data row of a test class in a process and a program folder of its own, several at a
/// time, for code that keeps process-wide state and files beside the program. Started without a
/// test's name the program starts itself once for each row; with one it just runs it. \a function
/// is the data-driven test. Needs an application object; returns the program's exit code.
int runEachRowAlone(int argc, char *argv[], const char *function, QObject *test);
