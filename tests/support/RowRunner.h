#pragma once

#include <QObject>

/// Runs each data row of a test class in a process of its own, for code that keeps process-wide
/// state. Started without a test's name the program starts itself once for each row; with one it
/// just runs it. \a function is the data-driven test. Returns the program's exit code.
int runEachRowAlone(int argc, char *argv[], const char *function, QObject *test);
