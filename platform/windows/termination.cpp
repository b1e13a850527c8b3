#include "platform/termination.h"

#include <windows.h>
#include <mutex>
#include <QCoreApplication>
#include <QTimer>

namespace {

std::mutex s_mutex;
QCoreApplication *s_application = nullptr; // guarded: the handler has a thread of its own
bool s_interrupted = false; // by ctrl-C, guarded

/// Ends the event loop, and again as long as there is one: a quit that comes in a loop of the
/// start-up, before the application's own loop runs, ends only that one.
void keepQuitting()
{
    QCoreApplication::quit();
    QTimer::singleShot(0, QCoreApplication::instance(), keepQuitting);
}

/// Posts the end; false when there is no application to end.
bool quitApplication()
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    return s_application
        && QMetaObject::invokeMethod(s_application, keepQuitting, Qt::QueuedConnection);
}

BOOL WINAPI handleControl(DWORD event)
{
    switch (event) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT: {
        {
            const std::lock_guard<std::mutex> lock(s_mutex);
            if (s_interrupted)
                return FALSE; // the second one has the default effect
            s_interrupted = true;
        }
        return quitApplication();
    }
    case CTRL_CLOSE_EVENT:
        if (!quitApplication())
            return FALSE;
        // The system ends the process when this returns, and after five seconds in any case.
        Sleep(INFINITE);
        return TRUE;
    default:
        return FALSE;
    }
}

} // namespace

void endEventLoopOnTermination()
{
    QCoreApplication *const application = QCoreApplication::instance();
    {
        const std::lock_guard<std::mutex> lock(s_mutex);
        s_application = application;
    }
    QObject::connect(application, &QObject::destroyed, [] {
        const std::lock_guard<std::mutex> lock(s_mutex);
        s_application = nullptr;
    });
    SetConsoleCtrlHandler(handleControl, TRUE);
}
