// Whole packets on their way from the thread that receives sound to the one that reads it.
#pragma once

#include <atomic>
#include <audioclient.h>
#include <memory>
#include <vector>

/// A fixed ring of packets of one length, for one writing and one reading thread. Nothing is
/// allocated and no lock is taken after construction. A packet can be read when it is complete.
/// When the reader falls behind, whole new packets are dropped and the next one that is kept
/// carries AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY.
class PacketRing {
public:
    struct Packet {
        BYTE *data = nullptr; ///< packetFrames() frames, valid until pop()
        DWORD flags = 0; ///< AUDCLNT_BUFFERFLAGS_...
        UINT64 position = 0; ///< frames of the stream before this packet, dropped ones included
        UINT64 time = 0; ///< when the packet became complete, 100 ns units of the writer's clock
    };

    /// All arguments are at least 1: frames a packet, bytes a frame, packets in the ring.
    PacketRing(UINT32 packetFrames, UINT32 frameBytes, UINT32 packets);

    UINT32 packetFrames() const { return m_packetFrames; }
    UINT32 capacityFrames() const { return m_packets * m_packetFrames; }

    // The writing thread.

    /// Appends frames; null data is a hole, written as zeros. A packet made of nothing but holes
    /// carries AUDCLNT_BUFFERFLAGS_SILENT. time is noted in every packet that becomes complete.
    void write(const void *data, UINT32 frames, UINT64 time);

    /// The next frame does not follow the last one: drops the incomplete packet and flags the
    /// next one.
    void interrupt();

    // The reading thread.

    /// Complete frames that wait to be read.
    UINT32 waitingFrames() const;

    /// Gives the oldest packet without taking it out; false when no packet is complete.
    bool front(Packet *packet) const;

    /// Takes out the packet that front() gave.
    void pop();

    /// Takes out everything that is complete.
    void clear();

private:
    struct Slot {
        DWORD flags;
        UINT64 position;
        UINT64 time;
    };

    void finishPacket(UINT64 time);

    const UINT32 m_packetFrames;
    const UINT32 m_frameBytes;
    const UINT32 m_packets;
    const std::unique_ptr<BYTE[]> m_data;
    std::vector<Slot> m_slots;

    std::atomic<UINT64> m_written {0}; // packets ever published
    std::atomic<UINT64> m_read {0}; // packets ever taken out

    // The writer's own.
    UINT32 m_fill = 0; // frames of the packet at work
    UINT64 m_position = 0; // frames before the packet at work
    bool m_dropping = false; // there was no room when the packet at work began
    bool m_silent = true; // the packet at work is holes so far
    bool m_discontinuity = false;
};
