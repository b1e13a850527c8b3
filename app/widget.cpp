#include "app/widget.h"

#include "capture/audiocapture.h"
#include "platform/backgroundwindow.h"
#include "platform/brokenpipe.h"
#include "remote/commoninterface.h"
#include "remote/consumergate.h"
#include "remote/spectrummessage.h"
#include "spectrum/specengine.h"
#include "ui_widget.h"

#include <cstdio>
#include <QGuiApplication>
#include <QRemoteObjectHost>
#include <QTimer>
#include <QUrl>

namespace {
constexpr int kMinFrequencyHz = -7000;
constexpr int kMaxFrequencyHz = 7000;
constexpr int kBarCount = 100;
constexpr int kPublishIntervalMs = 20;
constexpr int kTryAgainExitCode = 75; // what sysexits.h calls a temporary failure

void sayToTheUser(const QString &line)
{
    const BrokenPipeGuard guard;
    std::fprintf(stderr, "TonewellDetection: %s\n", line.toLocal8Bit().constData());
}

/// A program that nobody can connect to is of no use: says so, and ends for another to try again.
void watchGate(const ConsumerGate *gate)
{
    QObject::connect(gate, &ConsumerGate::listeningFails, gate, [](const QString &why) {
        constexpr int seconds = ConsumerGate::kMostAttempts * ConsumerGate::kListenAgainMs / 1000;
        sayToTheUser(
            QStringLiteral("nobody can connect: %1; trying for %2 s").arg(why).arg(seconds));
    });
    QObject::connect(gate, &ConsumerGate::gaveUp, gate, [] {
        sayToTheUser(QStringLiteral("ending, since nobody can connect"));
        QCoreApplication::exit(kTryAgainExitCode);
    });
}
} // namespace

Widget::Widget(QWidget *parent)
    : QWidget(parent)
    , ui(new Ui::Widget)
    , m_interface(nullptr)
    , m_host(nullptr)
    , m_spectrum(kMinFrequencyHz, kMaxFrequencyHz, kBarCount)
{
    ui->setupUi(this);
    ui->horizontalLayout->setEnabled(false); // see resizeEvent
    setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setAttribute(Qt::WA_TranslucentBackground);
    QGuiApplication::setQuitOnLastWindowClosed(false);
    resize(1, 1);
    move(-100, -100);
    keepInBackground(this);

    registerSessionNotification();
    setupRemote();

    const QStringList names = SpecEngine::instance()->deviceList();
    for (const QString &name : names)
        ui->comboBox->addItem(tr("%1").arg(name));

    SpecEngine::instance()->setSmoothing(0.5);
    SpecEngine::instance()->setHistoryLength(10);
    SpecEngine::instance()->setQuantile(0.1);
    SpecEngine::instance()->start();
    AudioCapture::setDiagnosticLogEnabled(false);

    m_timer = new QTimer(this);
    // A coarse timer may be 5 % late at every tick. 50 messages a second need a precise one.
    m_timer->setTimerType(Qt::PreciseTimer);
    connect(m_timer, &QTimer::timeout, this, &Widget::timeOver);
    m_timer->setSingleShot(false);
    m_timer->start(kPublishIntervalMs);
}

Widget::~Widget()
{
    delete ui;
    SpecEngine::instance()->stop();
}

// Nobody sees the window, which is one pixel. An enabled layout would measure its texts when the
// window is shown and load a Chinese font for that: an eighth of the program's memory.
void Widget::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    ui->horizontalLayout->setEnabled(width() > 1);
    ui->horizontalLayout->activate();
}

void Widget::setupRemote()
{
    const QString name = QStringLiteral("Tonewell");
    m_host = new QRemoteObjectHost(this);
    // Listens in the host's stead, so that the host reads only what has been checked.
    watchGate(new ConsumerGate(m_host, QUrl(QStringLiteral("local:tonewell")), name));
    m_interface = new CommonInterface(this);
    m_host->enableRemoting(m_interface, name);
    connect(m_interface, &CommonInterface::sigReceiveMsg, this, &Widget::onReceiveMsg);
}

void Widget::timeOver()
{
    const SpecEngine *const engine = SpecEngine::instance();
    const double dynamicLevel = engine->dynamicLevel();
    const double peakLevel = engine->peakLevel();
    const double rmsLevel = engine->rmsLevel();
    m_message = spectrumMessage(rmsLevel, peakLevel, dynamicLevel, m_spectrum.bars.data(),
                                static_cast<int>(m_spectrum.bars.size()));
    if (!m_message.isEmpty())
        m_interface->sendMessage(m_message);
}

void Widget::onReceiveMsg(QString msg)
{
    Q_UNUSED(msg)
}

void Widget::on_pushButton_released()
{
    SpecEngine::instance()->start();
    ui->textBrowser->append(QStringLiteral("启动"));
}

void Widget::on_pushButton_2_released()
{
    SpecEngine::instance()->stop();
    ui->textBrowser->append(QStringLiteral("停止"));
}

void Widget::on_comboBox_textActivated(QString arg1)
{
    ui->textBrowser->clear();
    SpecEngine::instance()->stop();
    ui->textBrowser->append(QStringLiteral("停止"));
    SpecEngine::instance()->setCurrentDevice(arg1);
    ui->textBrowser->append(QStringLiteral("设置设备：%1").arg(arg1));
    SpecEngine::instance()->start();
    ui->textBrowser->append(QStringLiteral("启动"));
}
