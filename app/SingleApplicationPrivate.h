#pragma once

#include "BlockGate.h"
#include "Greeting.h"
#include "MeetingPlace.h"
#include "SharedBlock.h"
#include "SingleApplication.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

class QDeadlineTimer;
class QLocalServer;
class QLocalSocket;
class QSharedMemory;

/// State and work of SingleApplication: the shared block, the primary's server with its
/// connections, and the secondary's connection to it.
class SingleApplicationPrivate : public QObject
{
    Q_OBJECT
public:
    enum class Stage { AwaitHeader = 0, AwaitBody = 1, Established = 2 };

    /// What the primary knows about one accepted socket.
    struct Connection {
        quint64 greetingLength = 0;
        quint32 instanceId = 0;
        Stage stage = Stage::AwaitHeader;
    };

    explicit SingleApplicationPrivate(SingleApplication *application);
    /// Leaves the role and lets go of the block, which needs the block's lock.
    ~SingleApplicationPrivate() override;

    void appendKeyData(const QString &text);
    void deriveInstanceKey();
    void pauseRandomly();

    /// Creates the block or attaches to it and locks it; ends the process with 1 when it can't.
    void openBlock();
    /// Gives a process that is just writing the block 5 s to finish, then takes the block over.
    /// The lock is held before and after.
    void awaitConsistentBlock();
    /// Becomes the primary, or a secondary if that is allowed, and releases the lock. False when
    /// there is no role for this process.
    bool takeRole(bool secondaryAllowed, int timeoutMs);

    /// Connects and greets; reuses a connection that stands. False after \a timeout ms.
    bool connectToPrimaryInstance(int timeout, ConnectionKind kind);
    /// Writes \a bytes on the standing connection. False when that takes until after \a deadline.
    bool writeToPrimary(const QByteArray &bytes, const QDeadlineTimer &deadline);

    bool lockBlock();
    bool unlockBlock();
    SharedBlock *sharedBlock() const;

    SingleApplication *q;
    std::unique_ptr<QSharedMemory> block;
    std::unique_ptr<QLocalSocket> socket;
    std::unique_ptr<QLocalServer> server; ///< in the primary only
    quint32 instanceId = 0;               ///< 0 in the primary and as long as there is no role
    QString instanceKey;
    SingleApplication::Options options;
    QHash<QLocalSocket *, Connection> connections;
    QStringList keyData;

public slots:
    void slotConnectionEstablished();
    void slotDataAvailable(QLocalSocket *peer, uint peerId);
    void slotClientConnectionClosed(QLocalSocket *peer, uint peerId);

private:
    QString currentUserName() const;
    void resetBlock();
    quint16 computeBlockChecksum() const;
    void becomePrimary();
    void becomeSecondary();
    void unlockAfter(const char *occasion);
    [[noreturn]] void abortStartup(const char *reason);

    void readFrom(QLocalSocket *peer);
    void readGreetingHeader(QLocalSocket *peer);
    void readGreetingBody(QLocalSocket *peer);
    void refuse(QLocalSocket *peer);

    std::optional<MeetingPlace> place; ///< known as soon as the instance key is
    std::optional<BlockGate> gate;     ///< every use of the block happens inside
};
