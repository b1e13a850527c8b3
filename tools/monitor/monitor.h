#pragma once

#include "messagesource.h"
#include "messagestatistics.h"
#include "spectrumreading.h"
#include "terminalview.h"

#include <QElapsedTimer>
#include <QTimer>

/// Connects the parts: takes each message as it comes, shows the newest at the view's own pace.
class Monitor : public QObject {
    Q_OBJECT

public:
    /// The view must outlive the monitor. interval: milliseconds between two pictures.
    Monitor(TerminalView *view, int interval, QObject *parent = nullptr);

    const MessageStatistics &statistics() const { return m_statistics; }

private:
    void onMessage(const QString &message);
    void onStateChanged(MessageSource::State state);
    void showNewest();
    QString status() const;

    TerminalView *const m_view;
    MessageSource m_source;
    MessageStatistics m_statistics;
    SpectrumReading m_reading;
    QElapsedTimer m_clock;
    QTimer m_timer;
    qint64 m_shown = 0; ///< messages when the rate was last taken
    double m_rateTime = 0; ///< and when that was, in ms
    double m_rate = 0; ///< messages a second over the last second
};
