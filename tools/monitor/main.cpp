// tonewell-monitor: what the service publishes, live in a terminal.
//
// Exit codes: 0 it ended as asked and messages had come; 1 wrong options; 2 no message had come.
#include "monitor.h"

#include "platform/terminal.h"
#include "platform/termination.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextCodec>

#include <cmath>
#include <cstdio>

namespace {

constexpr int s_terminalInterval = 40;
constexpr int s_lineInterval = 250;

bool outputIsUnicode()
{
    return QTextCodec::codecForLocale()->name() == "UTF-8";
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tonewell-monitor"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Shows the sound spectrum that TonewellDetection publishes: a live picture on a terminal,\n"
        "four lines a second elsewhere. Waits for the service if it is not there.\n\n"
        "Exit codes: 0 messages had come, 1 wrong options, 2 no message had come."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption seconds(QStringLiteral("seconds"),
                                     QStringLiteral("End after N seconds."), QStringLiteral("N"));
    const QCommandLineOption stats(
        QStringLiteral("stats"), QStringLiteral("At the end, print rate, gaps and bad messages."));
    parser.addOptions({seconds, stats});
    parser.process(app);

    if (!parser.positionalArguments().isEmpty()) {
        std::fprintf(stderr, "tonewell-monitor: unexpected argument\n");
        return 1;
    }
    if (parser.isSet(seconds)) {
        bool ok = false;
        const double count = parser.value(seconds).toDouble(&ok);
        if (!ok || !(count > 0 && count < 2e6)) {
            std::fprintf(stderr, "tonewell-monitor: --seconds needs a number above 0\n");
            return 1;
        }
        QTimer::singleShot(int(std::ceil(count * 1000)), &app, &QCoreApplication::quit);
    }

    endEventLoopOnTermination();
    const bool onTerminal = standardOutputIsTerminal();
    TerminalView view(onTerminal, outputIsUnicode());
    const Monitor monitor(&view, onTerminal ? s_terminalInterval : s_lineInterval);
    QCoreApplication::exec();
    view.close();

    if (parser.isSet(stats))
        std::fputs(monitor.statistics().report().toUtf8().constData(), stdout);
    return monitor.statistics().messages() > 0 ? 0 : 2;
}
