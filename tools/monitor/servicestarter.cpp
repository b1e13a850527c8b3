#include "tools/monitor/servicestarter.h"

#include <QProcess>

void ServiceStarter::start(const QStringList &command)
{
    if (command.isEmpty())
        return;
    auto *const process = new QProcess(this);
    process->setProgram(command.first());
    process->setArguments(command.mid(1));
    if (command.size() == 1) { // the service itself, which is to stay
        process->setStandardInputFile(QProcess::nullDevice());
        process->setStandardOutputFile(QProcess::nullDevice());
        process->setStandardErrorFile(QProcess::nullDevice());
        if (!process->startDetached())
            Q_EMIT failed(tr("%1 cannot be started").arg(command.first()));
        process->deleteLater();
        return;
    }
    // What asks the service manager, which says what is wrong and ends.
    connect(process, &QProcess::errorOccurred, this, [this, process](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        Q_EMIT failed(process->errorString());
        process->deleteLater();
    });
    connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            [this, process](int code, QProcess::ExitStatus status) {
                if (code != 0 || status != QProcess::NormalExit) {
                    const QString said = QString::fromLocal8Bit(process->readAllStandardError());
                    Q_EMIT failed(said.trimmed().section(QLatin1Char('\n'), 0, 0));
                }
                process->deleteLater();
            });
    process->start(QIODevice::ReadOnly);
}
