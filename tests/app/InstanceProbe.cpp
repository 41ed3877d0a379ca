// Stands in for the program in the tests of the single-instance guard: takes a role, reports on the
// standard output and obeys the standard input.

#include "SingleApplication.h"

#include <QSocketNotifier>

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
    const bool sent = application.sendToPrimary(QByteArray::fromStdString(line), 10000);
    say(sent ? "sent" : "not sent");
}

int main(int argc, char *argv[])
{
    const QByteArrayList arguments(argv + 1, argv + argc);
    const auto valueOf = [&](const char *name) {
        return QString::fromLocal8Bit(arguments.value(arguments.indexOf(name) + 1));
    };
    if (arguments.contains("version"))
        QCoreApplication::setApplicationVersion(valueOf("version"));
    const SingleApplication::Options options(
        arguments.contains("options") ? valueOf("options").toInt() : 4);
    SingleApplication application(argc, argv, !arguments.contains("alone"), options, 1000,
                                  arguments.contains("key") ? valueOf("key") : QString());
    say((application.isSecondaryInstance() ? "secondary " : "primary ") +
        QByteArray::number(application.primaryProcessId()) + ' ' +
        application.primaryUserName().toUtf8());
    if (arguments.contains("handover") && application.isSecondaryInstance())
        return application.sendToPrimary("hello", 10000) ? EXIT_SUCCESS : EXIT_FAILURE;

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
