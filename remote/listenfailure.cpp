#include "remote/listenfailure.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

QString listenFailure(const QString &name, const QString &serverError)
{
    const QString folder = QDir::tempPath();
    if (folder.isEmpty()) {
        return QStringLiteral("TMPDIR names no folder: %1")
            .arg(QString::fromLocal8Bit(qgetenv("TMPDIR")));
    }
    const QFileInfo socket(folder + QLatin1Char('/') + name);
    if (socket.isDir())
        return QStringLiteral("%1 is a folder").arg(socket.filePath());
    // What the server does first: it makes a folder beside the name.
    const QTemporaryDir beside(socket.filePath() + QStringLiteral("-XXXXXX"));
    if (!beside.isValid())
        return QStringLiteral("%1: %2").arg(folder, beside.errorString());
    if (socket.exists())
        return QStringLiteral("%1 belongs to %2").arg(socket.filePath(), socket.owner());
    return serverError;
}
