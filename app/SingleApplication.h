#pragma once

#include <QApplication>
#include <QByteArray>
#include <QFlags>
#include <QString>

#include <memory>

class SingleApplicationPrivate;

/// The application object, and the guard that lets one copy of the program be the primary.
///
/// All processes with the same instance key meet in a small shared memory block. The first one
/// becomes the primary and listens on a local server; a later one becomes a secondary, or ends when
/// secondaries are not allowed, and can send messages to the primary. Main thread only.
class SingleApplication : public QApplication
{
    Q_OBJECT
public:
    enum Option {
        PerUser = 1,           ///< each user has a primary, which hears that user only
        NotifyOnSecondary = 4, ///< starting secondaries announce themselves
        IgnoreAppVersion = 8,  ///< all versions share one primary
        IgnoreAppPath = 16     ///< copies in different folders share one primary
    };
    Q_DECLARE_FLAGS(Options, Option)

    /// Takes a role. Blocks for some ten milliseconds, for up to \a timeoutMs more when the primary
    /// does not answer, and for 5 s when the shared block was left inconsistent. Ends the process
    /// with 1 when the shared block can't be used, and with 0 when a primary runs and
    /// \a secondaryAllowed is false. \a keyData is extra text for the instance key.
    SingleApplication(int &argc, char *argv[], bool secondaryAllowed, Options options,
                      int timeoutMs, QString keyData);
    /// Gives up the primary role.
    ~SingleApplication() override;

    bool isSecondaryInstance() const;

    /// Sends \a message to the primary and blocks until it is written. False in the primary, and
    /// when the connection or the writing takes longer than \a timeout ms each.
    bool sendToPrimary(QByteArray message, int timeout);

    /// Process id of the primary, -1 when there is none.
    qint64 primaryProcessId() const;
    QString primaryUserName() const;

signals:
    /// Another process started: a secondary when NotifyOnSecondary is set, or one that ends at
    /// once. Comes in the primary only.
    void instanceStarted();
    /// Bytes from the secondary \a instanceId, in the pieces in which they arrive. Comes in the
    /// primary only.
    void receivedMessage(uint instanceId, QByteArray message);

private:
    friend class SingleApplicationPrivate;

    [[noreturn]] void endProcess(int exitCode);

    std::unique_ptr<SingleApplicationPrivate> d;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(SingleApplication::Options)
