#include "RowRunner.h"

#include <QCoreApplication>
#include <QProcess>
#include <QStringList>
#include <QtTest>

namespace
{
QStringList rowsOf(const QString &program, const QString &function)
{
    QProcess list;
    list.start(program, {QStringLiteral("-datatags")});
    list.waitForFinished(-1);
    QStringList rows;
    // Windows ends lines with two characters.
    const QString text = QString::fromUtf8(list.readAllStandardOutput()).remove('\r');
    const QStringList lines = text.split('\n');
    for (const QString &line : lines) {
        // Each line is "class function row".
        if (line.section(' ', 1, 1) == function && !line.section(' ', 2).isEmpty())
            rows += line.section(' ', 2);
    }
    return rows;
}
} // namespace

int runEachRowAlone(int argc, char *argv[], const char *function, QObject *test)
{
    if (argc > 1)
        return QTest::qExec(test, argc, argv);

    const QString program = QString::fromLocal8Bit(argv[0]);
    const QStringList rows = rowsOf(program, QString::fromLatin1(function));
    int failed = rows.isEmpty() ? 1 : 0;
    for (const QString &row : rows) {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, {QString::fromLatin1(function) + ':' + row});
        process.waitForFinished(-1);
        const bool passed = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
        printf("%s: %s\n", passed ? "PASS" : "FAIL", qPrintable(row));
        if (!passed) {
            ++failed;
            printf("%s\n", process.readAll().constData());
        }
        fflush(stdout);
    }
    printf("%d rows, %d failed\n", int(rows.size()), failed);
    return failed ? 1 : 0;
}
