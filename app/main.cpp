// TonewellDetection: the process entry.
#include "app/singleinstance.h"
#include "app/widget.h"
#include "platform/display.h"
#include "platform/lastreport.h"
#include "platform/qtgeneration.h"
#include "platform/termination.h"
#include "platform/threadstacks.h"
#include "report/crashhandlers.h"

#include <windows.h>
#include <exception>
#include <QApplication>
#include <QLocale>
#include <QSharedMemory>
#include <QTranslator>

namespace {

/// All debug output of the program stays in the source and is thrown away here.
void emptyMessageHandler(QtMsgType, const QMessageLogContext &, const QString &) { }

/// Only what Qt itself says, such as the buttons of message boxes and of file dialogs, is in the
/// user's language. On Windows Qt's catalogues are one file.
void translateQt(QTranslator *translator)
{
    const QString folder = qtTranslations();
    for (const char *const name : {"qtbase", "qt"}) {
        if (translator->load(QLocale(), QLatin1String(name), QStringLiteral("_"), folder)) {
            QCoreApplication::installTranslator(translator);
            return;
        }
    }
}

} // namespace

int main(int argc, char *argv[])
{
    std::set_terminate(terminateHandler);
    SetUnhandledExceptionFilter(crashFilter);
    qInstallMessageHandler(emptyMessageHandler);

    reserveCrashStack();
    useSmallThreadStacks();
    chooseDisplay();
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("TonewellDetection"));
    QApplication::setApplicationVersion(QStringLiteral(TONEWELL_VERSION));
    QApplication::setOrganizationName(QStringLiteral("TonewellDetection"));

    // The copy that holds the segment also holds the socket, which a second copy would take away.
    QSharedMemory sharedMemory(QStringLiteral("TonewellDetection"));
    if (attachToRunningCopy(&sharedMemory))
        return 0;
    sharedMemory.create(1, QSharedMemory::ReadWrite);

    QTranslator translator;
    translateQt(&translator);
    endEventLoopOnTermination();
    Widget widget;
    widget.show();
    return QApplication::exec();
}
