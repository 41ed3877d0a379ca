#pragma once

#include "SingleApplication.h"
#include "UserName.h"

#include <QtTest>

#include <iostream>
#include <memory>

/// Milliseconds. What follows a failure makes no sense any more, so it need not take long.
inline int patience()
{
    return QTest::currentTestFailed() ? 100 : 60000;
}

inline void obey(SingleApplication &application)
{
    std::string line;
    if (!std::getline(std::cin, line))
        return application.quit();
    if (line == "exit")
        std::exit(EXIT_SUCCESS);
    if (line == "timers") { // as if hours had passed
        for (QTimer *timer : application.findChildren<QTimer *>())
            QMetaObject::invokeMethod(timer, "timeout");
        return;
    }
    const bool sent = application.sendToPrimary(QByteArray::fromStdString(line), 10000);
    std::cout << (sent ? "sent" : "not sent") << std::endl;
}

/// Stands in for the program: takes a role, reports on the standard output and obeys the standard
/// input. Arguments: options, version, key data, and "alone" for one that must not stay.
inline int runProbe(int argc, char *argv[])
{
    const QByteArrayList arguments(argv + 1, argv + argc);
    QCoreApplication::setApplicationVersion(arguments.value(1));
    SingleApplication application(argc, argv, arguments.value(3) != "alone",
                                  SingleApplication::Options(arguments.value(0).toInt()), 1000,
                                  arguments.value(2));
    std::cout << (application.isSecondaryInstance() ? "secondary " : "primary ")
              << application.primaryProcessId() << ' ' << qPrintable(application.primaryUserName())
              << std::endl;
    QObject::connect(&application, &SingleApplication::instanceStarted,
                     [] { std::cout << "started" << std::endl; });
    QObject::connect(&application, &SingleApplication::receivedMessage,
                     [](uint id, const QByteArray &message) {
                         std::cout << "message " << id << ' ' << message.data() << std::endl;
                     });
    // Otherwise lines would wait in a buffer that the notifier knows nothing of.
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &input, [&] { obey(application); });
    return application.exec();
}

/// A process that runs the guard.
struct Probe : QProcess {
    explicit Probe(const QString &arguments = "4")
    {
        start(QCoreApplication::applicationFilePath(), arguments.split(' '));
    }
    ~Probe() override { quit(); }

    /// Ends with its input. The exit code, -1 for a crash.
    int quit(const QByteArray &farewell = {})
    {
        write(farewell);
        closeWriteChannel();
        waitForFinished(patience());
        std::cerr << readErrors().constData(); // a sanitizer's report may be in it
        errors.clear();
        return state() == NotRunning && exitStatus() == NormalExit ? exitCode() : -1;
    }
    QByteArray readErrors() { return errors += readAllStandardError(); }
    QByteArrayList lines()
    {
        output += readAllStandardOutput();
        return output.split('\n').mid(0, output.count('\n'));
    }
    bool has(const QByteArray &line) { return lines().contains(line); }
    bool isPrimary() { return has("primary " + identity()); }
    QByteArray identity() const
    {
        return QByteArray::number(processId()) + ' ' + QByteArray::fromStdString(currentUserName());
    }

    QByteArray output;
    QByteArray errors;
};
using ProbePtr = std::unique_ptr<Probe>;

inline ProbePtr startPrimary(const QString &arguments = "4")
{
    auto probe = std::make_unique<Probe>(arguments);
    probe->waitForReadyRead(patience());
    QTest::qVerify(probe->isPrimary(), "primary", probe->readErrors(), __FILE__, __LINE__);
    return probe;
}
