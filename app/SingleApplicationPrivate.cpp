#include "SingleApplicationPrivate.h"

#include "UserName.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDebug>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRandomGenerator>
#include <QSharedMemory>
#include <QTimer>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace
{
constexpr std::chrono::milliseconds ShortestPause(8);
constexpr int PauseSpread = 10; // milliseconds
constexpr std::chrono::seconds InconsistencyLimit(5);
constexpr std::chrono::hours KeepInterval(1);
} // namespace

SingleApplicationPrivate::SingleApplicationPrivate(SingleApplication *application) : q(application)
{
}

SingleApplicationPrivate::~SingleApplicationPrivate()
{
    if (socket) {
        socket->close();
        socket.reset();
    }
    if (!block)
        return;
    lockBlock();
    if (server) {
        server->close();
        // The accepted sockets go with the server and report to the table here.
        server.reset();
        sharedBlock()->clearPrimary();
    }
    // Released inside the gate: the last holder takes the block out of the system.
    block->unlock();
    block.reset();
    gate->leave();
}

void SingleApplicationPrivate::appendKeyData(const QString &text)
{
    keyData.append(text);
}

void SingleApplicationPrivate::deriveInstanceKey()
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData("SingleApplication", 17);
    hash.addData(QCoreApplication::applicationName().toUtf8());
    hash.addData(QCoreApplication::organizationName().toUtf8());
    hash.addData(QCoreApplication::organizationDomain().toUtf8());
    if (!keyData.isEmpty())
        hash.addData(keyData.join(QString()).toUtf8());
    if (!(options & SingleApplication::IgnoreAppVersion))
        hash.addData(QCoreApplication::applicationVersion().toUtf8());
    if (!(options & SingleApplication::IgnoreAppPath))
        hash.addData(QCoreApplication::applicationFilePath().toLower().toUtf8());
    if (options & SingleApplication::PerUser)
        hash.addData(currentUserName().toUtf8());
    // The key becomes a file name on some platforms.
    instanceKey = QString::fromLatin1(hash.result().toBase64().replace('/', '_'));
}

QString SingleApplicationPrivate::currentUserName() const
{
    return QString::fromStdString(::currentUserName());
}

void SingleApplicationPrivate::pauseRandomly()
{
    const std::chrono::milliseconds spread(QRandomGenerator::global()->bounded(PauseSpread));
    std::this_thread::sleep_for(ShortestPause + spread);
}

SharedBlock *SingleApplicationPrivate::sharedBlock() const
{
    return static_cast<SharedBlock *>(block->data());
}

bool SingleApplicationPrivate::lockBlock()
{
    return gate->lock(*block);
}

bool SingleApplicationPrivate::unlockBlock()
{
    return gate->unlock(*block);
}

void SingleApplicationPrivate::resetBlock()
{
    sharedBlock()->reset();
}

quint16 SingleApplicationPrivate::computeBlockChecksum() const
{
    return sharedBlock()->computeChecksum();
}

void SingleApplicationPrivate::openBlock()
{
    constexpr int size = sizeof(SharedBlock);
    place.emplace(instanceKey);
    block = place->makeBlock();
    gate.emplace(block->nativeKey());
    gate->enter();
    gate->makeWay(size);

    if (block->create(size, QSharedMemory::ReadWrite)) {
        if (!lockBlock())
            abortStartup("SingleApplication: Unable to lock memory block after create.");
        resetBlock();
        return;
    }
    if (block->error() != QSharedMemory::AlreadyExists)
        abortStartup("SingleApplication: Unable to create block.");
    // An object with a native key remembers for ever that it failed to create its block.
    block = place->makeBlock();
    // A smaller block is a stranger's that happens to have our key.
    if (!block->attach(QSharedMemory::ReadWrite) || block->size() < size)
        abortStartup("SingleApplication: Unable to attach to shared memory block.");
    if (!lockBlock())
        abortStartup("SingleApplication: Unable to lock memory block after attach.");
}

void SingleApplicationPrivate::awaitConsistentBlock()
{
    const QDeadlineTimer deadline(InconsistencyLimit);
    while (sharedBlock()->checksum != computeBlockChecksum()) {
        if (deadline.hasExpired()) {
            qWarning() << "SingleApplication: Shared memory block has been in an inconsistent "
                          "state from more than 5s. Assuming primary instance failure.";
            resetBlock();
        }
        unlockAfter("SingleApplication: Unable to unlock memory for random wait.");
        pauseRandomly();
        if (!lockBlock())
            abortStartup("SingleApplication: Unable to lock memory after random wait.");
    }
}

bool SingleApplicationPrivate::takeRole(bool secondaryAllowed, int timeoutMs)
{
    if (!sharedBlock()->primaryRunning) {
        becomePrimary();
        unlockAfter("SingleApplication: Unable to unlock memory after primary start.");
        return true;
    }
    if (secondaryAllowed) {
        becomeSecondary();
        if (options & SingleApplication::NotifyOnSecondary)
            connectToPrimaryInstance(timeoutMs, ConnectionKind::StartingSecondary);
        unlockAfter("SingleApplication: Unable to unlock memory after secondary start.");
        return true;
    }
    unlockAfter("SingleApplication: Unable to unlock memory at end of execution.");
    return false;
}

void SingleApplicationPrivate::becomePrimary()
{
    sharedBlock()->setPrimary(QCoreApplication::applicationPid(), currentUserName().toUtf8());
    instanceId = 0;

    // A primary that crashed leaves its socket file behind on some platforms.
    QLocalServer::removeServer(place->serverName());
    server = std::make_unique<QLocalServer>();
    server->setSocketOptions(options & SingleApplication::PerUser
                                 ? QLocalServer::UserAccessOption
                                 : QLocalServer::WorldAccessOption);
    // Later starts wait for an answer that never comes, and raise no window.
    if (!server->listen(place->serverName()))
        qWarning() << "SingleApplication: Unable to listen for later starts:"
                   << server->errorString();
    connect(server.get(), &QLocalServer::newConnection, this,
            &SingleApplicationPrivate::slotConnectionEstablished);

    auto *const timer = new QTimer(q);
    connect(timer, &QTimer::timeout, this, [this] { place->keep(); });
    timer->start(KeepInterval);
}

void SingleApplicationPrivate::becomeSecondary()
{
    instanceId = sharedBlock()->addSecondary();
}

void SingleApplicationPrivate::unlockAfter(const char *occasion)
{
    if (unlockBlock())
        return;
    qDebug() << occasion;
    qDebug() << block->errorString();
}

void SingleApplicationPrivate::abortStartup(const char *reason)
{
    qCritical() << reason;
    qCritical() << "SingleApplication: " << int(block->error()) << block->errorString();
    // Destroys this object.
    q->endProcess(EXIT_FAILURE);
}

bool SingleApplicationPrivate::connectToPrimaryInstance(int timeout, ConnectionKind kind)
{
    const QDeadlineTimer deadline(qMax(0, timeout)); // a negative one would never expire
    if (!socket)
        socket = std::make_unique<QLocalSocket>();
    if (socket->state() == QLocalSocket::ConnectedState)
        return true;

    for (;;) {
        pauseRandomly();
        if (socket->state() != QLocalSocket::ConnectingState)
            socket->connectToServer(place->serverName());
        if (socket->state() == QLocalSocket::ConnectingState)
            socket->waitForConnected(int(deadline.remainingTime()));
        if (socket->state() == QLocalSocket::ConnectedState)
            break;
        if (deadline.hasExpired())
            return false;
    }

    const QByteArray body = Greeting{instanceKey, kind, instanceId}.toBody();
    socket->write(Greeting::toHeader(quint64(body.size())));
    return writeToPrimary(body, deadline);
}

bool SingleApplicationPrivate::writeToPrimary(const QByteArray &bytes,
                                              const QDeadlineTimer &deadline)
{
    socket->write(bytes);
    bool written = false;
    // One wait ends with the first piece that the system takes; a long message has several.
    do
        written = socket->waitForBytesWritten(int(deadline.remainingTime()));
    while (written && socket->bytesToWrite() > 0);
    socket->flush();
    return written;
}

void SingleApplicationPrivate::slotConnectionEstablished()
{
    QLocalSocket *peer = server->nextPendingConnection();
    if (!peer)
        return;
    connections.insert(peer, Connection());

    connect(peer, &QLocalSocket::aboutToClose, this, [this, peer] {
        const Connection connection = connections.value(peer);
        // What came without a complete greeting is nobody's message.
        if (connection.stage != Stage::Established)
            peer->readAll();
        slotClientConnectionClosed(peer, connection.instanceId);
    });
    connect(peer, &QLocalSocket::disconnected, peer, &QLocalSocket::deleteLater);
    connect(peer, &QLocalSocket::destroyed, this, [this, peer] { connections.remove(peer); });
    connect(peer, &QLocalSocket::readyRead, this, [this, peer] { readFrom(peer); });
}

void SingleApplicationPrivate::readFrom(QLocalSocket *peer)
{
    const auto connection = connections.constFind(peer);
    if (connection == connections.constEnd())
        return;
    switch (connection->stage) {
    case Stage::AwaitHeader:
        return readGreetingHeader(peer);
    case Stage::AwaitBody:
        return readGreetingBody(peer);
    case Stage::Established:
        return slotDataAvailable(peer, connection->instanceId);
    }
}

void SingleApplicationPrivate::readGreetingHeader(QLocalSocket *peer)
{
    if (peer->bytesAvailable() < Greeting::HeaderSize)
        return;
    const quint64 length = Greeting::fromHeader(peer->read(Greeting::HeaderSize));
    // Waiting for such a body would let any process fill our memory.
    if (!Greeting::canHaveLength(length, instanceKey))
        return refuse(peer);
    Connection &connection = connections[peer];
    connection.greetingLength = length;
    connection.stage = Stage::AwaitBody;
    if (quint64(peer->bytesAvailable()) >= length)
        readGreetingBody(peer);
}

void SingleApplicationPrivate::readGreetingBody(QLocalSocket *peer)
{
    const auto connection = connections.find(peer);
    if (connection == connections.end() ||
        quint64(peer->bytesAvailable()) < connection->greetingLength)
        return;

    const auto greeting = Greeting::fromBody(peer->read(qint64(connection->greetingLength)));
    if (!greeting || greeting->key != instanceKey)
        return refuse(peer);
    connection->instanceId = greeting->instanceId;
    connection->stage = Stage::Established;

    if (greeting->kind == ConnectionKind::ExitingInstance ||
        (greeting->kind == ConnectionKind::StartingSecondary &&
         options & SingleApplication::NotifyOnSecondary))
        emit q->instanceStarted();
    if (peer->bytesAvailable() > 0)
        slotDataAvailable(peer, greeting->instanceId);
}

void SingleApplicationPrivate::refuse(QLocalSocket *peer)
{
    // Closing would hand the bytes behind a bad greeting on as a message.
    peer->readAll();
    peer->close();
}

void SingleApplicationPrivate::slotDataAvailable(QLocalSocket *peer, uint peerId)
{
    emit q->receivedMessage(peerId, peer->readAll());
}

void SingleApplicationPrivate::slotClientConnectionClosed(QLocalSocket *peer, uint peerId)
{
    if (peer->bytesAvailable() > 0)
        emit q->receivedMessage(peerId, peer->readAll());
}
