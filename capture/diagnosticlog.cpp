#include "capture/diagnosticlog.h"

#include "platform/diagnosticlogpath.h"
#include "platform/qtgeneration.h"

#include <atomic>
#include <QDateTime>
#include <QFile>
#include <QTextStream>

namespace {

std::atomic<bool> s_diagnosticLogEnabled {false};

} // namespace

void enableDiagnosticLog(bool enabled)
{
    s_diagnosticLogEnabled.store(enabled);
}

void writeDiagnosticLog(const QString &message)
{
    if (!s_diagnosticLogEnabled.load())
        return;
    QFile file(diagnosticLogPath());
    if (!file.open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Text))
        return;
    QTextStream stream(&file);
    writeUtf8(&stream);
    stream << '[' << QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz")) << "] "
           << message << '\n';
}
