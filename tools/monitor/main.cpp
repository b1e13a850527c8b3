// tonewell-monitor: what the service publishes, live in a window or in a terminal.
#include "platform/display.h"
#include "platform/terminal.h"
#include "platform/termination.h"
#include "tools/monitor/monitor.h"
#include "tools/monitor/monitoroptions.h"
#include "tools/monitor/monitorwindow.h"
#include "tools/monitor/terminalview.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <QApplication>
#include <QTextCodec>
#include <QTimer>

namespace {

constexpr int kTerminalIntervalMs = 40;
constexpr int kLineIntervalMs = 250;
constexpr int kPictureDelayMs = 2000; // from the first message

void say(const QString &text)
{
    std::fprintf(stderr, "tonewell-monitor: %s\n", qPrintable(text));
}

/// All that was printed so far. If not, this says so.
bool standardOutputIsWritten()
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return true;
    say(QStringLiteral("standard output cannot be written"));
    return false;
}

QStringList asStrings(int argc, char **argv)
{
    QStringList result;
    for (int i = 0; i < argc; ++i)
        result.append(QString::fromLocal8Bit(argv[i]));
    return result;
}

std::unique_ptr<QCoreApplication> makeApplication(int &argc, char **argv, bool withWindows)
{
    if (!withWindows)
        return std::make_unique<QCoreApplication>(argc, argv);
    chooseDisplay();
    return std::make_unique<QApplication>(argc, argv);
}

bool hasDisplay()
{
    return qApp && QGuiApplication::platformName() != QStringLiteral("offscreen");
}

TerminalView::Style textStyle()
{
    if (QTextCodec::codecForLocale()->name() != "UTF-8")
        return TerminalView::Plain;
    return qEnvironmentVariableIsEmpty("NO_COLOR") ? TerminalView::ColouredUnicode
                                                   : TerminalView::Unicode;
}

/// Until the event loop is ended: a window, or nothing but the picture at the end.
/// False when the picture could not be saved.
bool runWithWindows(Monitor *monitor, const QString &pngFile)
{
    MonitorWindow window(monitor);
    if (pngFile.isEmpty()) {
        window.show();
        QCoreApplication::exec();
        return true;
    }
    QCoreApplication::exec();
    window.refresh();
    if (window.grab().save(pngFile, "PNG"))
        return true;
    say(QStringLiteral("%1 cannot be written").arg(pngFile));
    return false;
}

/// Until the event loop is ended. False when standard output cannot be written.
bool runInTerminal(Monitor *monitor)
{
    const bool onTerminal = standardOutputIsTerminal();
    TerminalView view(onTerminal, textStyle());
    const double start = Monitor::now();
    bool written = true;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
        MonitorModel *const model = monitor->model();
        const double now = Monitor::now();
        const QString status =
            QStringLiteral("%1 s  %2").arg((now - start) / 1000, 6, 'f', 1).arg(model->status(now));
        written = view.show(model->reading(), model->heldLevels(now), status);
        if (!written)
            QCoreApplication::quit();
    });
    timer.start(onTerminal ? kTerminalIntervalMs : kLineIntervalMs);
    QCoreApplication::exec();
    return written;
}

} // namespace

int main(int argc, char **argv)
{
    // Whether there will be windows must be known before there is an application.
    MonitorOptions options = MonitorOptions::read(asStrings(argc, argv));
    if (options.request == MonitorOptions::Help) {
        std::fputs(qPrintable(MonitorOptions::help()), stdout);
        return standardOutputIsWritten() ? MessagesCame : FileNotWritten;
    }
    if (options.request == MonitorOptions::Version) {
        std::puts("tonewell-monitor " TONEWELL_VERSION);
        return standardOutputIsWritten() ? MessagesCame : FileNotWritten;
    }

    const auto application = makeApplication(argc, argv, !options.text);
    QCoreApplication::setApplicationName(QStringLiteral("tonewell-monitor"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TONEWELL_VERSION));
    options = MonitorOptions::read(QCoreApplication::arguments()); // without Qt's own ones
    if (options.request == MonitorOptions::Wrong) {
        say(options.error + QStringLiteral("; see --help"));
        return WrongOptions;
    }

    MessageRecorder recorder;
    if (!options.recordFile.isEmpty() && !recorder.open(options.recordFile)) {
        say(QStringLiteral("%1: %2").arg(options.recordFile, recorder.errorText()));
        return FileNotWritten;
    }

    endEventLoopOnTermination();
    Monitor monitor(recorder.isOpen() ? &recorder : nullptr);
    QString failure;
    QObject::connect(&monitor, &Monitor::recordingFailed, application.get(),
                     [&](const QString &error) {
                         failure = error;
                         QCoreApplication::quit();
                     });
    if (options.seconds > 0)
        QTimer::singleShot(static_cast<int>(std::ceil(options.seconds * 1000)), application.get(),
                           &QCoreApplication::quit);
    else if (!options.pngFile.isEmpty())
        QObject::connect(&monitor, &Monitor::started, application.get(), [&] {
            QTimer::singleShot(kPictureDelayMs, application.get(), &QCoreApplication::quit);
        });

    bool written = true;
    if (!options.pngFile.isEmpty() || (!options.text && hasDisplay()))
        written = runWithWindows(&monitor, options.pngFile);
    else
        written = runInTerminal(&monitor);

    const MessageStatistics &statistics = monitor.model()->statistics();
    if (options.stats)
        std::fputs(qPrintable(statistics.report()), stdout);
    if (!standardOutputIsWritten())
        written = false;
    if (!failure.isEmpty()) {
        say(QStringLiteral("%1: %2").arg(options.recordFile, failure));
        written = false;
    }
    if (!written)
        return FileNotWritten;
    return statistics.messages() > 0 ? MessagesCame : NoMessageCame;
}
