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

int complain(int exitCode, QString text)
{
    // One line, whatever the names in it are made of.
    for (QChar &c : text) {
        if (c.category() == QChar::Other_Control)
            c = QLatin1Char('?');
    }
    print(stderr, QStringLiteral("brekka-publish: %1").arg(text));
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
    if (options.helpRequested()) {
        print(stdout, options.helpText());
        return 0;
    }

    Interruption::watch();
    Publisher publisher(options);
    if (!publisher.run())
        return complain(Failure, publisher.errorString());
    print(stdout, publisher.summary());
    return 0;
}
