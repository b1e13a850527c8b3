#include "report/deliverreport.h"

#include "platform/brokenpipe.h"
#include "platform/display.h"
#include "report/errorreportdialog.h"

#include <atomic>
#include <cstdio>
#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QTimer>

namespace {

std::atomic<ReportSink> s_sink {nullptr};

void writeCrashReportFile(const QString &report)
{
    const QString now = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd_HHmmss"));
    QFile file(QStringLiteral("crash_report_%1.txt").arg(now));
    if (file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate))
        file.write(report.toUtf8());
}

void showReport(const QString &report)
{
    if (!QCoreApplication::instance()) {
        writeCrashReportFile(report);
        return;
    }
    // A crash has ended its process before this: its report is not printed a second time.
    if (!dialogCanBeSeen()) {
        const BrokenPipeGuard guard;
        std::fprintf(stderr, "%s\n", report.toLocal8Bit().constData());
    }
    ErrorReportDialog dialog(report);
    dialog.exec();
}

} // namespace

void deliverReport(const QString &report)
{
    if (const ReportSink sink = s_sink.load()) {
        sink(report);
        return;
    }
    if (QCoreApplication::instance())
        QTimer::singleShot(0, [report] { showReport(report); });
    else
        writeCrashReportFile(report);
}

ReportSink setReportSink(ReportSink sink)
{
    return s_sink.exchange(sink);
}
