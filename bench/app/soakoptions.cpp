#include "soakoptions.h"

#include <QCommandLineParser>
#include <QStringList>

SoakOptions ParseSoakOptions(QCoreApplication const &application)
{
    QCommandLineParser parser;
    struct
    {
        char const *name, *help, *value;
    } const known[] = {
        {"minutes", "of the run", "120"},
        {"warmup", "minutes before memory is looked at, at most a quarter of the run", "10"},
        {"deaths", "of the camera", "20"},
        {"share", "percent of the rate that the machine can take", "60"},
        {"capacity", "that rate in frames a second; 0: found out", "0"},
        {"loss", "percent of the packets", "0.2"},
        {"size", "of the frames", "1024x768"},
        {"folder", "in which the recordings are made", ""},
    };
    parser.addHelpOption();
    for (auto const &option : known)
        parser.addOption({QString::fromLatin1(option.name), QString::fromLatin1(option.help),
                          QString::fromLatin1(option.name).toUpper(), QString::fromLatin1(option.value)});
    parser.process(application);
    auto const number = [&](char const *name) {
        return parser.value(QString::fromLatin1(name)).toDouble();
    };
    SoakOptions options;
    options.minutes = number("minutes");
    options.warmup = number("warmup");
    options.share = number("share");
    options.capacity = number("capacity");
    options.loss = number("loss");
    options.deaths = static_cast<int>(number("deaths"));
    QStringList const size = parser.value(QStringLiteral("size")).split(QLatin1Char('x'));
    options.width = size.value(0).toInt();
    options.height = size.value(1).toInt();
    options.folder = parser.value(QStringLiteral("folder"));
    return options;
}
