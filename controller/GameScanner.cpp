#include "GameScanner.h"

#include "GameRegistration.h"

GameScanner::GameScanner(QObject *parent) : QObject(parent) {}

void GameScanner::ScanGame()
{
    const GameRegistration registration;
    if (registration.installLocation().isNull()) {
        emit resultReady(QString(), EC::REGE_KEY_NOTFOUND);
        return;
    }
    const QVariant location = registration.installLocation();
    if (location.isNull())
        emit resultReady(QString(), EC::REG_READ_FAILED);
    else
        emit resultReady(location.toString(), EC::SUCCESS);
}
