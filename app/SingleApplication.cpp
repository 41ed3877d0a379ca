#include "SingleApplication.h"

#include "SingleApplicationPrivate.h"

#include <QDeadlineTimer>

#include <cstdlib>

SingleApplication::SingleApplication(int &argc, char *argv[], bool secondaryAllowed,
                                     Options options, int timeoutMs, QString keyData)
    : QApplication(argc, argv), d(std::make_unique<SingleApplicationPrivate>(this))
{
    // The command-line parser ends the process without unwinding to this object's owner.
    std::atexit([] {
        if (auto *application = qobject_cast<SingleApplication *>(QCoreApplication::instance()))
            application->d.reset();
    });

    d->options = options;
    if (!keyData.isEmpty())
        d->appendKeyData(keyData);
    d->deriveInstanceKey();
    // Spreads processes that start at the same moment.
    d->pauseRandomly();

    d->openBlock();
    d->awaitConsistentBlock();
    if (d->takeRole(secondaryAllowed, timeoutMs))
        return;
    d->connectToPrimaryInstance(timeoutMs, ConnectionKind::ExitingInstance);
    endProcess(EXIT_SUCCESS);
}

SingleApplication::~SingleApplication() = default;

bool SingleApplication::isSecondaryInstance() const
{
    return !d->server;
}

bool SingleApplication::sendToPrimary(QByteArray message, int timeout)
{
    if (!isSecondaryInstance())
        return false;
    return d->connectToPrimaryInstance(timeout, ConnectionKind::MessageSender) &&
           d->writeToPrimary(message, QDeadlineTimer(timeout));
}

qint64 SingleApplication::primaryProcessId() const
{
    d->lockBlock();
    const qint64 processId = d->sharedBlock()->primaryProcessId;
    d->unlockBlock();
    return processId;
}

QString SingleApplication::primaryUserName() const
{
    d->lockBlock();
    const QString userName = d->sharedBlock()->userName();
    d->unlockBlock();
    return userName;
}

void SingleApplication::endProcess(int exitCode)
{
    d.reset();
    std::exit(exitCode);
}
