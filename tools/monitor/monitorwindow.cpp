#include "tools/monitor/monitorwindow.h"

#include "tools/monitor/levelmeters.h"
#include "tools/monitor/monitor.h"
#include "tools/monitor/spectrumplot.h"

#include <QIcon>
#include <QLabel>
#include <QVBoxLayout>

namespace {
constexpr int kSlowIntervalMs = 100;
} // namespace

MonitorWindow::MonitorWindow(Monitor *monitor, QWidget *parent)
    : QWidget(parent)
    , m_monitor(monitor)
    , m_meters(new LevelMeters)
    , m_plot(new SpectrumPlot)
    , m_status(new QLabel)
{
    setWindowTitle(QStringLiteral("Sound Spectrum Monitor"));
    setWindowIcon(QIcon::fromTheme(QStringLiteral("tonewell")));
    auto *const layout = new QVBoxLayout(this);
    layout->addWidget(m_meters);
    layout->addWidget(m_plot, 1);
    layout->addWidget(m_status);
    m_status->setTextFormat(Qt::PlainText);
    m_status->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    resize(900, 480);

    connect(m_monitor, &Monitor::changed, this, &MonitorWindow::showReading);
    connect(&m_slow, &QTimer::timeout, this, &MonitorWindow::refresh);
    m_slow.start(kSlowIntervalMs);
    refresh();
}

void MonitorWindow::refresh()
{
    showReading();
    showStatus();
}

void MonitorWindow::showReading()
{
    MonitorModel *const model = m_monitor->model();
    m_plot->setBars(model->reading().bars);
    m_meters->setLevels(model->reading(), model->heldLevels(Monitor::now()));
}

void MonitorWindow::showStatus()
{
    MonitorModel *const model = m_monitor->model();
    const double now = Monitor::now();
    m_meters->setNumbers(model->heldLevels(now));
    m_plot->setNotice(model->notice(now));
    m_status->setText(model->status(now));
}
