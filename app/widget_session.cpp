// The user logs on, connects or unlocks: the notifications of it, and the restart that they cause.
// Windows calls this the user's session; here a session is one run of the capture worker.
#include "app/widget.h"

#include "spectrum/specengine.h"
#include "ui_widget.h"

#include <windows.h>
#include <QDebug>
#include <QTimer>
#include <wtsapi32.h>

namespace {
constexpr int kRestartDelayMs = 1000;
} // namespace

void Widget::registerSessionNotification()
{
    const bool registered =
        WTSRegisterSessionNotification(reinterpret_cast<HWND>(winId()), NOTIFY_FOR_THIS_SESSION);
    qDebug() << "注册windows通知事件：" << registered;
}

bool Widget::nativeEvent(const QByteArray &eventType, void *message, NativeEventResult *result)
{
    // Only under this name is the message a MSG: other window systems pass their own structures.
    if (eventType == "windows_generic_MSG") {
        const MSG *const msg = static_cast<const MSG *>(message);
        if (msg->message == WM_WTSSESSION_CHANGE)
            sessionChanged(msg->wParam);
    }
    return QWidget::nativeEvent(eventType, message, result);
}

void Widget::sessionChanged(quintptr code)
{
    switch (code) {
    case WTS_CONSOLE_CONNECT:
        qDebug() << "会话连接";
        restartService();
        break;
    case WTS_CONSOLE_DISCONNECT:
        qDebug() << "系统注销";
        break;
    case WTS_SESSION_LOGON:
        qDebug() << "用户登录";
        restartService();
        break;
    case WTS_SESSION_LOCK:
        qDebug() << "系统锁屏";
        break;
    case WTS_SESSION_UNLOCK:
        qDebug() << "系统解锁";
        restartService();
        break;
    default:
        break;
    }
}

void Widget::restartService()
{
    ui->textBrowser->append(QStringLiteral("用户登录：重启服务"));
    if (SpecEngine::instance()->isCapturing())
        SpecEngine::instance()->stop();
    QTimer::singleShot(kRestartDelayMs, this, [] { SpecEngine::instance()->start(); });
}
