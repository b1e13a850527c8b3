#include "report/errorreport.h"

#include "report/hextext.h"
#include "report/systeminformation.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QThread>

namespace {

constexpr int kCompilerVersion = 1929; // printed whatever compiler built the program

// The two conversions differ on purpose: a path outside the local encoding stays garbled.
QString executablePath()
{
    return QString::fromUtf8(QCoreApplication::applicationFilePath().toLocal8Bit());
}

QString runtimeEnvironment()
{
    const auto threadId = reinterpret_cast<quintptr>(QThread::currentThreadId());
    return QStringLiteral("  Qt Version: %1\n").arg(QLatin1String(qVersion()))
        + QStringLiteral("  Compiler: MSVC %1\n").arg(kCompilerVersion)
        + QStringLiteral("  Build Type: Release\n")
        + QStringLiteral("  Current Thread ID: 0x%1\n").arg(hexText(threadId, 16))
        + QStringLiteral("  Ideal Thread Count: %1\n").arg(QThread::idealThreadCount());
}

} // namespace

QString buildErrorReport(const QString &exceptionType, const QString &exceptionMessage)
{
    QString report;
    report += QStringLiteral("===========================================\n");
    report += QStringLiteral("     TonewellDetection Error Report\n");
    report += QStringLiteral("===========================================\n\n");
    report +=
        QStringLiteral("[Report Time] %1\n\n")
            .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")));

    report += QStringLiteral("[Application Info]\n");
    report += QStringLiteral("  App Name: %1\n").arg(QCoreApplication::applicationName());
    report += QStringLiteral("  App Version: %1\n").arg(QCoreApplication::applicationVersion());
    report += QStringLiteral("  Executable: %1\n").arg(executablePath());
    report += QStringLiteral("  Build Date: %1 %2\n")
                  .arg(QStringLiteral(__DATE__), QStringLiteral(__TIME__));
    report += QLatin1Char('\n');

    report += QStringLiteral("[Exception Info]\n");
    report += QStringLiteral("  Exception Type: %1\n").arg(exceptionType);
    report += QStringLiteral("  Exception Message: %1\n").arg(exceptionMessage);
    report += QLatin1Char('\n');

    report += QStringLiteral("[System Info]\n");
    report += systemInformation();
    report += QLatin1Char('\n');

    report += QStringLiteral("[Runtime Environment]\n");
    report += runtimeEnvironment();
    report += QStringLiteral("\n===========================================\n");
    report += QStringLiteral("            End of Report\n");
    report += QStringLiteral("===========================================\n");
    return report;
}
