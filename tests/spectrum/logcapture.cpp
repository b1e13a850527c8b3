#include "tests/spectrum/logcapture.h"

namespace {

QMutex s_mutex;
QStringList s_lines;

void collect(QtMsgType, const QMessageLogContext &, const QString &text)
{
    const QMutexLocker lock(&s_mutex);
    s_lines.append(text);
}

} // namespace

LogCapture::LogCapture()
    : m_previous(qInstallMessageHandler(collect))
{
    const QMutexLocker lock(&s_mutex);
    s_lines.clear();
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_previous);
}

QStringList LogCapture::lines() const
{
    const QMutexLocker lock(&s_mutex);
    return s_lines;
}
