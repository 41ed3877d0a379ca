#pragma once

#include "UserName.h"
#include "WaitFor.h"

#include <QProcess>
#include <QtTest>

#include <memory>

#define EVENTUALLY(condition) WAIT_FOR_MS(condition, kPatienceMs)

constexpr int kPatienceMs = 60000;
const QString kProgram = QStringLiteral(PROBE_PATH);
using Lines = QByteArrayList;

inline QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

/// A process that runs the guard, see InstanceProbe.cpp.
struct Probe : QProcess {
    explicit Probe(const char *arguments = "", const QString &program = kProgram)
    {
        start(program, words(arguments));
    }
    ~Probe() override { quit(); }

    bool runs() const { return state() != NotRunning; }
    void crash()
    {
        kill();
        waitForFinished();
    }
    /// Ends with its input. The exit code, -1 for a crash.
    int quit(const QByteArray &farewell = "quit\n")
    {
        write(farewell);
        closeWriteChannel();
        waitForFinished(kPatienceMs);
        return !runs() && exitStatus() == NormalExit ? exitCode() : -1;
    }
    Lines lines()
    {
        output += readAllStandardOutput();
        return output.split('\n').mid(0, output.count('\n'));
    }
    bool has(const QByteArray &line) { return lines().contains(line); }
    bool isPrimary() { return has("primary " + identity()); }
    QByteArray identity() const
    {
        return QByteArray::number(processId()) + ' ' + QByteArray::fromStdString(currentUserName());
    }

    QByteArray output;
};

using ProbePtr = std::unique_ptr<Probe>;

inline ProbePtr startPrimary(const char *arguments = "", const QString &program = kProgram)
{
    auto probe = std::make_unique<Probe>(arguments, program);
    if (!QTest::qWaitFor([&] { return probe->isPrimary(); }, kPatienceMs))
        qWarning() << "No primary:" << probe->output << probe->readAllStandardError();
    return probe;
}
