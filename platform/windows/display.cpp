#include "platform/display.h"

#include <windows.h>
#include <QGuiApplication>

namespace {

/// A service's windows are on a window station that is never shown.
bool windowStationIsVisible()
{
    USEROBJECTFLAGS flags {};
    return GetUserObjectInformationW(GetProcessWindowStation(), UOI_FLAGS, &flags, sizeof(flags),
                                     nullptr)
        && (flags.dwFlags & WSF_VISIBLE);
}

} // namespace

void chooseDisplay() { }

bool dialogCanBeSeen()
{
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return false;
    const QString display = QGuiApplication::platformName();
    return display != QLatin1String("offscreen") && display != QLatin1String("minimal")
        && QGuiApplication::primaryScreen() && windowStationIsVisible();
}
