#include "Interruption.h"
#include "PublishOptions.h"
#include "Publisher.h"

#include <QCoreApplication>
#include <QTextCodec>

#include <cstdio>

namespace
{
constexpr int Failure = 1;
constexpr int WrongUsage = 2;

void print(std::FILE *stream, const QString &text)
{
    std::fprintf(stream, "%s\n", text.toLocal8Bit().constData());
}

/// Whatever the names in it are made of.
QString oneLine(QString text)
{
    for (QChar &c : text) {
        if (c.category() == QChar::Other_Control)
            c = QLatin1Char('?');
    }
    return text;
}

int complain(int exitCode, const QString &text)
{
    print(stderr, QStringLiteral("brekka-publish: %1").arg(oneLine(text)));
    return exitCode;
}
} // namespace

int main(int argc, char *argv[])
{
    // As in the program that unpacks: names are UTF-8 whatever the locale says.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    const QCoreApplication app(argc, argv);

    PublishOptions options;
    if (!options.parse(QCoreApplication::arguments()))
        return complain(WrongUsage,
                        options.errorString() + QStringLiteral(" Try brekka-publish --help."));
    if (options.action() == PublishOptions::Action::Help) {
        print(stdout, options.helpText());
        return 0;
    }

    Interruption::watch();
    Publisher publisher(options);
    const bool done = publisher.run();
    for (const QString &line : publisher.report())
        print(stdout, oneLine(line));
    return done ? 0 : complain(Failure, publisher.errorString());
}
