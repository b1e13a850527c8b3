#include "platform/diagnosticlogpath.h"

#include <QDir>

// Logs go to the user's state folder here: a user cannot write to the root.
QString diagnosticLogPath()
{
    QString folder = qEnvironmentVariable("XDG_STATE_HOME");
    if (!QDir::isAbsolutePath(folder))
        folder = QDir::homePath() + QStringLiteral("/.local/state");
    folder += QStringLiteral("/tonewell");
    QDir().mkpath(folder);
    return folder + QStringLiteral("/audio_format_diagnostic.txt");
}
