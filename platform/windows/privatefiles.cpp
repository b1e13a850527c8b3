#include "platform/privatefiles.h"

PrivateFileScope::PrivateFileScope() = default;
PrivateFileScope::~PrivateFileScope() = default;

QString diagnosticLogPath()
{
    return QStringLiteral("C:/audio_format_diagnostic.txt");
}
