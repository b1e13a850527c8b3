#include "platform/servicelookup.h"

#include <QFileInfo>

ServiceLookup lookForService(const QString &, const QString &beside)
{
    ServiceLookup found;
    const QFileInfo program(beside + QStringLiteral("/TonewellDetection.exe"));
    if (program.isExecutable())
        found.startCommand = QStringList {program.absoluteFilePath()};
    return found;
}
