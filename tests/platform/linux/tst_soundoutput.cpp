// What a real sound server is said to play to, as it changes.
#include "platform/soundoutput.h"
#include "tests/support/linux/soundserver.h"

#include <QTest>

namespace {

constexpr int kPatienceMs = 20000;
constexpr SoundServer::Kind kKind = TONEWELL_TEST_SERVER;

} // namespace

class SoundOutputTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void nothingIsAskedWhileItIsNotActive();
    void theServersStateIsFollowed();
    void itCanEndAtAnyTime();

private:
    SoundServer m_server {kKind};
};

void SoundOutputTest::initTestCase()
{
    QVERIFY2(SoundServer::missingProgram(kKind).isEmpty(),
             qPrintable(SoundServer::missingProgram(kKind)));
    m_server.adoptEnvironment();
}

void SoundOutputTest::nothingIsAskedWhileItIsNotActive()
{
    SoundOutput output;
    QCOMPARE(output.state().kind, SoundOutputState::Unknown);
    output.setActive(true);
    QTRY_COMPARE_WITH_TIMEOUT(output.state().kind, SoundOutputState::NoServer, kPatienceMs);
    output.setActive(false);
    QCOMPARE(output.state().kind, SoundOutputState::Unknown);
}

void SoundOutputTest::theServersStateIsFollowed()
{
    SoundOutput output;
    output.setActive(true);
    QTRY_COMPARE_WITH_TIMEOUT(output.state().kind, SoundOutputState::NoServer, kPatienceMs);
    QVERIFY2(m_server.start(), qPrintable(m_server.errorText()));
    QTRY_COMPARE_WITH_TIMEOUT(output.state().kind, SoundOutputState::NoDevice, kPatienceMs);

    SoundServer::Sink speaker;
    speaker.name = "speaker";
    speaker.description = "Living_Room";
    QVERIFY2(m_server.addSink(speaker), qPrintable(m_server.errorText()));
    QVERIFY(m_server.setDefaultSink("speaker"));
    const SoundOutputState idle {SoundOutputState::Idle, QStringLiteral("Living_Room")};
    QTRY_VERIFY_WITH_TIMEOUT(output.state() == idle, kPatienceMs);

    {
        const Tone tone(m_server, speaker, 440, {0.5, 0.5});
        QVERIFY(tone.isPlaying());
        const SoundOutputState playing {SoundOutputState::Playing, idle.name};
        QTRY_VERIFY_WITH_TIMEOUT(output.state() == playing, kPatienceMs);

        // What plays elsewhere does not play here.
        SoundServer::Sink other;
        other.name = "other";
        other.description = "Kitchen";
        QVERIFY2(m_server.addSink(other), qPrintable(m_server.errorText()));
        QVERIFY(m_server.setDefaultSink("other"));
        const SoundOutputState elsewhere {SoundOutputState::Idle, QStringLiteral("Kitchen")};
        QTRY_VERIFY_WITH_TIMEOUT(output.state() == elsewhere, kPatienceMs);
        QVERIFY(m_server.removeSink("other"));
    }
    QTRY_VERIFY_WITH_TIMEOUT(output.state() == idle, kPatienceMs);

    QVERIFY(m_server.kill());
    QTRY_COMPARE_WITH_TIMEOUT(output.state().kind, SoundOutputState::NoServer, kPatienceMs);
    QVERIFY2(m_server.start(), qPrintable(m_server.errorText()));
    QTRY_COMPARE_WITH_TIMEOUT(output.state().kind, SoundOutputState::NoDevice, kPatienceMs);
    QVERIFY(m_server.kill());
}

void SoundOutputTest::itCanEndAtAnyTime()
{
    QVERIFY2(m_server.start(), qPrintable(m_server.errorText()));
    for (int i = 0; i < 50; ++i) {
        SoundOutput output;
        output.setActive(true);
        QTest::qWait(i % 10);
        if (i % 2 == 0)
            output.setActive(false);
    }
    SoundOutput output;
    output.setActive(true);
    QTRY_COMPARE_WITH_TIMEOUT(output.state().kind, SoundOutputState::NoDevice, kPatienceMs);
    // A server that hangs keeps nobody waiting here.
    QVERIFY(m_server.hang());
    {
        SoundOutput unanswered;
        unanswered.setActive(true);
        QTest::qWait(100);
        QCOMPARE(unanswered.state().kind, SoundOutputState::Unknown);
    }
    QVERIFY(m_server.resume());
    QVERIFY(m_server.kill());
}

QTEST_GUILESS_MAIN(SoundOutputTest)
#include "tst_soundoutput.moc"
