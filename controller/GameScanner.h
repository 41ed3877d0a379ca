#pragma once

#include "ErrorCode.h"

#include <QObject>
#include <QString>

/// Finds the game folder in the game's own registration. Lives on the worker thread.
class GameScanner : public QObject
{
    Q_OBJECT
public:
    explicit GameScanner(QObject *parent = nullptr);

public slots:
    /// Searches once; answered by exactly one resultReady.
    void ScanGame();

signals:
    /// The folder as the installer stored it, unchecked, with SUCCESS; else an empty path with
    /// REGE_KEY_NOTFOUND (not registered) or REG_READ_FAILED (gone between two reads).
    void resultReady(QString strPath, EC::ErrorCode ec);
};
