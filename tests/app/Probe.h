#pragma once

#include "UserName.h"

#include <QProcess>
#include <QTest>

#include <algorithm>
#include <csignal>

constexpr int kPatienceMs = 60000;
const QString kProbe = QStringLiteral(PROBE_PATH);

#define EVENTUALLY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, kPatienceMs)

/// A process that runs the guard, see InstanceProbe.cpp.
struct Probe : QProcess {
    explicit Probe(const QStringList &arguments = {}, const QString &program = kProbe)
    {
        start(program, arguments);
    }
    ~Probe() override { crash(); }

    bool runs() const { return state() != NotRunning; }
    void crash()
    {
        kill();
        waitForFinished();
    }
    /// The exit code, -1 for a crash.
    int result()
    {
        if (runs())
            waitForFinished(kPatienceMs);
        return !runs() && exitStatus() == NormalExit ? exitCode() : -1;
    }
    void tell(const QByteArray &line) { write(line + '\n'); }
    int quit()
    {
        tell("quit");
        return result();
    }

    QList<QByteArray> lines()
    {
        output += readAllStandardOutput();
        return output.split('\n').mid(0, output.count('\n'));
    }
    bool has(const QByteArray &line) { return lines().contains(line); }
    bool isPrimary() { return has("primary " + identity()); }
    bool isSecondaryOf(const QByteArray &primary) { return has("secondary " + primary); }
    QByteArray identity() const
    {
        return QByteArray::number(processId()) + ' ' + QByteArray::fromStdString(currentUserName());
    }

    QByteArray output;
};
