#pragma once

#include <QTimer>
#include <QWidget>

class LevelMeters;
class Monitor;
class QLabel;
class SpectrumPlot;

/// The window: meters, bars, and a line of status. The bars and meters move with every message, the
/// numbers and the status a few times a second.
class MonitorWindow : public QWidget {
    Q_OBJECT

public:
    /// The monitor must outlive the window.
    explicit MonitorWindow(Monitor *monitor, QWidget *parent = nullptr);

    /// Shows everything as it is now.
    void refresh();

private:
    void showReading();
    void showStatus();

    Monitor *const m_monitor;
    LevelMeters *const m_meters;
    SpectrumPlot *const m_plot;
    QLabel *const m_status;
    QTimer m_slow;
};
