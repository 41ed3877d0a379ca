#include "TerminationSignal.h"

#include <QtTest>

#include <csignal>
#include <optional>

namespace
{
auto handlerOf(int signal)
{
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler;
}
} // namespace

class tst_TerminationSignal : public QObject
{
    Q_OBJECT
private slots:
    void asksOnce();
};

void tst_TerminationSignal::asksOnce()
{
    signal(SIGHUP, SIG_IGN);
    int asked = 0;
    std::optional<TerminationSignal> termination([&asked] { ++asked; });
    QVERIFY(handlerOf(SIGHUP) == SIG_IGN); // as under "nohup"
    signal(SIGHUP, SIG_DFL);
    termination.emplace([&asked] { ++asked; });
    raise(SIGINT);
    QCOMPARE(asked, 0);
    QTRY_COMPARE(asked, 1);

    // The process has to get to its end, unless somebody types the keys again.
    for (const int signal : {SIGTERM, SIGHUP})
        raise(signal);
    QCoreApplication::processEvents();
    QCOMPARE(asked, 1);
    QVERIFY(handlerOf(SIGINT) == SIG_DFL);
    termination.reset();
    raise(SIGHUP);
}

QTEST_GUILESS_MAIN(tst_TerminationSignal)
#include "tst_terminationsignal.moc"
