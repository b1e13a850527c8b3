// tonewell-monitor: what the service publishes, live in a window or in a terminal.
#include "platform/brokenpipe.h"
#include "platform/display.h"
#include "platform/terminal.h"
#include "platform/termination.h"
#include "tools/monitor/accessiblewidgets.h"
#include "tools/monitor/monitor.h"
#include "tools/monitor/monitoroptions.h"
#include "tools/monitor/monitorwindow.h"
#include "tools/monitor/picturefile.h"
#include "tools/monitor/standardoutput.h"
#include "tools/monitor/terminalsession.h"
#include "tools/monitor/translation.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <QApplication>
#include <QEventLoop>
#include <QTimer>

namespace {

constexpr int kReaderCheckMs = 500;
constexpr int kPictureDelayMs = 2000; // from the first message
constexpr int kPicturePatienceMs = 10000; // until the first message

struct Main {
    Q_DECLARE_TR_FUNCTIONS(Main)
};

void say(const QString &text)
{
    std::fprintf(stderr, "tonewell-monitor: %s\n", qPrintable(text));
}

/// Whether everything printed so far was written. Reports it on standard error if not.
bool standardOutputIsWritten()
{
    const QString error = standardOutputError();
    if (error.isEmpty())
        return true;
    say(QStringLiteral("%1: %2").arg(Main::tr("standard output"), error));
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
    return qobject_cast<QApplication *>(QCoreApplication::instance())
        && QGuiApplication::platformName() != QStringLiteral("offscreen");
}

/// Whether it writes plain lines, which are for programs and for reports.
bool writesLines(const MonitorOptions &options)
{
    return options.request == MonitorOptions::Run && !options.json && options.pngFile.isEmpty()
        && (options.text || !hasDisplay()) && !standardOutputIsTerminal();
}

/// Where the service has never been and it is not known why, it is looked up now. The service may
/// come meanwhile.
void findReason(Monitor *monitor)
{
    const MonitorModel *const model = monitor->model();
    if (model->statistics().messages() > 0 || model->state() != ServiceState::Missing
        || !model->waitReason().text().isEmpty())
        return;
    QEventLoop loop;
    QObject::connect(monitor, &Monitor::changed, &loop, &QEventLoop::quit);
    QTimer::singleShot(0, monitor, &Monitor::explain); // it may know at once
    loop.exec();
}

TerminalView::Style textStyle()
{
    if (!terminalShowsUtf8())
        return TerminalView::Plain;
    return qEnvironmentVariableIsEmpty("NO_COLOR") ? TerminalView::ColouredUnicode
                                                   : TerminalView::Unicode;
}

/// Runs until the event loop ends.
void runInWindow(Monitor *monitor)
{
    installAccessibleWidgets();
    MonitorWindow window(monitor);
    window.show();
    QCoreApplication::exec();
}

/// Runs until the event loop ends. Without --seconds, the first message ends it, or a wait for it
/// in vain. False when the picture could not be saved.
bool runForPicture(Monitor *monitor, const MonitorOptions &options)
{
    MonitorWindow window(monitor);
    bool given = options.seconds > 0;
    QTimer::singleShot(kPicturePatienceMs, &window, [&] {
        if (!given)
            QCoreApplication::quit();
    });
    QObject::connect(monitor, &Monitor::started, &window, [&] {
        if (!given)
            QTimer::singleShot(kPictureDelayMs, &window, &QCoreApplication::quit);
        given = true;
    });
    QCoreApplication::exec();
    if (!given)
        return true; // and no picture: nothing came that it could show
    window.refresh();
    QString error;
    if (savePicture(window.grab().toImage(), options.pngFile, &error))
        return true;
    say(QStringLiteral("%1: %2").arg(options.pngFile, error));
    return false;
}

/// Runs until the event loop ends. False when standard output cannot be written.
bool runInTerminal(Monitor *monitor)
{
    TerminalSession session(monitor, standardOutputIsTerminal(), textStyle());
    QObject::connect(&session, &TerminalSession::ended, &session, &QCoreApplication::quit);
    QCoreApplication::exec();
    return session.isWritten();
}

/// Runs until the event loop ends or nobody reads the record any more. Says on standard error why
/// the service is not there.
void runForReader(Monitor *monitor)
{
    const BrokenPipeGuard guard;
    QString said;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
        if (!standardOutputHasReader())
            QCoreApplication::quit();
        const QString reason = monitor->model()->waitReason().text();
        if (!reason.isEmpty() && reason != said)
            say(reason);
        said = reason;
    });
    timer.start(kReaderCheckMs);
    QCoreApplication::exec();
}

bool run(Monitor *monitor, const MonitorOptions &options)
{
    if (options.json) {
        runForReader(monitor);
        return true;
    }
    if (!options.pngFile.isEmpty())
        return runForPicture(monitor, options);
    if (options.text || !hasDisplay())
        return runInTerminal(monitor);
    runInWindow(monitor);
    return true;
}

/// Prints the text, and nothing else happens.
int answer(const QString &text)
{
    writeToStandardOutput(text.toLocal8Bit());
    return standardOutputIsWritten() ? MessagesCame : FileNotWritten;
}

} // namespace

int main(int argc, char **argv)
{
    // Whether there will be windows must be known before there is an application.
    MonitorOptions options = MonitorOptions::read(asStrings(argc, argv));
    const bool shows =
        options.request == MonitorOptions::Run || options.request == MonitorOptions::Wrong;
    const auto application = makeApplication(argc, argv, shows && !options.text && !options.json);
    QCoreApplication::setApplicationName(QStringLiteral("tonewell-monitor"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TONEWELL_VERSION));
    if ((hasDisplay() || terminalShowsUtf8()) && !writesLines(options))
        installTranslations();
    options = MonitorOptions::read(QCoreApplication::arguments()); // without Qt's own ones
    switch (options.request) {
    case MonitorOptions::Help:
        return answer(MonitorOptions::help());
    case MonitorOptions::Version:
        return answer(QStringLiteral("tonewell-monitor " TONEWELL_VERSION "\n"));
    case MonitorOptions::Wrong:
        say(Main::tr("%1; see --help").arg(options.error));
        return WrongOptions;
    case MonitorOptions::Run:
        break;
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

    bool written = run(&monitor, options);
    const bool readerLeft = options.json && !standardOutputHasReader();
    if (written && !readerLeft)
        findReason(&monitor);

    const MessageStatistics &statistics = monitor.model()->statistics();
    if (options.stats && options.json)
        std::fputs(qPrintable(statistics.report()), stderr);
    else if (options.stats)
        writeToStandardOutput(statistics.report().toLocal8Bit());
    if (!standardOutputIsWritten())
        written = false;
    if (!failure.isEmpty() && !readerLeft) {
        say(QStringLiteral("%1: %2").arg(
            options.json ? Main::tr("standard output") : options.recordFile, failure));
        written = false;
    }
    if (!written)
        return FileNotWritten;
    if (statistics.messages() > 0)
        return MessagesCame;
    if (!readerLeft)
        say(Main::tr("no message came: %1").arg(monitor.model()->notice(Monitor::now())));
    return NoMessageCame;
}
