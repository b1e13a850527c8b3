#include "tools/monitor/terminalsession.h"

#include "platform/terminal.h"
#include "tools/monitor/monitor.h"

namespace {
constexpr int kPictureIntervalMs = 40;
constexpr int kLineIntervalMs = 250;
} // namespace

TerminalSession::TerminalSession(Monitor *monitor, bool onTerminal, TerminalView::Style style)
    : m_monitor(monitor)
    , m_start(Monitor::now())
    , m_view(onTerminal, style)
{
    connect(&m_timer, &QTimer::timeout, this, &TerminalSession::show);
    m_timer.start(onTerminal ? kPictureIntervalMs : kLineIntervalMs);
}

void TerminalSession::show()
{
    for (const char key : m_keys.take(readTypedBytes()))
        onKey(key);
    MonitorModel *const model = m_monitor->model();
    const double now = Monitor::now();
    const QString seconds = QStringLiteral("%1 s  ").arg((now - m_start) / 1000, 6, 'f', 1);
    m_written = m_view.show({model->reading(), model->heldLevels(now), seconds + model->status(now),
                             model->notice(now), model->scale(), model->scale().top(now)});
    if (!m_written)
        Q_EMIT ended();
}

void TerminalSession::onKey(char key)
{
    HeightScale &scale = m_monitor->model()->scale();
    switch (key) {
    case 'q':
    case 'Q':
    case TerminalKeys::kEscape:
        Q_EMIT ended();
        break;
    case '+':
    case '=':
        scale.higher(Monitor::now());
        break;
    case '-':
        scale.lower(Monitor::now());
        break;
    case '0':
        scale.toggle(Monitor::now());
        break;
    default:
        break;
    }
}
