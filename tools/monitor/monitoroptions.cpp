#include "tools/monitor/monitoroptions.h"

#include <QCommandLineParser>

namespace {

constexpr double kLongestSeconds = 2e6; // that a timer can count

struct Parser {
    QCommandLineParser parser;
    const QCommandLineOption help {{QStringLiteral("h"), QStringLiteral("help")}};
    const QCommandLineOption version {{QStringLiteral("v"), QStringLiteral("version")}};
    const QCommandLineOption text {QStringLiteral("text")};
    const QCommandLineOption stats {QStringLiteral("stats")};
    const QCommandLineOption seconds {QStringLiteral("seconds"), {}, QStringLiteral("N")};
    const QCommandLineOption record {QStringLiteral("record"), {}, QStringLiteral("FILE")};
    const QCommandLineOption png {QStringLiteral("png"), {}, QStringLiteral("FILE")};

    Parser() { parser.addOptions({help, version, text, stats, seconds, record, png}); }
};

MonitorOptions wrong(const QString &error)
{
    MonitorOptions options;
    options.request = MonitorOptions::Wrong;
    options.error = error;
    return options;
}

} // namespace

MonitorOptions MonitorOptions::read(const QStringList &arguments)
{
    Parser all;
    QCommandLineParser &parser = all.parser;
    if (!parser.parse(arguments))
        return wrong(parser.errorText());

    MonitorOptions options;
    if (parser.isSet(all.help)) {
        options.request = Help;
        return options;
    }
    if (parser.isSet(all.version)) {
        options.request = Version;
        return options;
    }
    if (!parser.positionalArguments().isEmpty())
        return wrong(
            QStringLiteral("unexpected argument: %1").arg(parser.positionalArguments().first()));
    options.text = parser.isSet(all.text);
    options.stats = parser.isSet(all.stats);
    options.recordFile = parser.value(all.record);
    options.pngFile = parser.value(all.png);
    if (parser.isSet(all.record) && options.recordFile.isEmpty())
        return wrong(QStringLiteral("--record needs a file name"));
    if (parser.isSet(all.png) && options.pngFile.isEmpty())
        return wrong(QStringLiteral("--png needs a file name"));
    if (options.text && !options.pngFile.isEmpty())
        return wrong(QStringLiteral("--png is a picture of the window: not together with --text"));
    if (parser.isSet(all.seconds)) {
        bool ok = false;
        options.seconds = parser.value(all.seconds).toDouble(&ok);
        if (!ok || !(options.seconds > 0 && options.seconds < kLongestSeconds))
            return wrong(QStringLiteral("--seconds needs a number above 0"));
    }
    return options;
}

QString MonitorOptions::help()
{
    return QStringLiteral(
        "usage: tonewell-monitor [options]\n"
        "\n"
        "Shows the live sound spectrum that TonewellDetection publishes: in a window where there\n"
        "is a display, else in the terminal. Waits for the service if it is not there, and comes\n"
        "back when the service does.\n"
        "\n"
        "  --text         draw in the terminal; plain lines where output is none\n"
        "  --seconds N    end after N seconds\n"
        "  --record FILE  write every message to FILE, one JSON object a line\n"
        "  --png FILE     save one picture and end: after --seconds, else two seconds after\n"
        "                 the first message; needs no display\n"
        "  --stats        at the end, print the rate, gaps and bad messages\n"
        "  -h, --help     print this\n"
        "  -v, --version  print the version\n"
        "\n"
        "Exit codes: 0 messages had come, 1 wrong options, 2 no message had come,\n"
        "3 a file or standard output could not be written.\n");
}
