#include "tests/app/linux/programworld.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QLocalSocket>
#include <QThread>

namespace {
constexpr int kPatienceMs = 20000;
}

ProgramWorld::ProgramWorld()
{
    environment = QProcessEnvironment::systemEnvironment();
    const QString folder = m_folder.path();
    for (const char *name : {"TMPDIR", "XDG_RUNTIME_DIR", "HOME"})
        environment.insert(QLatin1String(name), folder);
    environment.insert(QStringLiteral("PULSE_SERVER"),
                       QStringLiteral("unix:%1/no-sound-server").arg(folder));
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
                       QStringLiteral("unix:path=%1/no-bus").arg(folder));
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                       QStringLiteral("unix:path=%1/no-bus").arg(folder));
    for (const char *name : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"})
        environment.remove(QLatin1String(name));
}

QString ProgramWorld::socket() const
{
    return m_folder.filePath(QStringLiteral("tonewell"));
}

std::unique_ptr<QProcess> ProgramWorld::start() const
{
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(environment);
    process->setWorkingDirectory(m_folder.path());
    if (descriptorLimit > 0) {
        process->start(QStringLiteral("/bin/sh"),
                       {QStringLiteral("-c"), QStringLiteral("ulimit -n \"$1\"; exec \"$2\""),
                        QStringLiteral("sh"), QString::number(descriptorLimit),
                        QStringLiteral(TONEWELL_PROGRAM)});
    } else {
        process->start(QStringLiteral(TONEWELL_PROGRAM), QStringList());
    }
    return process->waitForStarted(kPatienceMs) ? std::move(process) : nullptr;
}

std::unique_ptr<QProcess> ProgramWorld::startAndWait() const
{
    std::unique_ptr<QProcess> process = start();
    const QDeadlineTimer deadline(kPatienceMs);
    while (process && process->state() != QProcess::NotRunning && !deadline.hasExpired()) {
        // A leftover file is there from the beginning: only a live socket answers.
        QLocalSocket client;
        client.connectToServer(socket());
        if (client.waitForConnected(1000))
            return process;
        QThread::msleep(20);
    }
    return nullptr;
}

QString ProgramWorld::receive(int messages) const
{
    QProcess probe;
    probe.setProcessEnvironment(environment);
    probe.start(QStringLiteral(REPLICAPROBE),
                {QStringLiteral("local:tonewell"), QString::number(messages)});
    if (!probe.waitForFinished(2 * kPatienceMs) || probe.exitCode() != 0)
        return {};
    return QString::fromUtf8(probe.readAllStandardOutput());
}
