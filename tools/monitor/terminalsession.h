#pragma once

#include "tools/monitor/terminalkeys.h"
#include "tools/monitor/terminalview.h"

#include <QTimer>

class Monitor;

/// Shows the monitor on standard output until it is told to end: a picture that also answers to
/// keys where that is a terminal, else plain lines.
class TerminalSession : public QObject {
    Q_OBJECT

public:
    /// The monitor must outlive this.
    TerminalSession(Monitor *monitor, bool onTerminal, TerminalView::Style style);

    /// False when standard output could not be written, which also ends the session.
    bool isWritten() const { return m_written; }

Q_SIGNALS:
    /// q or Esc, or nothing can be written any more.
    void ended();

private:
    void show();
    void onKey(char key);

    Monitor *const m_monitor;
    const double m_start;
    TerminalView m_view;
    TerminalKeys m_keys;
    QTimer m_timer;
    bool m_written = true;
};
