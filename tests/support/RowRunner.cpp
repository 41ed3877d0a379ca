#include "RowRunner.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <filesystem>
#include <memory>
#include <vector>

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

/// A row that runs: the program under another name in a folder of its own.
struct Row {
    explicit Row(const QString &program) : folder(QFileInfo(program).path() + "/row-XXXXXX")
    {
        const QString copy = folder.filePath(QFileInfo(program).fileName());
        std::filesystem::create_hard_link(program.toStdWString(), copy.toStdWString());
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setProgram(copy);
    }

    QTemporaryDir folder;
    QProcess process;
    QString name;
};

bool passes(Row &row)
{
    const bool passed =
        row.process.exitStatus() == QProcess::NormalExit && row.process.exitCode() == 0;
    printf("%s: %s\n", passed ? "PASS" : "FAIL", qPrintable(row.name));
    if (!passed)
        printf("%s\n", row.process.readAll().constData());
    fflush(stdout);
    return passed;
}
} // namespace

int runEachRowAlone(int argc, char *argv[], const char *function, QObject *test)
{
    if (argc > 1)
        return QTest::qExec(test, argc, argv);

    const QString program = QCoreApplication::applicationFilePath();
    const QStringList rows = rowsOf(program, QString::fromLatin1(function));
    // Most of the time a row waits.
    const auto atATime = size_t(QThread::idealThreadCount()) * 2 + 2;
    std::vector<std::unique_ptr<Row>> running;
    int failed = rows.isEmpty() ? 1 : 0, next = 0;
    while (next < rows.size() || !running.empty()) {
        while (next < rows.size() && running.size() < atATime) {
            running.push_back(std::make_unique<Row>(program));
            running.back()->name = rows[next++];
            running.back()->process.setArguments({function + (':' + running.back()->name)});
            running.back()->process.start();
        }
        for (size_t i = 0; i < running.size(); ++i) {
            if (!running[i]->process.waitForFinished(10))
                continue;
            failed += passes(*running[i]) ? 0 : 1;
            running.erase(running.begin() + long(i--));
        }
    }
    printf("%d rows, %d failed\n", int(rows.size()), failed);
    return failed ? 1 : 0;
}
