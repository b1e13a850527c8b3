// What becomes of the memory that consumers have cost.
#include "platform/heap.h"
#include "remote/consumer.h"
#include "remote/consumergate.h"
#include "tests/remote/frames.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <QFile>
#include <QLocalSocket>
#include <QRemoteObjectHost>
#include <QTest>
#include <QUrl>
#include <vector>

namespace {

constexpr int kPatienceMs = 30000;
constexpr std::size_t kBlockBytes = 16384;
constexpr int kBlocks = 1024;
constexpr long kBlocksKb = 16384;

/// This process's memory that is no file's, kB; -1 when it cannot be read.
long ownMemory()
{
    QFile file(QStringLiteral("/proc/self/smaps_rollup"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("Anonymous:"))
            return line.simplified().split(' ').at(1).toLong();
    }
    return -1;
}

struct Free {
    void operator()(void *memory) const { std::free(memory); }
};
using Block = std::unique_ptr<void, Free>;

Block block()
{
    Block result(std::malloc(kBlockBytes));
    std::memset(result.get(), 1, kBlockBytes);
    return result;
}

/// Frees kBlocksKb; what is returned lies above and is in use.
Block freeBelow()
{
    std::vector<Block> blocks;
    blocks.reserve(kBlocks);
    for (int i = 0; i < kBlocks; ++i)
        blocks.push_back(block());
    return block();
}

} // namespace

class ConsumerMemoryTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void whatIsFreeBelowWhatIsInUseIsGivenBack();
    void itIsGivenBackWhenAConsumerHasLeft();
    void itIsGivenBackWhenAConsumerHasCaughtUp();

private:
    int consumers() const { return m_gate->findChildren<Consumer *>().size(); }

    std::unique_ptr<QRemoteObjectHost> m_host;
    ConsumerGate *m_gate = nullptr;
    QLocalSocket m_one;
    QLocalSocket m_other;
};

void ConsumerMemoryTest::init()
{
    static int s_number = 0;
    const QString name = QStringLiteral("tonewell-memory-%1-%2")
                             .arg(QCoreApplication::applicationPid())
                             .arg(++s_number);
    m_host = std::make_unique<QRemoteObjectHost>();
    m_gate =
        new ConsumerGate(m_host.get(), QUrl(QStringLiteral("local:") + name), frames::tonewell());
    m_one.connectToServer(name);
    m_other.connectToServer(name);
    QTRY_COMPARE_WITH_TIMEOUT(consumers(), 2, kPatienceMs);
}

void ConsumerMemoryTest::cleanup()
{
    m_one.abort();
    m_other.abort();
    m_host.reset();
}

void ConsumerMemoryTest::whatIsFreeBelowWhatIsInUseIsGivenBack()
{
    const long before = ownMemory();
    QVERIFY(before > 0);
    const Block above = freeBelow();
    QVERIFY(ownMemory() > before + kBlocksKb / 2);
    returnFreeMemory();
    QVERIFY(ownMemory() < before + kBlocksKb / 8);
}

void ConsumerMemoryTest::itIsGivenBackWhenAConsumerHasLeft()
{
    const long before = ownMemory();
    const Block above = freeBelow();
    QVERIFY(ownMemory() > before + kBlocksKb / 2);
    m_one.abort();
    QTRY_COMPARE_WITH_TIMEOUT(consumers(), 1, kPatienceMs);
    QTRY_VERIFY_WITH_TIMEOUT(ownMemory() < before + kBlocksKb / 8, kPatienceMs);
}

void ConsumerMemoryTest::itIsGivenBackWhenAConsumerHasCaughtUp()
{
    // More than the host keeps for who does not read.
    const QByteArray much(static_cast<int>(Consumer::kMostUnreadBytes / 2), 'x');
    m_one.setReadBufferSize(1);
    m_other.setReadBufferSize(1);
    Consumer *const consumer = m_gate->findChildren<Consumer *>().constFirst();
    consumer->write(much);
    QTest::qWait(2 * ConsumerGate::kTidyMs);
    QVERIFY(m_one.bytesAvailable() + m_other.bytesAvailable() < much.size());

    const long before = ownMemory();
    const Block above = freeBelow();
    QVERIFY(ownMemory() > before + kBlocksKb / 2);
    m_one.setReadBufferSize(0);
    m_other.setReadBufferSize(0);
    qint64 received = 0;
    const auto all = [&] {
        received += m_one.readAll().size() + m_other.readAll().size();
        return received >= much.size();
    };
    QTRY_VERIFY_WITH_TIMEOUT(all(), kPatienceMs);
    QTRY_VERIFY_WITH_TIMEOUT(ownMemory() < before + kBlocksKb / 8, kPatienceMs);
    QCOMPARE(consumers(), 2);
}

QTEST_GUILESS_MAIN(ConsumerMemoryTest)
#include "tst_consumermemory.moc"
