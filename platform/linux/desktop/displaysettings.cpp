#include "platform/display.h"

#include <windows.h>
#include <QGuiApplication>
#include <QScreen>
#include <QThread>

BOOL EnumDisplaySettingsW(LPCWSTR device, DWORD mode, DEVMODEW *settings)
{
    if (!settings || settings->dmSize != sizeof(DEVMODEW)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // The screen belongs to the GUI thread, which may be changing it right now.
    if (device || mode != ENUM_CURRENT_SETTINGS || !dialogCanBeSeen()
        || qApp->thread() != QThread::currentThread()) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    const QScreen *screen = QGuiApplication::primaryScreen();
    const QSizeF pixels = QSizeF(screen->size()) * screen->devicePixelRatio();
    settings->dmFields = DM_BITSPERPEL | DM_PELSWIDTH | DM_PELSHEIGHT | DM_DISPLAYFREQUENCY;
    settings->dmBitsPerPel = static_cast<DWORD>(screen->depth());
    settings->dmPelsWidth = static_cast<DWORD>(qRound(pixels.width()));
    settings->dmPelsHeight = static_cast<DWORD>(qRound(pixels.height()));
    settings->dmDisplayFrequency = static_cast<DWORD>(qRound(screen->refreshRate()));
    return TRUE;
}
