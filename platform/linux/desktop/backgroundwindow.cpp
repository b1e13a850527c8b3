#include "platform/backgroundwindow.h"

#include <QGuiApplication>
#include <qpa/qplatformnativeinterface.h>
#include <QWidget>
#include <xcb/xcb.h>

namespace {

/// A window manager gives the keyboard to what it manages, however it is asked not to: hints about
/// focus, time and task bar are read differently by each. It leaves this window alone.
void leaveUnmanaged(xcb_window_t window)
{
    auto *const connection = static_cast<xcb_connection_t *>(
        QGuiApplication::platformNativeInterface()->nativeResourceForIntegration("connection"));
    const uint32_t overrideRedirect = 1;
    xcb_change_window_attributes(connection, window, XCB_CW_OVERRIDE_REDIRECT, &overrideRedirect);
}

} // namespace

void keepInBackground(QWidget *window)
{
    const QString display = QGuiApplication::platformName();
    if (display == QLatin1String("xcb"))
        leaveUnmanaged(static_cast<xcb_window_t>(window->winId()));
    else if (display.startsWith(QLatin1String("wayland")))
        window->setAttribute(Qt::WA_DontShowOnScreen);
}
