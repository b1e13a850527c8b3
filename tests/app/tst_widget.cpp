// The main window on a scripted audio system.
#include "app/widget.h"
#include "capture/diagnosticlog.h"
#include "platform/diagnosticlogpath.h"
#include "remote/commoninterface.h"
#include "report/deliverreport.h"
#include "spectrum/specengine.h"
#include "tests/support/fakeaudio.h"
#include "tests/support/messagelog.h"
#include "tests/support/virtualmain.h"
#include "tests/support/waiting.h"

#include <memory>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QHBoxLayout>
#include <QLabel>
#include <QMetaMethod>
#include <QPushButton>
#include <QRemoteObjectHost>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <QTextBrowser>
#include <QTimer>
#include <QTranslator>

namespace {

constexpr int kPatienceMs = 20000;

/// Made before the engine, so that it goes after it.
FakeAudio &world()
{
    static FakeAudio audio;
    return audio;
}

QString speakers()
{
    return QStringLiteral("Speakers (当前默认)");
}
QString screen()
{
    return QStringLiteral("HDMI 输出");
}

/// A number of the last message; 0 before there is one.
double lastField(const QSignalSpy &sent, int index)
{
    const QString message = sent.isEmpty() ? QString() : sent.last().at(0).toString();
    return message.section(QStringLiteral("/&+&/"), index, index).toDouble();
}

/// Answers in capitals for one context only.
class Capitals : public QTranslator {
public:
    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *source, const char *, int) const override
    {
        if (qstrcmp(context, "Widget") != 0)
            return {};
        return QStringLiteral("<%1>").arg(QString::fromUtf8(source));
    }
};

} // namespace

/// Looks into the engine.
class SpecEnginePeer {
public:
    static double smoothing() { return SpecEngine::instance()->m_smoothing; }
    static int historyLength() { return SpecEngine::instance()->m_historyLength; }
    static double quantile() { return SpecEngine::instance()->m_quantile; }
    static const std::vector<Spectrum *> &spectra() { return SpecEngine::instance()->m_spectra; }
};

class WidgetTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void formAsDesigned_data();
    void formAsDesigned();
    void childrenInOrder();
    void onlyAWindowThatCanBeSeenIsLaidOut();
    void textsAreTranslatable();
    void slotsInOrder();
    void neverOnTheTaskBarAndNotVisibleOnScreen();
    void tunesTheEngineAndSwitchesTheLogOff();
    void comboHoldsTheEnginesDevices();
    void comboIsFilledOnce();
    void activatingTheCurrentItemRestarts();
    void activatingAnotherItemSwitches();
    void pressingStopTwice();
    void pressingStart();
    void publishesOnAPreciseTimerOfTwentyMilliseconds();
    void messageHoldsTheEnginesValues();
    void messageFromAReplicaReachesTheWindow();
    void messageFromAReplicaChangesNothing();
    void destructionStopsCaptureAndUnregistersTheBars();

private:
    static bool captures(const QString &id)
    {
        return waitUntil([&] { return world().capturedDevice() == id; }, kPatienceMs);
    }
    QStringList logView() const
    {
        return m_widget->findChild<QTextBrowser *>()->toPlainText().split(QLatin1Char('\n'));
    }

    std::unique_ptr<Widget> m_widget;
};

void WidgetTest::initTestCase()
{
    world().add(QStringLiteral("speakers"), QStringLiteral("Speakers"));
    world().add(QStringLiteral("hdmi"), screen());
    world().setDefault(QStringLiteral("speakers"));
    setReportSink([](const QString &report) { qFatal("%s", qPrintable(report)); });
}

void WidgetTest::init()
{
    m_widget = std::make_unique<Widget>();
    m_widget->show();
    QVERIFY(waitUntil([&] { return !world().capturedDevice().isEmpty(); }, kPatienceMs));
}

void WidgetTest::cleanup()
{
    m_widget.reset();
    QVERIFY(waitUntil([&] { return world().capturedDevice().isEmpty(); }, kPatienceMs));
}

void WidgetTest::formAsDesigned_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("className");
    QTest::addColumn<QRect>("geometry");
    QTest::addColumn<QString>("text");
    QTest::newRow("start") << QStringLiteral("pushButton") << QStringLiteral("QPushButton")
                           << QRect(9, 40, 80, 23) << QStringLiteral("启动");
    QTest::newRow("stop") << QStringLiteral("pushButton_2") << QStringLiteral("QPushButton")
                          << QRect(110, 40, 80, 23) << QStringLiteral("停止");
    QTest::newRow("log") << QStringLiteral("textBrowser") << QStringLiteral("QTextBrowser")
                         << QRect(9, 69, 311, 122) << QString();
    QTest::newRow("row") << QStringLiteral("layoutWidget") << QStringLiteral("QWidget")
                         << QRect(9, 9, 311, 29) << QString();
}

void WidgetTest::formAsDesigned()
{
    QFETCH(QString, name);
    QFETCH(QString, className);
    QFETCH(QRect, geometry);
    QFETCH(QString, text);
    auto *const child = m_widget->findChild<QWidget *>(name);
    QVERIFY(child);
    QCOMPARE(QLatin1String(child->metaObject()->className()), className);
    QCOMPARE(child->parentWidget(), m_widget.get());
    QCOMPARE(child->geometry(), geometry);
    if (const auto *const button = qobject_cast<QPushButton *>(child))
        QCOMPARE(button->text(), text);
}

void WidgetTest::onlyAWindowThatCanBeSeenIsLaidOut()
{
    const auto *const label = m_widget->findChild<QLabel *>(QStringLiteral("label"));
    const auto *const combo = m_widget->findChild<QComboBox *>(QStringLiteral("comboBox"));
    QVERIFY(m_widget->isVisible());
    QCOMPARE(combo->pos(), label->pos());
    m_widget->resize(330, 200);
    QVERIFY(waitUntil([&] { return combo->x() >= label->width(); }, 5000));
    QCOMPARE(combo->geometry().right(), 310);
    m_widget->resize(1, 1);
}

void WidgetTest::childrenInOrder()
{
    QCOMPARE(m_widget->objectName(), QStringLiteral("Widget"));
    QCOMPARE(m_widget->windowTitle(), QStringLiteral("TonewellDetection"));
    QStringList names;
    const auto widgets = m_widget->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
    for (const QWidget *widget : widgets)
        names.append(widget->objectName());
    QCOMPARE(names,
             QStringList({QStringLiteral("pushButton"), QStringLiteral("pushButton_2"),
                          QStringLiteral("textBrowser"), QStringLiteral("layoutWidget")}));

    const auto *const layout =
        m_widget->findChild<QHBoxLayout *>(QStringLiteral("horizontalLayout"));
    QVERIFY(layout);
    QCOMPARE(layout->parentWidget()->objectName(), QStringLiteral("layoutWidget"));
    QCOMPARE(layout->contentsMargins(), QMargins(0, 0, 0, 0));
    QCOMPARE(layout->count(), 2);
    const auto *const label = qobject_cast<QLabel *>(layout->itemAt(0)->widget());
    QVERIFY(label);
    QCOMPARE(label->objectName(), QStringLiteral("label"));
    QCOMPARE(label->text(), QStringLiteral("设备列表："));
    QCOMPARE(label->sizePolicy().horizontalPolicy(), QSizePolicy::Maximum);
    QCOMPARE(label->sizePolicy().verticalPolicy(), QSizePolicy::Preferred);
    const auto *const combo = qobject_cast<QComboBox *>(layout->itemAt(1)->widget());
    QVERIFY(combo);
    QCOMPARE(combo->objectName(), QStringLiteral("comboBox"));
    QCOMPARE(combo->sizePolicy().horizontalPolicy(), QSizePolicy::Preferred);
    QCOMPARE(combo->sizePolicy().verticalPolicy(), QSizePolicy::Fixed);
}

void WidgetTest::textsAreTranslatable()
{
    Capitals capitals;
    QVERIFY(QCoreApplication::installTranslator(&capitals));
    m_widget.reset();
    m_widget = std::make_unique<Widget>();
    QCoreApplication::removeTranslator(&capitals);
    QCOMPARE(m_widget->windowTitle(), QStringLiteral("<TonewellDetection>"));
    QCOMPARE(m_widget->findChild<QPushButton *>(QStringLiteral("pushButton"))->text(),
             QStringLiteral("<启动>"));
    QCOMPARE(m_widget->findChild<QPushButton *>(QStringLiteral("pushButton_2"))->text(),
             QStringLiteral("<停止>"));
    QCOMPARE(m_widget->findChild<QLabel *>(QStringLiteral("label"))->text(),
             QStringLiteral("<设备列表：>"));
    QCOMPARE(m_widget->findChild<QComboBox *>()->itemText(2), QStringLiteral("<%1>").arg(screen()));
}

void WidgetTest::slotsInOrder()
{
    const QMetaObject &meta = Widget::staticMetaObject;
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        QCOMPARE(method.methodType(), QMetaMethod::Slot);
        QCOMPARE(method.access(),
                 i == meta.methodOffset() ? QMetaMethod::Public : QMetaMethod::Private);
        methods.append(QString::fromLatin1(method.methodSignature()));
    }
    QCOMPARE(methods,
             QStringList({QStringLiteral("timeOver()"), QStringLiteral("onReceiveMsg(QString)"),
                          QStringLiteral("on_pushButton_released()"),
                          QStringLiteral("on_pushButton_2_released()"),
                          QStringLiteral("on_comboBox_textActivated(QString)"),
                          QStringLiteral("restartService()")}));
}

void WidgetTest::neverOnTheTaskBarAndNotVisibleOnScreen()
{
    // A tool window has no entry on the task bar.
    QCOMPARE(m_widget->windowType(), Qt::Tool);
    QVERIFY(m_widget->windowFlags().testFlag(Qt::FramelessWindowHint));
    QVERIFY(m_widget->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    QVERIFY(m_widget->testAttribute(Qt::WA_TranslucentBackground));
    QCOMPARE(m_widget->size(), QSize(1, 1));
    QCOMPARE(m_widget->pos(), QPoint(-100, -100));
    const QList<QScreen *> screens = QGuiApplication::screens();
    QVERIFY(!screens.isEmpty());
    for (const QScreen *const one : screens)
        QVERIFY(!one->geometry().intersects(m_widget->frameGeometry()));
    QVERIFY(!QGuiApplication::quitOnLastWindowClosed());
}

void WidgetTest::tunesTheEngineAndSwitchesTheLogOff()
{
    QCOMPARE(SpecEnginePeer::smoothing(), 0.5);
    QCOMPARE(SpecEnginePeer::historyLength(), 10);
    QCOMPARE(SpecEnginePeer::quantile(), 0.1);
    QCOMPARE(SpecEnginePeer::spectra().size(), static_cast<std::size_t>(1));
    const Spectrum &bars = *SpecEnginePeer::spectra().front();
    QCOMPARE(bars.minFrequency, -7000);
    QCOMPARE(bars.maxFrequency, 7000);
    QCOMPARE(bars.bars.size(), static_cast<std::size_t>(100));

    // The log goes off after the start, just before the timer starts.
    m_widget.reset();
    qputenv("XDG_STATE_HOME", QFile::encodeName(QDir::tempPath() + QStringLiteral("/state")));
    QFile::remove(diagnosticLogPath());
    enableDiagnosticLog(true);
    m_widget = std::make_unique<Widget>();
    QFile file(diagnosticLogPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(QString::fromUtf8(file.readAll()).contains(QStringLiteral("] startCapture 开始, ")));
    file.close();
    QVERIFY(QFile::remove(diagnosticLogPath()));
    writeDiagnosticLog(QStringLiteral("not to be seen"));
    QVERIFY(!QFile::exists(diagnosticLogPath()));
}

void WidgetTest::comboHoldsTheEnginesDevices()
{
    MessageLog log;
    m_widget.reset();
    m_widget = std::make_unique<Widget>();
    const auto *const combo = m_widget->findChild<QComboBox *>();
    const QStringList expected {QStringLiteral("默认输出设备"), speakers(), screen()};
    QStringList items;
    for (int i = 0; i < combo->count(); ++i) {
        items.append(combo->itemText(i));
        QVERIFY(combo->itemIcon(i).isNull());
        QVERIFY(!combo->itemData(i).isValid());
    }
    QCOMPARE(items, expected);
    QVERIFY(log.contains(QStringLiteral("------获取设备列表:------")));
}

void WidgetTest::comboIsFilledOnce()
{
    const QString id = QStringLiteral("late");
    world().add(id, QStringLiteral("Late"));
    world().setDefault(id);
    VirtualThread([&] {
        world().notifyAdded(id);
        world().notifyDefaultChanged(id); // which rebuilds the catalogue
    }).join();
    QVERIFY(captures(id));
    QCOMPARE(SpecEngine::instance()->deviceList().size(), 4);
    const auto *const combo = m_widget->findChild<QComboBox *>();
    QCOMPARE(combo->count(), 3);
    QCOMPARE(combo->itemText(1), speakers());
    world().setDefault(QStringLiteral("speakers"));
    world().remove(id);
}

void WidgetTest::activatingTheCurrentItemRestarts()
{
    auto *const combo = m_widget->findChild<QComboBox *>();
    const QString current = combo->itemText(0);
    auto *const view = m_widget->findChild<QTextBrowser *>();
    view->append(QStringLiteral("what was there before"));
    const int before = world().calls(FakeCall::Initialize);
    // For each line: how many starts there had been when it came.
    QStringList steps;
    connect(view, &QTextBrowser::textChanged, this, [&] {
        const QString last = logView().constLast();
        if (last.isEmpty())
            return;
        steps.append(QStringLiteral("%1, starts: %2")
                         .arg(last)
                         .arg(world().calls(FakeCall::Initialize) - before));
        if (steps.size() == 1 && SpecEngine::instance()->isCapturing())
            steps.append(QStringLiteral("still capturing"));
    });
    Q_EMIT combo->textActivated(current);
    QCOMPARE(world().calls(FakeCall::Initialize), before + 2);
    QCOMPARE(logView(),
             QStringList({QStringLiteral("停止"), QStringLiteral("设置设备：%1").arg(current),
                          QStringLiteral("启动")}));
    steps.removeDuplicates(); // one line may come in several changes
    QCOMPARE(steps,
             QStringList({QStringLiteral("停止, starts: 0"),
                          QStringLiteral("设置设备：%1, starts: 1").arg(current),
                          QStringLiteral("启动, starts: 2")}));
    QVERIFY(captures(QStringLiteral("speakers")));
    QVERIFY(SpecEngine::instance()->isCapturing());
}

void WidgetTest::activatingAnotherItemSwitches()
{
    auto *const combo = m_widget->findChild<QComboBox *>();
    Q_EMIT combo->textActivated(screen());
    QCOMPARE(logView(),
             QStringList({QStringLiteral("停止"), QStringLiteral("设置设备：%1").arg(screen()),
                          QStringLiteral("启动")}));
    QVERIFY(captures(QStringLiteral("hdmi")));
    // The name is passed on as shown, suffix included.
    Q_EMIT combo->textActivated(speakers());
    QVERIFY(captures(QStringLiteral("speakers")));
    Q_EMIT combo->textActivated(combo->itemText(0));
    QVERIFY(captures(QStringLiteral("speakers")));
}

void WidgetTest::pressingStopTwice()
{
    QSignalSpy sent(m_widget->findChild<CommonInterface *>(), &CommonInterface::sigMessage);
    const auto level = [&] { return lastField(sent, 1); };
    QVERIFY(waitUntil([&] { return qAbs(level() - 100) < 0.5; }, kPatienceMs)); // 400 times 0.25
    auto *const stop = m_widget->findChild<QPushButton *>(QStringLiteral("pushButton_2"));
    Q_EMIT stop->released();
    Q_EMIT stop->released();
    QCOMPARE(logView(), QStringList({QStringLiteral("停止"), QStringLiteral("停止")}));
    QVERIFY(waitUntil([&] { return world().capturedDevice().isEmpty(); }, kPatienceMs));
    QVERIFY(!SpecEngine::instance()->isCapturing());
    // Longer than any restart would wait.
    sent.clear();
    spin(1200);
    QVERIFY(!SpecEngine::instance()->isCapturing());
    QCOMPARE(sent.count(), 60);
    QVERIFY2(qAbs(level() - 100) < 0.5, qPrintable(QString::number(level())));
}

void WidgetTest::pressingStart()
{
    Q_EMIT m_widget->findChild<QPushButton *>(QStringLiteral("pushButton_2"))->released();
    QVERIFY(waitUntil([&] { return world().capturedDevice().isEmpty(); }, kPatienceMs));
    Q_EMIT m_widget->findChild<QPushButton *>(QStringLiteral("pushButton"))->released();
    QCOMPARE(logView(), QStringList({QStringLiteral("停止"), QStringLiteral("启动")}));
    QVERIFY(captures(QStringLiteral("speakers")));
}

void WidgetTest::publishesOnAPreciseTimerOfTwentyMilliseconds()
{
    const auto timers = m_widget->findChildren<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
    QCOMPARE(timers.size(), 1);
    QCOMPARE(timers.first()->interval(), 20);
    QCOMPARE(timers.first()->timerType(), Qt::PreciseTimer);
    QVERIFY(!timers.first()->isSingleShot());
    QVERIFY(timers.first()->isActive());
    QSignalSpy sent(m_widget->findChild<CommonInterface *>(), &CommonInterface::sigMessage);
    QVERIFY(waitUntil([&] { return sent.count() == 1; }, 20));
    spin(19);
    QCOMPARE(sent.count(), 1);
    spin(1);
    QCOMPARE(sent.count(), 2);
    spin(1000);
    QCOMPARE(sent.count(), 52);
    const QStringList fields = sent.last().at(0).toString().split(QStringLiteral("/&+&/"));
    QCOMPARE(fields.size(), 104);
    QCOMPARE(fields.first(), QStringLiteral("SoundSpectrum"));
}

void WidgetTest::messageHoldsTheEnginesValues()
{
    auto *const source = m_widget->findChild<CommonInterface *>();
    QSignalSpy sent(source, &CommonInterface::sigMessage);
    // A constant level of 0.25 is captured: the smoothed levels approach it.
    const auto field = [&](int index) { return lastField(sent, index); };
    QVERIFY(waitUntil([&] { return qAbs(field(1) - 100) < 0.5; }, kPatienceMs));
    QVERIFY(waitUntil([&] { return qAbs(field(2) - 100) < 0.5; }, kPatienceMs));

    Spectrum &spectrum = *SpecEnginePeer::spectra().front();
    spectrum.bars.assign(100, 0.0F);
    spectrum.bars[1] = 0.03F;
    spectrum.bars[99] = 0.2175F;
    sent.clear();
    m_widget->timeOver();
    QCOMPARE(sent.count(), 1);
    const SpecEngine *const engine = SpecEngine::instance();
    QStringList expected {QStringLiteral("SoundSpectrum"),
                          QString::number(engine->rmsLevel() * 400.0, 'g', 6),
                          QString::number(engine->peakLevel() * 400.0, 'g', 6),
                          QString::number(engine->dynamicLevel() * 400.0, 'g', 6)};
    for (int i = 0; i < 100; ++i)
        expected.append(i == 1        ? QStringLiteral("12")
                            : i == 99 ? QStringLiteral("87")
                                      : QStringLiteral("0"));
    QCOMPARE(sent.at(0).at(0).toString().split(QStringLiteral("/&+&/")), expected);

    // No bars: four fields, still sent.
    std::vector<float> bars;
    bars.swap(spectrum.bars);
    m_widget->timeOver();
    bars.swap(spectrum.bars);
    QCOMPARE(sent.count(), 2);
    QCOMPARE(sent.at(1).at(0).toString().split(QStringLiteral("/&+&/")), expected.mid(0, 4));
}

// The slot does nothing that could be seen, so the connection itself is looked at, and taken away:
// there is one, and it ends in the window.
void WidgetTest::messageFromAReplicaReachesTheWindow()
{
    const auto *const source = m_widget->findChild<CommonInterface *>();
    const auto disconnectOne = [&] {
        return QObject::disconnect(source, &CommonInterface::sigReceiveMsg, m_widget.get(),
                                   nullptr);
    };
    QVERIFY(disconnectOne());
    QVERIFY(!disconnectOne());
}

void WidgetTest::messageFromAReplicaChangesNothing()
{
    auto *const source = m_widget->findChild<CommonInterface *>();
    QVERIFY(m_widget->findChild<QRemoteObjectHost *>());
    QSignalSpy received(source, &CommonInterface::sigReceiveMsg);
    const int before = world().calls(FakeCall::Initialize);
    for (const char *text : {"", "stop", "停止", "SoundSpectrum/&+&/1"})
        source->onMessage(QString::fromUtf8(text));
    QCOMPARE(received.count(), 4);
    QCOMPARE(logView(), QStringList(QString()));
    spin(100);
    QVERIFY(SpecEngine::instance()->isCapturing());
    QCOMPARE(world().calls(FakeCall::Initialize), before);
}

void WidgetTest::destructionStopsCaptureAndUnregistersTheBars()
{
    QVERIFY(SpecEngine::instance()->isCapturing());
    m_widget.reset();
    QVERIFY(SpecEnginePeer::spectra().empty());
    QVERIFY(waitUntil([&] { return world().capturedDevice().isEmpty(); }, kPatienceMs));
    QVERIFY(!SpecEngine::instance()->isCapturing());
}

VIRTUAL_TIME_MAIN_WITH(QApplication, WidgetTest)
#include "tst_widget.moc"
