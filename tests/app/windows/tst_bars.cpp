// The whole program but its process entry, on the host's own audio system: a tone that is played
// outside is in the right bars of the messages that the window sends.
#include "app/widget.h"
#include "remote/commoninterface.h"
#include "report/deliverreport.h"
#include "tests/support/windows/outsideserver.h"

#include <algorithm>
#include <memory>
#include <QtTest>

namespace {

constexpr int kPatienceMs = 20000;
constexpr int kLevel = 60; // a tone's bar reaches it

struct Message {
    QStringList fields;
    std::vector<int> bars;

    explicit Message(const QString &text)
        : fields(text.split(QStringLiteral("/&+&/")))
    {
        for (int i = 4; i < fields.size(); ++i)
            bars.push_back(fields.at(i).toInt());
    }
    int loudest(int first, int last) const
    {
        return static_cast<int>(std::max_element(bars.begin() + first, bars.begin() + last)
                                - bars.begin());
    }
};

// A bar is 70 Hz wide; the left channel's are bars 49 down to 0, the right channel's 50 up to 99.
bool isAt(const Message &message, int first, int expected)
{
    const int bar = message.loudest(first, first + 50);
    return std::abs(bar - expected) <= 2 && message.bars[static_cast<std::size_t>(bar)] >= kLevel;
}

} // namespace

class BarsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void tonesAreInTheirBars();
    void toneOnTheRightLeavesTheLeftEmpty();
    void silenceEmptiesTheBars();

private:
    /// Whether a second of messages in a row fulfils it, before the patience ends.
    bool comes(bool (*fulfilled)(const Message &));

    OutsideServer m_server;
    std::unique_ptr<Widget> m_widget;
    QString m_last;
};

void BarsTest::initTestCase()
{
#ifdef TONEWELL_WINE_SESSION
    QVERIFY2(m_server.isThere(), "the session's sound server does not answer");
#else
    QSKIP("only a Wine session has a sound server outside that can play to Windows", "");
#endif
    setReportSink([](const QString &report) { qFatal("%s", qPrintable(report)); });
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    m_widget = std::make_unique<Widget>();
    m_widget->show();
}

bool BarsTest::comes(bool (*fulfilled)(const Message &))
{
    int inARow = 0;
    const auto connection =
        connect(m_widget->findChild<CommonInterface *>(), &CommonInterface::sigMessage, this,
                [&](const QString &text) {
                    const Message message(text);
                    m_last = text;
                    if (inARow < 50)
                        inARow = message.bars.size() == 100 && fulfilled(message) ? inARow + 1 : 0;
                });
    const bool came = QTest::qWaitFor([&] { return inARow == 50; }, kPatienceMs);
    disconnect(connection);
    return came;
}

void BarsTest::tonesAreInTheirBars()
{
    QVERIFY(m_server.playTones("speakers", 1000, 0.5, 2000, 0.5));
    const bool came = comes([](const Message &message) {
        return isAt(message, 0, 49 - 1000 / 70) && isAt(message, 50, 50 + 2000 / 70)
            && message.fields.at(1).toDouble() > 0;
    });
    QVERIFY2(came, qPrintable(m_last));
}

void BarsTest::toneOnTheRightLeavesTheLeftEmpty()
{
    QVERIFY(m_server.playTones("speakers", 1000, 0, 1000, 0.5));
    const bool came = comes([](const Message &message) {
        return isAt(message, 50, 50 + 1000 / 70)
            && message.bars[static_cast<std::size_t>(message.loudest(0, 50))] == 0;
    });
    QVERIFY2(came, qPrintable(m_last));
}

void BarsTest::silenceEmptiesTheBars()
{
    m_server.stopTones();
    const bool came = comes([](const Message &message) {
        return message.bars[static_cast<std::size_t>(message.loudest(0, 100))] == 0;
    });
    QVERIFY2(came, qPrintable(m_last));
    m_widget.reset();
}

QTEST_MAIN(BarsTest)
#include "tst_bars.moc"
