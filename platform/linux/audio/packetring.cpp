#include "platform/linux/audio/packetring.h"

#include <algorithm>
#include <cstring>

PacketRing::PacketRing(UINT32 packetFrames, UINT32 frameBytes, UINT32 packets)
    : m_packetFrames(packetFrames)
    , m_frameBytes(frameBytes)
    , m_packets(packets)
    , m_data(new BYTE[static_cast<std::size_t>(packetFrames) * frameBytes * packets]())
    , m_slots(packets)
{
}

void PacketRing::write(const void *data, UINT32 frames, UINT64 time)
{
    const BYTE *source = static_cast<const BYTE *>(data);
    while (frames) {
        const UINT64 written = m_written.load(std::memory_order_relaxed);
        if (!m_fill)
            m_dropping = written - m_read.load(std::memory_order_acquire) == m_packets;

        const UINT32 count = std::min(frames, m_packetFrames - m_fill);
        const std::size_t bytes = static_cast<std::size_t>(count) * m_frameBytes;
        if (!m_dropping) {
            BYTE *const target = m_data.get()
                + (static_cast<std::size_t>(written % m_packets) * m_packetFrames + m_fill)
                    * m_frameBytes;
            if (source)
                std::memcpy(target, source, bytes);
            else
                std::memset(target, 0, bytes);
        }
        if (source) {
            source += bytes;
            m_silent = false;
        }
        m_fill += count;
        frames -= count;
        if (m_fill == m_packetFrames)
            finishPacket(time);
    }
}

void PacketRing::finishPacket(UINT64 time)
{
    if (m_dropping) {
        m_discontinuity = true;
    } else {
        const UINT64 written = m_written.load(std::memory_order_relaxed);
        Slot &slot = m_slots[static_cast<std::size_t>(written % m_packets)];
        slot.flags =
            (m_discontinuity ? static_cast<DWORD>(AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY) : 0U)
            | (m_silent ? static_cast<DWORD>(AUDCLNT_BUFFERFLAGS_SILENT) : 0U);
        slot.position = m_position;
        slot.time = time;
        m_discontinuity = false;
        m_written.store(written + 1, std::memory_order_release);
    }
    m_position += m_packetFrames;
    m_fill = 0;
    m_silent = true;
}

void PacketRing::interrupt()
{
    m_position += m_fill;
    m_fill = 0;
    m_silent = true;
    m_discontinuity = true;
}

UINT32 PacketRing::waitingFrames() const
{
    // The read count first: the difference can then never be negative.
    const UINT64 read = m_read.load(std::memory_order_acquire);
    return static_cast<UINT32>(m_written.load(std::memory_order_acquire) - read) * m_packetFrames;
}

bool PacketRing::front(Packet *packet) const
{
    const UINT64 read = m_read.load(std::memory_order_relaxed);
    if (m_written.load(std::memory_order_acquire) == read)
        return false;
    const std::size_t slot = static_cast<std::size_t>(read % m_packets);
    packet->data = m_data.get() + slot * m_packetFrames * m_frameBytes;
    packet->flags = m_slots[slot].flags;
    packet->position = m_slots[slot].position;
    packet->time = m_slots[slot].time;
    return true;
}

void PacketRing::pop()
{
    m_read.store(m_read.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

void PacketRing::clear()
{
    m_read.store(m_written.load(std::memory_order_acquire), std::memory_order_release);
}
