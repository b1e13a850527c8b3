// The program against everything that a consumer can send, and any number of consumers.
//
// A short form by default. The long one, and the form with a sanitizer (see docs/security.md):
//   TONEWELL_FUZZ_FRAMES, TONEWELL_FUZZ_CONNECTS   how many frames, how many connections
//   TONEWELL_FUZZ_SEED                             the seed of a run that failed
// From 100,000 frames or 10,000 connections on, it judges the figures as on a machine that does
// nothing else; below, it fails only for what no load explains.
#include "remote/consumerframes.h"
#include "remote/consumergate.h"
#include "tests/app/linux/programworld.h"
#include "tests/remote/framefuzz.h"
#include "tests/remote/frames.h"
#include "tests/remote/linux/connection.h"
#include "tests/support/linux/processfigures.h"
#include "tests/support/privatefolder.h"
#include "tools/monitor/messagesource.h"
#include "tools/monitor/messagestatistics.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <QThread>
#include <vector>

namespace {

constexpr int kPatienceMs = 30000;
constexpr int kStrictFrames = 100000;
constexpr int kStrictConnects = 10000;
constexpr int kWorkers = 4;
// What the program's own memory may differ by; a sanitizer's allocator goes up and down more.
#ifdef __SANITIZE_ADDRESS__
constexpr int kGrowthKb = 4096;
#else
constexpr int kGrowthKb = 512;
#endif

int setting(const char *name, int otherwise)
{
    bool isNumber = false;
    const int value = qEnvironmentVariableIntValue(name, &isNumber);
    return isNumber ? value : otherwise;
}

QList<QByteArray> recordedSessions()
{
    QList<QByteArray> result;
    const QFileInfoList files =
        QDir(QStringLiteral(CORPUS)).entryInfoList({QStringLiteral("*.bin")});
    for (const QFileInfo &info : files) {
        QFile file(info.filePath());
        if (file.open(QIODevice::ReadOnly))
            result.append(file.readAll());
    }
    return result;
}

/// What must become of a consumer that sends these bytes.
struct Verdict {
    int frames = 0; ///< that are looked at: the right ones, and the first wrong one
    int pings = 0; ///< of them
    bool isDropped = false;
    bool isWhole = false; ///< nothing more is waited for
};

Verdict judge(const QByteArray &bytes)
{
    ConsumerFrames consumer(frames::tonewell());
    Verdict result;
    int at = 0;
    for (;;) {
        const std::string_view rest(bytes.constData() + at,
                                    static_cast<std::size_t>(bytes.size() - at));
        const int size = consumer.receive(rest);
        if (size == 0) {
            result.isWhole = rest.empty();
            return result;
        }
        ++result.frames;
        if (size == ConsumerFrames::kWrong) {
            result.isDropped = true;
            return result;
        }
        result.pings += bytes.mid(at, size) == frames::ping() ? 1 : 0;
        at += size;
    }
}

/// What was sent, by all workers.
struct Fuzzed {
    std::atomic<int> frames {0};
    std::atomic<int> sessions {0};
    std::atomic<int> dropped {0};
};

/// Sends sessions until so many frames have been looked at. Returns the session that went another
/// way than it must; empty if none did.
QByteArray fuzz(const QByteArray &path, quint32 seed, int frames, Fuzzed *sum)
{
    FrameFuzz source(seed, recordedSessions());
    while (sum->frames < frames) {
        QByteArray session = source.session() + frames::ping();
        const Verdict verdict = judge(session);
        Connection connection(path);
        connection.send(session);
        bool isRight = true;
        if (verdict.isDropped)
            isRight = connection.waitForEnd(kPatienceMs);
        else if (verdict.isWhole)
            isRight = connection.waitForPongs(verdict.pings, kPatienceMs);
        if (!isRight)
            return session;
        ++sum->sessions;
        sum->dropped += verdict.isDropped ? 1 : 0;
        sum->frames += verdict.frames;
    }
    return {};
}

/// A consumer that means well, in this thread; counts while the thread's events are handled.
class HealthyConsumer {
public:
    HealthyConsumer()
    {
        m_clock.start();
        QObject::connect(&m_source, &MessageSource::messageReceived, &m_source, [this] {
            m_statistics.addMessage(static_cast<double>(m_clock.nsecsElapsed()) * 1e-6);
        });
    }
    const MessageStatistics &statistics() const { return m_statistics; }

private:
    QElapsedTimer m_clock;
    MessageStatistics m_statistics;
    MessageSource m_source;
};

} // namespace

class ConsumerFuzzTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void framesOfAllKinds();
    void connectsAndDisconnects();
    void fiveHundredAtOnceUnderAFewDescriptors();
    void floodsDelayNobody();

private:
    QByteArray path() const { return QFile::encodeName(m_world->socket()); }
    void start();
    void end();
    void checkRate(bool strict);
    void checkMemory(long before);

    std::unique_ptr<ProgramWorld> m_world;
    std::unique_ptr<QProcess> m_program;
    std::unique_ptr<HealthyConsumer> m_healthy;
    std::unique_ptr<PrivateFolder> m_folder;
};

void ConsumerFuzzTest::init()
{
    m_world = std::make_unique<ProgramWorld>();
    // What a sanitizer keeps to find late accesses is not the program's.
    m_world->environment.insert(QStringLiteral("ASAN_OPTIONS"),
                                qEnvironmentVariable("ASAN_OPTIONS")
                                    + QStringLiteral(":quarantine_size_mb=1"));
    // The replica of this process looks where the program's socket is.
    m_folder = std::make_unique<PrivateFolder>(QFileInfo(m_world->socket()).path());
}

void ConsumerFuzzTest::cleanup()
{
    m_healthy.reset();
    m_folder.reset();
    m_program.reset();
    m_world.reset();
}

void ConsumerFuzzTest::start()
{
    m_program = m_world->startAndWait();
    QVERIFY(m_program);
    m_healthy = std::make_unique<HealthyConsumer>();
    QTRY_VERIFY_WITH_TIMEOUT(m_healthy->statistics().messages() > 50, kPatienceMs);
}

void ConsumerFuzzTest::end()
{
    QCOMPARE(m_program->state(), QProcess::Running);
    const qint64 messages = m_healthy->statistics().messages();
    QTRY_VERIFY_WITH_TIMEOUT(m_healthy->statistics().messages() > messages + 5, kPatienceMs);
    m_program->terminate();
    QVERIFY(m_program->waitForFinished(kPatienceMs));
    QCOMPARE(m_program->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_program->exitCode(), 0);
}

void ConsumerFuzzTest::checkRate(bool strict)
{
    const MessageStatistics &statistics = m_healthy->statistics();
    qInfo("a healthy consumer: %lld messages, %.2f a second, longest gap %.0f ms",
          statistics.messages(), statistics.rate(), statistics.longestGap());
    if (strict)
        QVERIFY2(qAbs(statistics.rate() - 50) <= 0.5, qPrintable(statistics.report()));
    else
        QVERIFY2(statistics.rate() > 10, qPrintable(statistics.report()));
}

void ConsumerFuzzTest::checkMemory(long before)
{
    const long after = ownMemory(*m_program);
    qInfo("own memory: %ld kB, then %ld kB", before, after);
    QVERIFY(before > 0);
    QVERIFY2(after < before + kGrowthKb, qPrintable(QString::number(after)));
}

void ConsumerFuzzTest::framesOfAllKinds()
{
    const int frames = setting("TONEWELL_FUZZ_FRAMES", 20000);
    const auto seed = static_cast<quint32>(setting(
        "TONEWELL_FUZZ_SEED", static_cast<int>(QRandomGenerator::global()->bounded(1 << 30))));
    qInfo("TONEWELL_FUZZ_SEED=%u", seed);
    QVERIFY(!recordedSessions().isEmpty());
    start();
    const int open = descriptors(*m_program);

    Fuzzed sum;
    std::vector<std::future<QByteArray>> workers;
    workers.reserve(kWorkers);
    for (int i = 0; i < kWorkers; ++i)
        workers.push_back(std::async(std::launch::async, fuzz, path(),
                                     seed + static_cast<quint32>(i), frames, &sum));
    const auto runs = [&](int until) {
        return sum.frames < until
            && std::all_of(workers.cbegin(), workers.cend(), [](const auto &worker) {
                   return worker.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
               });
    };
    // What the first tenth takes, its buffers and caches, is kept.
    while (runs(frames / 10))
        QTest::qWait(20);
    const long before = ownMemory(*m_program);
    while (runs(frames))
        QTest::qWait(20);
    for (std::future<QByteArray> &worker : workers) {
        const QByteArray wrong = worker.get();
        QVERIFY2(wrong.isEmpty(), wrong.toHex().constData());
    }
    qInfo("%d frames on %d connections, %d of them dropped", sum.frames.load(), sum.sessions.load(),
          sum.dropped.load());
    QVERIFY(sum.frames >= frames);
    QVERIFY(sum.dropped > sum.sessions / 10);
    QVERIFY(sum.dropped < sum.sessions - sum.sessions / 10);
    QTRY_COMPARE_WITH_TIMEOUT(descriptors(*m_program), open, kPatienceMs);
    checkMemory(before);
    checkRate(frames >= kStrictFrames);
    end();
}

void ConsumerFuzzTest::connectsAndDisconnects()
{
    const int connects = setting("TONEWELL_FUZZ_CONNECTS", 1000);
    start();
    const int open = descriptors(*m_program);
    long before = 0;
    for (int i = 0; i < connects; ++i) {
        Connection connection(path());
        if (i % 2)
            connection.send(frames::attach());
        QVERIFY(connection.waitForData(kPatienceMs));
        if (i % 10 == 0)
            QTest::qWait(1);
        if (i == connects / 10)
            before = ownMemory(*m_program);
    }
    QTRY_COMPARE_WITH_TIMEOUT(descriptors(*m_program), open, kPatienceMs);
    qInfo("%d connections", connects);
    checkMemory(before);
    checkRate(connects >= kStrictConnects);
    end();
}

void ConsumerFuzzTest::fiveHundredAtOnceUnderAFewDescriptors()
{
    m_world->descriptorLimit = 64;
    start();
    const int open = descriptors(*m_program);
    std::vector<std::unique_ptr<Connection>> connections;
    int most = 0;
    for (int i = 0; i < 500; ++i) {
        connections.push_back(std::make_unique<Connection>(path()));
        QVERIFY(connections.back()->isOpen());
        QTest::qWait(1);
        most = qMax(most, descriptors(*m_program));
    }
    qInfo("descriptors: %d before, %d at most", open, most);
    QVERIFY(most > open);
    QVERIFY(most <= 64);

    QElapsedTimer clock;
    connections.clear();
    clock.start();
    const auto served = [this] { return Connection(path()).waitForData(100); };
    QTRY_VERIFY_WITH_TIMEOUT(served(), kPatienceMs);
    const qint64 took = clock.elapsed();
    qInfo("a new one is served after %lld ms", took);
    if (setting("TONEWELL_FUZZ_CONNECTS", 0) >= kStrictConnects)
        QVERIFY(took < 1000);
    QTRY_COMPARE_WITH_TIMEOUT(descriptors(*m_program), open, kPatienceMs);
    checkRate(false);
    end();
}

// As many as are admitted beside the healthy one, each with as many heartbeats as it gets rid of.
void ConsumerFuzzTest::floodsDelayNobody()
{
    start();
    const int open = descriptors(*m_program);
    std::atomic<bool> enough {false};
    auto flooding = std::async(std::launch::async, [&enough, name = path()] {
        std::vector<std::unique_ptr<Connection>> connections;
        for (int i = 1; i < ConsumerGate::kMostConsumers; ++i)
            connections.push_back(std::make_unique<Connection>(name));
        QByteArray beats;
        for (int i = 0; i < 1000; ++i)
            beats += frames::ping();
        while (!enough) {
            for (const auto &connection : connections)
                connection->flood(beats);
            QThread::msleep(5);
        }
        // Nobody was dropped: each is answered again.
        return std::all_of(connections.cbegin(), connections.cend(), [](const auto &connection) {
            return connection->waitForData(kPatienceMs);
        });
    });
    const long before = ownMemory(*m_program);
    const bool strict = setting("TONEWELL_FUZZ_CONNECTS", 0) >= kStrictConnects;
    QTest::qWait(strict ? 20000 : 2000);
    qInfo("own memory: %ld kB, then %ld kB", before, ownMemory(*m_program));
    enough = true;
    QVERIFY(flooding.get());
    checkRate(strict);
    QTRY_COMPARE_WITH_TIMEOUT(descriptors(*m_program), open, kPatienceMs);
    end();
}

QTEST_GUILESS_MAIN(ConsumerFuzzTest)
#include "tst_consumerfuzz.moc"
