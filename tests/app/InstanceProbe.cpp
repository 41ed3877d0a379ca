// Stands in for the program in the tests of the single-instance guard: takes a role, reports on the
// standard output and obeys the standard input. Arguments: options, version, key data, and "alone"
// for one that must not stay as a secondary.

#include "SingleApplication.h"

#include <QSocketNotifier>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

static void say(const QByteArray &line)
{
    std::puts(line.constData());
    std::fflush(stdout);
}

static void obey(SingleApplication &application)
{
    std::string line;
    if (!std::getline(std::cin, line) || line == "quit")
        return application.quit();
    if (line == "exit")
        std::exit(EXIT_SUCCESS);
    if (line == "timers") { // as if hours had passed
        for (QTimer *timer : application.findChildren<QTimer *>())
            QMetaObject::invokeMethod(timer, "timeout");
        return;
    }
    const bool sent = application.sendToPrimary(QByteArray::fromStdString(line), 10000);
    say(sent ? "sent" : "not sent");
}

int main(int argc, char *argv[])
{
    const QByteArrayList arguments(argv + 1, argv + argc);
    QCoreApplication::setApplicationVersion(arguments.value(1));
    SingleApplication application(argc, argv, arguments.value(3) != "alone",
                                  SingleApplication::Options(arguments.value(0, "4").toInt()), 1000,
                                  arguments.value(2));
    say((application.isSecondaryInstance() ? "secondary " : "primary ") +
        QByteArray::number(application.primaryProcessId()) + ' ' +
        application.primaryUserName().toUtf8());

    QObject::connect(&application, &SingleApplication::instanceStarted, [] { say("started"); });
    QObject::connect(&application, &SingleApplication::receivedMessage,
                     [](uint id, const QByteArray &message) {
                         say("message " + QByteArray::number(id) + ' ' + message.toHex());
                     });
    // Otherwise lines would wait in a buffer that the notifier knows nothing of.
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] { obey(application); });
    return application.exec();
}
