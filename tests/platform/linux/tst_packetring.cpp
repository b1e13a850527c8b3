// The ring of packets between the loop thread and the capture thread.

#include "platform/linux/audio/packetring.h"

#include <QtTest>
#include <thread>

namespace {

constexpr UINT32 kFrameBytes = 8;

struct Frame {
    std::uint32_t number;
    std::uint32_t inverse;
};
static_assert(sizeof(Frame) == kFrameBytes, "a frame of the ring");

std::vector<Frame> frames(std::uint32_t first, std::uint32_t count)
{
    std::vector<Frame> result;
    for (std::uint32_t i = first; i < first + count; ++i)
        result.push_back({i, ~i});
    return result;
}

void write(PacketRing *ring, std::uint32_t first, std::uint32_t count)
{
    ring->write(frames(first, count).data(), count, first + count);
}

// The number of the first frame of the oldest packet, which must be whole; takes it out.
std::uint32_t take(PacketRing *ring, PacketRing::Packet *packet)
{
    if (!ring->front(packet))
        return UINT32_MAX;
    std::vector<Frame> content(ring->packetFrames());
    memcpy(content.data(), packet->data, content.size() * kFrameBytes);
    for (std::size_t i = 0; i < content.size(); ++i) {
        if (content[i].number != content[0].number + i || content[i].inverse != ~content[i].number)
            return UINT32_MAX;
    }
    ring->pop();
    return content[0].number;
}

} // namespace

class PacketRingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void packetAppearsWhenComplete();
    void piecesOfAnySizeWrapAround();
    void dataStaysUntilPopped();
    void fullRingDropsWholePacketsAndFlagsTheNext();
    void roomInTheMiddleOfADroppedPacketIsNotUsed();
    void holesAreZerosAndOnlyWholeHolesAreSilent();
    void interruptionDropsTheIncompletePacket();
    void clearTakesOutWhatIsComplete();
    void twoThreads();
};

void PacketRingTest::packetAppearsWhenComplete()
{
    PacketRing ring(10, kFrameBytes, 3);
    PacketRing::Packet packet;
    QCOMPARE(ring.capacityFrames(), static_cast<UINT32>(30));
    QVERIFY(!ring.front(&packet));
    write(&ring, 0, 9);
    QVERIFY(!ring.front(&packet));
    QCOMPARE(ring.waitingFrames(), static_cast<UINT32>(0));
    write(&ring, 9, 1);
    QCOMPARE(ring.waitingFrames(), static_cast<UINT32>(10));
    QCOMPARE(take(&ring, &packet), 0U);
    QCOMPARE(packet.flags, static_cast<DWORD>(0));
    QCOMPARE(packet.position, static_cast<UINT64>(0));
    QCOMPARE(packet.time, static_cast<UINT64>(10));
    QVERIFY(!ring.front(&packet));
}

void PacketRingTest::piecesOfAnySizeWrapAround()
{
    PacketRing ring(10, kFrameBytes, 3);
    PacketRing::Packet packet;
    std::uint32_t written = 0;
    std::uint32_t read = 0;
    for (std::uint32_t round = 0; round < 500; ++round) {
        const std::uint32_t count = 1 + round % 17;
        write(&ring, written, count);
        written += count;
        while (read + 10 <= written) {
            QCOMPARE(take(&ring, &packet), read);
            QCOMPARE(packet.position, static_cast<UINT64>(read));
            QCOMPARE(packet.flags, static_cast<DWORD>(0));
            read += 10;
        }
    }
}

void PacketRingTest::dataStaysUntilPopped()
{
    PacketRing ring(2, kFrameBytes, 2);
    write(&ring, 0, 2);
    PacketRing::Packet first;
    QVERIFY(ring.front(&first));
    write(&ring, 2, 20); // far more than fits
    PacketRing::Packet again;
    QCOMPARE(take(&ring, &again), 0U);
    QCOMPARE(again.data, first.data);
}

void PacketRingTest::fullRingDropsWholePacketsAndFlagsTheNext()
{
    PacketRing ring(10, kFrameBytes, 2);
    PacketRing::Packet packet;
    write(&ring, 0, 50); // 20 and 30 and 40 find no room
    QCOMPARE(ring.waitingFrames(), static_cast<UINT32>(20));
    QCOMPARE(take(&ring, &packet), 0U);
    QCOMPARE(packet.flags, static_cast<DWORD>(0));
    write(&ring, 50, 10);
    QCOMPARE(take(&ring, &packet), 10U);
    QCOMPARE(packet.flags, static_cast<DWORD>(0));
    QCOMPARE(take(&ring, &packet), 50U);
    QCOMPARE(packet.flags, static_cast<DWORD>(AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY));
    QCOMPARE(packet.position, static_cast<UINT64>(50));
    write(&ring, 60, 10);
    QCOMPARE(take(&ring, &packet), 60U);
    QCOMPARE(packet.flags, static_cast<DWORD>(0));
}

void PacketRingTest::roomInTheMiddleOfADroppedPacketIsNotUsed()
{
    PacketRing ring(10, kFrameBytes, 2);
    PacketRing::Packet packet;
    write(&ring, 0, 25);
    QCOMPARE(take(&ring, &packet), 0U);
    write(&ring, 25, 15); // 20 began without room, 30 has some
    QCOMPARE(take(&ring, &packet), 10U);
    QCOMPARE(take(&ring, &packet), 30U);
    QCOMPARE(packet.flags, static_cast<DWORD>(AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY));
}

void PacketRingTest::holesAreZerosAndOnlyWholeHolesAreSilent()
{
    PacketRing ring(4, kFrameBytes, 4);
    PacketRing::Packet packet;
    write(&ring, 1000, 16); // leaves something other than zeros in every slot
    while (ring.front(&packet))
        ring.pop();

    ring.write(nullptr, 4, 0);
    ring.write(nullptr, 2, 0);
    write(&ring, 7, 2);
    QVERIFY(ring.front(&packet));
    QCOMPARE(packet.flags, static_cast<DWORD>(AUDCLNT_BUFFERFLAGS_SILENT));
    QCOMPARE(QByteArray(reinterpret_cast<char *>(packet.data), 32), QByteArray(32, '\0'));
    ring.pop();
    QVERIFY(ring.front(&packet));
    QCOMPARE(packet.flags, static_cast<DWORD>(0));
    QCOMPARE(QByteArray(reinterpret_cast<char *>(packet.data), 16), QByteArray(16, '\0'));
    std::uint32_t number = 0;
    memcpy(&number, packet.data + 16, sizeof number);
    QCOMPARE(number, 7U);
}

void PacketRingTest::interruptionDropsTheIncompletePacket()
{
    PacketRing ring(10, kFrameBytes, 4);
    PacketRing::Packet packet;
    write(&ring, 0, 17);
    ring.interrupt();
    write(&ring, 100, 10);
    QCOMPARE(take(&ring, &packet), 0U);
    QCOMPARE(take(&ring, &packet), 100U);
    QCOMPARE(packet.flags, static_cast<DWORD>(AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY));
    QCOMPARE(packet.position, static_cast<UINT64>(17));
}

void PacketRingTest::clearTakesOutWhatIsComplete()
{
    PacketRing ring(10, kFrameBytes, 4);
    PacketRing::Packet packet;
    write(&ring, 0, 25);
    ring.clear();
    QVERIFY(!ring.front(&packet));
    QCOMPARE(ring.waitingFrames(), static_cast<UINT32>(0));
    write(&ring, 25, 5);
    QCOMPARE(take(&ring, &packet), 20U);
}

// Every packet arrives whole and in order; a gap is flagged, and nothing else is.
void PacketRingTest::twoThreads()
{
    PacketRing ring(10, kFrameBytes, 5);
    constexpr std::uint32_t kTotal = 2000000;
    constexpr std::uint32_t kShared = 2000;
    std::atomic<bool> done {false};
    std::atomic<std::uint32_t> taken {0};
    std::thread writer([&ring, &done, &taken] {
        const std::vector<Frame> all = frames(0, kTotal);
        for (std::uint32_t at = 0; at < kTotal;) {
            // At first at the reader's pace, so that it has work on a busy machine too.
            while (at < kShared && 10 * taken + 30 < at)
                std::this_thread::yield();
            const std::uint32_t count = std::min(1 + at % 23, kTotal - at);
            ring.write(all.data() + at, count, 0);
            at += count;
            if (at % 64 == 0)
                std::this_thread::yield();
        }
        done = true;
    });
    std::uint32_t next = 0;
    std::uint32_t gaps = 0;
    bool good = true;
    while (good) {
        const bool last = done;
        PacketRing::Packet packet;
        const std::uint32_t waiting = ring.waitingFrames();
        good = waiting % 10 == 0 && waiting <= ring.capacityFrames();
        if (!ring.front(&packet)) {
            if (last)
                break;
            std::this_thread::yield();
            continue;
        }
        const std::uint32_t first = take(&ring, &packet);
        good = good && first != UINT32_MAX && first >= next && packet.position == first
            && static_cast<bool>(packet.flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY)
                == (first != next);
        gaps += first != next;
        next = first + 10;
        ++taken;
    }
    writer.join();
    QVERIFY2(good, qPrintable(QStringLiteral("at frame %1").arg(next)));
    QVERIFY(taken > 100);
    qInfo() << "packets" << taken.load() << "gaps" << gaps;
}

QTEST_GUILESS_MAIN(PacketRingTest)
#include "tst_packetring.moc"
