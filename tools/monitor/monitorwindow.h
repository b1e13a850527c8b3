#pragma once

#include "tools/monitor/servicestarter.h"

#include <QTimer>
#include <QWidget>

class LevelMeters;
class Monitor;
class QAction;
class QKeySequence;
class QPushButton;
class SpectrumPlot;
class StatusLine;

/// The window: meters, bars, and a line of status. The bars and meters move with every message, the
/// numbers and the status a few times a second.
///
/// All that can be done is an action with its keys, in the context menu and in the list that F1
/// opens.
class MonitorWindow : public QWidget {
    Q_OBJECT

public:
    /// The monitor must outlive the window.
    explicit MonitorWindow(Monitor *monitor, QWidget *parent = nullptr);

    /// Shows everything as it is now.
    void refresh();

    /// Saves a picture of the window in a folder, under a name of this moment that is not in use,
    /// and says so.
    void savePictureIn(const QString &folder);

private:
    void addActions();
    void addSeparator();
    template <typename Function>
    void addAction(const QString &text, const QList<QKeySequence> &keys, Function function);
    void showReading();
    void showStatus();
    void showKeys();
    static QString keysOf(const QAction &action);
    void toggleFullScreen();
    void leave(); ///< full screen, or the program
    void say(const QString &message); ///< in place of the status, for some seconds

    Monitor *const m_monitor;
    LevelMeters *const m_meters;
    SpectrumPlot *const m_plot;
    QPushButton *const m_start; ///< visible when the service can be started
    StatusLine *const m_status;
    ServiceStarter m_starter;
    QTimer m_slow;
    QString m_message;
    double m_messageEnd = 0;
};
