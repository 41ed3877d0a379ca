// Stands in for the program in the tests of the single-instance guard: takes a role, reports on the
// standard output and obeys the standard input.

#include "SingleApplication.h"

#include <QSharedMemory>
#include <QSocketNotifier>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

namespace
{
void say(const QByteArray &line)
{
    std::puts(line.constData());
    std::fflush(stdout);
}

void obey(SingleApplication &application)
{
    std::string line;
    if (!std::getline(std::cin, line) || line == "quit")
        return application.quit();
    if (line == "exit")
        std::exit(EXIT_SUCCESS);
    if (line.rfind("send ", 0) == 0)
        say(application.sendToPrimary(QByteArray::fromStdString(line.substr(5)), 10000)
                ? "sent"
                : "not sent");
}

/// Holds the lock of another instance's block until it is killed.
int holdLock(const QString &key)
{
    QSharedMemory block(key);
    say(block.attach() && block.lock() ? "locked" : block.errorString().toUtf8());
    return std::getchar();
}
} // namespace

int main(int argc, char *argv[])
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    const auto has = [&](const char *name) { return arguments.contains(QLatin1String(name)); };
    const auto valueOf = [&](const char *name) {
        return has(name) ? arguments.value(arguments.indexOf(QLatin1String(name)) + 1) : QString();
    };
    // Otherwise lines would wait in a buffer that the notifier below knows nothing of.
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    if (has("hold-lock"))
        return holdLock(valueOf("hold-lock"));

    QCoreApplication::setApplicationVersion(valueOf("version"));
    const int options = has("options") ? valueOf("options").toInt() : 4;
    SingleApplication application(argc, argv, !has("alone"), SingleApplication::Options(options),
                                  1000, valueOf("key"));
    say((application.isSecondaryInstance() ? "secondary " : "primary ") +
        QByteArray::number(application.primaryProcessId()) + ' ' +
        application.primaryUserName().toUtf8());
    if (has("handover") && application.isSecondaryInstance())
        return application.sendToPrimary("hello", 10000) ? EXIT_SUCCESS : EXIT_FAILURE;

    QObject::connect(&application, &SingleApplication::instanceStarted, [] { say("started"); });
    QObject::connect(&application, &SingleApplication::receivedMessage,
                     [](uint id, const QByteArray &message) {
                         say("message " + QByteArray::number(id) + ' ' + message.toHex());
                     });
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] { obey(application); });
    return application.exec();
}
