// TonewellDetection: the process entry.
#include "app/singleinstance.h"
#include "app/widget.h"
#include "platform/display.h"
#include "platform/lastreport.h"
#include "platform/termination.h"
#include "report/crashhandlers.h"

#include <windows.h>
#include <exception>
#include <QApplication>
#include <QSharedMemory>

namespace {

/// All debug output of the program stays in the source and is thrown away here.
void emptyMessageHandler(QtMsgType, const QMessageLogContext &, const QString &) { }

} // namespace

int main(int argc, char *argv[])
{
    std::set_terminate(terminateHandler);
    SetUnhandledExceptionFilter(crashFilter);
    qInstallMessageHandler(emptyMessageHandler);

    reserveCrashStack();
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

    endEventLoopOnTermination();
    Widget widget;
    widget.show();
    return QApplication::exec();
}
