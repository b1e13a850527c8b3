#include "platform/dialogvisibility.h"

#include <QGuiApplication>

bool dialogCanBeSeen()
{
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return false;
    // Everything else that Qt draws on ends at somebody's eyes, be it by way of a remote viewer.
    const QString display = QGuiApplication::platformName();
    return display != QLatin1String("offscreen") && display != QLatin1String("minimal")
        && QGuiApplication::primaryScreen();
}
