#include "tools/monitor/monitorwindow.h"

#include "tools/monitor/levelmeters.h"
#include "tools/monitor/monitor.h"
#include "tools/monitor/picturefile.h"
#include "tools/monitor/spectrumplot.h"
#include "tools/monitor/statusline.h"

#include <QAction>
#include <QDateTime>
#include <QDir>
#include <QIcon>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>
#include <QVBoxLayout>

namespace {

constexpr int kSlowIntervalMs = 100;
constexpr double kMessageMs = 6000;

/// Where a person looks for pictures.
QString picturesFolder()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    return QDir(folder).exists() ? folder : QDir::homePath();
}

} // namespace

MonitorWindow::MonitorWindow(Monitor *monitor, QWidget *parent)
    : QWidget(parent)
    , m_monitor(monitor)
    , m_meters(new LevelMeters)
    , m_plot(new SpectrumPlot)
    , m_start(new QPushButton(tr("Start the service")))
    , m_status(new StatusLine)
{
    setWindowTitle(tr("Sound Spectrum Monitor"));
    setWindowIcon(QIcon::fromTheme(QStringLiteral("tonewell")));
    auto *const layout = new QVBoxLayout(this);
    layout->addWidget(m_meters);
    layout->addWidget(m_plot, 1);
    layout->addWidget(m_start, 0, Qt::AlignHCenter);
    layout->addWidget(m_status);
    m_start->hide();
    resize(900, 480);
    addActions();

    connect(m_start, &QPushButton::clicked, this,
            [this] { m_starter.start(m_monitor->model()->waitReason().startCommand()); });
    connect(&m_starter, &ServiceStarter::failed, this, &MonitorWindow::say);
    connect(m_monitor, &Monitor::changed, this, &MonitorWindow::showReading);
    connect(&m_slow, &QTimer::timeout, this, &MonitorWindow::refresh);
    m_slow.start(kSlowIntervalMs);
    refresh();
}

template <typename Function>
void MonitorWindow::addAction(const QString &text, const QList<QKeySequence> &keys,
                              Function function)
{
    auto *const action = new QAction(text, this);
    action->setShortcuts(keys);
    action->setShortcutVisibleInContextMenu(true);
    connect(action, &QAction::triggered, this, function);
    QWidget::addAction(action);
}

void MonitorWindow::addSeparator()
{
    auto *const line = new QAction(this);
    line->setSeparator(true);
    QWidget::addAction(line);
}

void MonitorWindow::addActions()
{
    HeightScale &scale = m_monitor->model()->scale();
    const auto now = &Monitor::now;
    addAction(tr("Higher bars"), {Qt::Key_Plus, Qt::Key_Equal},
              [&scale, now] { scale.higher(now()); });
    addAction(tr("Lower bars"), {Qt::Key_Minus}, [&scale, now] { scale.lower(now()); });
    addAction(tr("Height: fit the music, or as sent"), {Qt::Key_0},
              [&scale, now] { scale.toggle(now()); });
    addSeparator();
    addAction(tr("Full screen"), {Qt::Key_F11}, [this] { toggleFullScreen(); });
    addAction(tr("Save a picture"), {Qt::Key_S}, [this] { savePictureIn(picturesFolder()); });
    addSeparator();
    addAction(tr("Keys"), {Qt::Key_F1}, [this] { showKeys(); });
    addAction(tr("Leave full screen, or quit"), {Qt::Key_Escape}, [this] { leave(); });
    // Qt's way to write a key with a modifier. NOLINTNEXTLINE(bugprone-suspicious-enum-usage)
    addAction(tr("Quit"), {Qt::Key_Q, Qt::CTRL | Qt::Key_Q, Qt::CTRL | Qt::Key_W},
              [this] { close(); });
    setContextMenuPolicy(Qt::ActionsContextMenu);
}

void MonitorWindow::toggleFullScreen()
{
    setWindowState(windowState() ^ Qt::WindowFullScreen);
}

void MonitorWindow::leave()
{
    if (isFullScreen())
        toggleFullScreen();
    else
        close();
}

QString MonitorWindow::keysOf(const QAction &action)
{
    QString keys;
    for (const QKeySequence &key : action.shortcuts()) {
        const QString text = key.toString(QKeySequence::NativeText);
        keys = keys.isEmpty() ? text : tr("%1 or %2", "keys").arg(keys, text);
    }
    return keys;
}

void MonitorWindow::showKeys()
{
    QString rows;
    for (const QAction *const action : actions()) {
        if (action->isSeparator())
            continue;
        rows += QStringLiteral("<tr><td><b>%1</b></td><td>&nbsp;&nbsp;%2</td></tr>")
                    .arg(keysOf(*action).toHtmlEscaped(), action->text().toHtmlEscaped());
    }
    auto *const box =
        new QMessageBox(QMessageBox::NoIcon, tr("Keys"),
                        QStringLiteral("<table>%1</table>").arg(rows), QMessageBox::Ok, this);
    box->setInformativeText(
        tr("Bars: the left channel to the left of 0 Hz, the right one to the right. Meters: "
           "decibels of full scale; the number is the mark's, 1.000 is full scale."));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void MonitorWindow::savePictureIn(const QString &folder)
{
    const QString name = QDir(folder).filePath(
        QStringLiteral("spectrum-")
        + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")));
    QString file = name + QStringLiteral(".png");
    for (int i = 2; QFile::exists(file); ++i)
        file = QStringLiteral("%1-%2.png").arg(name).arg(i);
    QString error;
    say(savePicture(grab().toImage(), file, &error)
            ? tr("saved: %1").arg(QDir::toNativeSeparators(file))
            : QStringLiteral("%1: %2").arg(QDir::toNativeSeparators(file), error));
}

void MonitorWindow::say(const QString &message)
{
    m_message = message;
    m_messageEnd = Monitor::now() + kMessageMs;
    showStatus();
}

void MonitorWindow::refresh()
{
    showReading();
    showStatus();
}

void MonitorWindow::showReading()
{
    MonitorModel *const model = m_monitor->model();
    const double now = Monitor::now();
    m_plot->setScale(model->scale(), model->scale().top(now));
    m_plot->setBars(model->reading().bars);
    m_meters->setLevels(model->reading(), model->heldLevels(now));
}

void MonitorWindow::showStatus()
{
    MonitorModel *const model = m_monitor->model();
    const double now = Monitor::now();
    m_meters->setNumbers(model->heldLevels(now));
    m_plot->setNotice(model->notice(now));
    m_start->setVisible(!model->waitReason().startCommand().isEmpty());
    m_status->setText(now < m_messageEnd ? m_message : model->status(now));
}
