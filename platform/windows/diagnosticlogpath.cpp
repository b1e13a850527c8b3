#include "platform/diagnosticlogpath.h"

QString diagnosticLogPath()
{
    return QStringLiteral("C:/audio_format_diagnostic.txt");
}
