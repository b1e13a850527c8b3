// A window that asks for the session's notifications, for tests.
#pragma once

#include "platform/qtgeneration.h"

#include <windows.h>
#include <QVector>
#include <QWidget>
#include <wtsapi32.h>

/// Keeps the session messages that reach it.
class Window : public QWidget {
public:
    QVector<int> codes;
    QVector<int> sessions;
    bool forThisWindow = true;

    bool registerForSession()
    {
        return WTSRegisterSessionNotification(reinterpret_cast<HWND>(winId()),
                                              NOTIFY_FOR_THIS_SESSION)
            != FALSE;
    }

protected:
    bool nativeEvent(const QByteArray &eventType, void *message, NativeEventResult *result) override
    {
        if (eventType == "windows_generic_MSG") {
            const MSG *const msg = static_cast<const MSG *>(message);
            if (msg->message == WM_WTSSESSION_CHANGE) {
                codes.append(static_cast<int>(msg->wParam));
                sessions.append(static_cast<int>(msg->lParam));
                forThisWindow = forThisWindow && msg->hwnd == reinterpret_cast<HWND>(winId());
            }
        }
        return QWidget::nativeEvent(eventType, message, result);
    }
};
