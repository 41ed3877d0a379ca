#pragma once

#include <QtTest>

/// Fails the test unless \a condition comes true within \a milliseconds. Unlike Qt's own
/// macros this doesn't look again once it did: what a running program makes true may not last, as
/// when it replaces a file the moment after.
#define WAIT_FOR_MS(condition, milliseconds)                                                       \
    QVERIFY2(QTest::qWaitFor([&] { return bool(condition); }, milliseconds), #condition)
