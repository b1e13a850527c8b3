#include "tools/monitor/monitoroptions.h"

#include "tools/monitor/terminaltext.h"

#include <QCommandLineParser>

namespace {

constexpr double kLongestSeconds = 2e6; // that a timer can count
constexpr int kColumns = 78; // of the help
constexpr int kOptionColumns = 15;

struct Parser {
    QCommandLineParser parser;
    const QCommandLineOption help {QStringList {QStringLiteral("h"), QStringLiteral("help")}};
    const QCommandLineOption version {QStringList {QStringLiteral("v"), QStringLiteral("version")}};
    const QCommandLineOption text {QStringLiteral("text")};
    const QCommandLineOption json {QStringLiteral("json")};
    const QCommandLineOption stats {QStringLiteral("stats")};
    const QCommandLineOption seconds {QStringLiteral("seconds"), {}, QStringLiteral("N")};
    const QCommandLineOption record {QStringLiteral("record"), {}, QStringLiteral("FILE")};
    const QCommandLineOption png {QStringLiteral("png"), {}, QStringLiteral("FILE")};

    Parser() { parser.addOptions({help, version, text, json, stats, seconds, record, png}); }
};

MonitorOptions wrong(const QString &error)
{
    MonitorOptions options;
    options.request = MonitorOptions::Wrong;
    options.error = error;
    return options;
}

/// In lines, and an empty one behind it.
QString paragraph(const QString &text)
{
    return wrappedToColumns(text, kColumns).join(QLatin1Char('\n')) + QStringLiteral("\n\n");
}

} // namespace

MonitorOptions MonitorOptions::read(const QStringList &arguments)
{
    Parser all;
    QCommandLineParser &parser = all.parser;
    if (!parser.parse(arguments)) {
        QString error = parser.errorText(); // a sentence, which goes on
        while (error.endsWith(QLatin1Char('.')) || error.endsWith(QChar(0x3002)))
            error.chop(1);
        return wrong(error);
    }

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
        return wrong(tr("unexpected argument: %1").arg(parser.positionalArguments().first()));
    options.text = parser.isSet(all.text);
    options.stats = parser.isSet(all.stats);
    options.recordFile = parser.value(all.record);
    options.pngFile = parser.value(all.png);
    if (parser.isSet(all.record) && options.recordFile.isEmpty())
        return wrong(tr("--record needs a file name"));
    if (parser.isSet(all.png) && options.pngFile.isEmpty())
        return wrong(tr("--png needs a file name"));
    if (parser.isSet(all.json) && !parser.isSet(all.record))
        options.recordFile = QStringLiteral("-");
    options.json = options.recordFile == QStringLiteral("-");
    if (parser.isSet(all.json) && !options.json)
        return wrong(tr("--json is the same as --record -: not together with another --record"));
    if (options.json && (options.text || !options.pngFile.isEmpty()))
        return wrong(tr("--json shows nothing: not together with --text or --png"));
    if (options.text && !options.pngFile.isEmpty())
        return wrong(tr("--png is a picture of the window: not together with --text"));
    if (parser.isSet(all.seconds)) {
        bool ok = false;
        options.seconds = parser.value(all.seconds).toDouble(&ok);
        if (!ok || !(options.seconds > 0 && options.seconds < kLongestSeconds))
            return wrong(tr("--seconds needs a number above 0"));
    }
    return options;
}

QString MonitorOptions::help()
{
    const struct {
        const char *option;
        QString text;
    } rows[] = {
        {"--text", tr("draw in the terminal; plain lines where output is none")},
        {"--seconds N", tr("end after N seconds")},
        {"--json",
         tr("write every message to standard output, one JSON object a line, and nothing "
            "else there; ends when nobody reads it any more")},
        {"--record FILE", tr("write every message to FILE, one JSON object a line; - is --json")},
        {"--png FILE",
         tr("save one picture and end: after --seconds, else two seconds after the first message, "
            "for which it waits ten seconds; needs no display")},
        {"--stats", tr("at the end, print the rate, gaps and bad messages")},
        {"-h, --help", tr("print this")},
        {"-v, --version", tr("print the version")},
    };
    QString help = tr("usage: tonewell-monitor [options]") + QStringLiteral("\n\n");
    help += paragraph(tr(
        "Shows the live sound spectrum that TonewellDetection publishes: in a window where there "
        "is a display, else in the terminal. Waits for the service if it is not there, says why, "
        "and comes back when the service does."));
    for (const auto &row : rows) {
        QString start = QStringLiteral("  %1").arg(QLatin1String(row.option), -kOptionColumns);
        for (const QString &line : wrappedToColumns(row.text, kColumns - start.size())) {
            help += start + line + QLatin1Char('\n');
            start.fill(QLatin1Char(' '));
        }
    }
    help += QLatin1Char('\n');
    help += paragraph(tr("Keys: q and Esc end it, + and - make the bars higher or lower, 0 changes "
                         "between a height that fits the music and the message's own; in the "
                         "window also F11 full screen, s a picture, F1 all keys."));
    return help
        + paragraph(
              tr("Exit codes: 0 messages had come, 2 wrong options or no message had come, 3 a "
                 "file or standard output could not be written."))
              .chopped(1);
}
