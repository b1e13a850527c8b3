#include "platform/servicelookup.h"

#include <algorithm>
#include <iterator>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QVector>
#include <unistd.h>

namespace {

constexpr char kProgram[] = "TonewellDetection";
constexpr char kUnit[] = "tonewell-detection.service";

/// A variable of another process's environment; null if it is not there.
QByteArray variable(const QList<QByteArray> &environment, const QByteArray &name)
{
    for (const QByteArray &entry : environment) {
        if (entry.startsWith(name + '='))
            return entry.mid(name.size() + 1);
    }
    return {};
}

/// As Qt and the C library choose the folder.
QString temporaryFolder(const QList<QByteArray> &environment)
{
    const QByteArray folder = variable(environment, "TMPDIR");
    return QDir::cleanPath(folder.isEmpty() ? QStringLiteral("/tmp") : QFile::decodeName(folder));
}

bool isOfOtherSession(const QList<QByteArray> &environment)
{
    const QByteArray theirs = variable(environment, "XDG_RUNTIME_DIR");
    const QByteArray ours = qgetenv("XDG_RUNTIME_DIR");
    return !theirs.isEmpty() && !ours.isEmpty() && theirs != ours;
}

/// Whether the sound library would find another server there than here.
bool hearsElsewhere(const QList<QByteArray> &environment)
{
    const char *const names[] = {"PULSE_SERVER", "PULSE_RUNTIME_PATH", "XDG_RUNTIME_DIR"};
    return std::any_of(std::begin(names), std::end(names), [&](const char *name) {
        return variable(environment, name) != qgetenv(name);
    });
}

struct Copy {
    QString folder;
    bool hearsElsewhere;
    bool isOfOtherSession;
};

QVector<Copy> runningCopies(const QDir &processes)
{
    QVector<Copy> copies;
    for (const QString &id : processes.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        // Only this user's can be read; a program whose file was replaced has a word behind it.
        const QString program =
            QFile::symLinkTarget(processes.filePath(id + QLatin1String("/exe")));
        const QString name = program.mid(program.lastIndexOf(QLatin1Char('/')) + 1);
        if (name != QLatin1String(kProgram)
            && name != QLatin1String(kProgram) + QLatin1String(" (deleted)"))
            continue;
        QFile file(processes.filePath(id + QLatin1String("/environ")));
        if (!file.open(QIODevice::ReadOnly) || QFileInfo(file).ownerId() != getuid())
            continue;
        const QList<QByteArray> environment = file.readAll().split('\0');
        copies.append({temporaryFolder(environment), hearsElsewhere(environment),
                       isOfOtherSession(environment)});
    }
    return copies;
}

bool hasUnit()
{
    QStringList folders {QStringLiteral("/etc/systemd/user"), QStringLiteral("/run/systemd/user"),
                         QStringLiteral("/usr/local/lib/systemd/user"),
                         QStringLiteral("/usr/lib/systemd/user"),
                         QStringLiteral("/lib/systemd/user")};
    for (const auto place :
         {QStandardPaths::GenericConfigLocation, QStandardPaths::GenericDataLocation}) {
        for (const QString &folder : QStandardPaths::standardLocations(place))
            folders.append(folder + QStringLiteral("/systemd/user"));
    }
    for (const QString &folder : folders) {
        if (QFileInfo::exists(folder + QLatin1Char('/') + QLatin1String(kUnit)))
            return true;
    }
    return false;
}

/// The user's service manager runs, and there is the program that talks to it.
bool hasServiceManager()
{
    const QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return !folder.isEmpty() && QFileInfo::exists(folder + QStringLiteral("/systemd/private"))
        && !QStandardPaths::findExecutable(QStringLiteral("systemctl")).isEmpty();
}

QStringList commandThatStarts(const QString &beside)
{
    if (hasServiceManager() && hasUnit())
        return {QStringLiteral("systemctl"), QStringLiteral("--user"), QStringLiteral("start"),
                QStringLiteral("tonewell-detection")};
    const QString name = QLatin1String(kProgram);
    QString program = QStandardPaths::findExecutable(name, {beside});
    if (program.isEmpty())
        program = QStandardPaths::findExecutable(name);
    return program.isEmpty() ? QStringList() : QStringList {program};
}

} // namespace

ServiceLookup lookForService(const QString &processes, const QString &beside)
{
    ServiceLookup found;
    const QString here = QDir::cleanPath(QDir::tempPath());
    for (const Copy &copy : runningCopies(QDir(processes))) {
        if (!copy.isOfOtherSession)
            found.runningIn.append(copy.folder);
        if (copy.folder == here)
            found.hearsElsewhere = copy.hearsElsewhere;
    }
    found.runningIn.removeDuplicates();
    found.socket = here + QStringLiteral("/tonewell");
    const QFileInfo socket(found.socket);
    if (socket.exists() && socket.ownerId() != getuid())
        found.foreignOwner =
            socket.owner().isEmpty() ? QString::number(socket.ownerId()) : socket.owner();
    found.startCommand = commandThatStarts(beside);
    return found;
}
