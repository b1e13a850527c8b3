#include "capture/wasapierrortext.h"

#include "report/hextext.h"

#include <audioclient.h>

QString wasapiErrorText(HRESULT hr)
{
    switch (hr) {
    case AUDCLNT_E_DEVICE_INVALIDATED:
        return QStringLiteral("Device invalidated (disconnected or disabled)");
    case AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED:
        return QStringLiteral("Buffer size not aligned");
    case AUDCLNT_E_CPUUSAGE_EXCEEDED:
        return QStringLiteral("CPU usage exceeded");
    case AUDCLNT_E_BUFFER_ERROR:
        return QStringLiteral("Buffer error");
    case AUDCLNT_E_SERVICE_NOT_RUNNING:
        return QStringLiteral("Audio service not running");
    case AUDCLNT_E_UNSUPPORTED_FORMAT:
        return QStringLiteral("Unsupported audio format");
    case AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED:
        return QStringLiteral("Exclusive mode not allowed");
    case CO_E_NOTINITIALIZED:
        return QStringLiteral("COM not initialized");
    case E_NOINTERFACE:
        return QStringLiteral("Interface not supported (driver issue)");
    case E_POINTER:
        return QStringLiteral("Invalid pointer (null pointer accessed)");
    case E_FAIL:
        return QStringLiteral("General failure");
    default:
        return QStringLiteral("Unknown error: 0x%1").arg(hexText(hr, 8));
    }
}
