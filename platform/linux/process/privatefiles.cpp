#include "platform/privatefiles.h"

#include <QDir>
#include <sys/stat.h>

PrivateFileScope::PrivateFileScope()
    : m_before(umask(S_IRWXG | S_IRWXO))
{
}

PrivateFileScope::~PrivateFileScope()
{
    umask(static_cast<mode_t>(m_before));
}

// The state folder of the user is the place for logs here, where no drive root can be written.
QString diagnosticLogPath()
{
    QString folder = qEnvironmentVariable("XDG_STATE_HOME");
    if (!QDir::isAbsolutePath(folder))
        folder = QDir::homePath() + QStringLiteral("/.local/state");
    folder += QStringLiteral("/tonewell");
    QDir().mkpath(folder);
    return folder + QStringLiteral("/audio_format_diagnostic.txt");
}
