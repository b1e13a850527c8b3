// Packets of a device's format to interleaved signed 16-bit stereo; pure functions.
#pragma once

#include <QByteArray>
#include <QtGlobal>

/// What the conversion needs to know about a packet's samples.
struct SourceFormat {
    int channels = 2;
    int bitsPerSample = 16;
    bool isFloat = false;
};

/// Makes `raw` frames * blockAlign bytes long and copies the packet into it. A null packet fills
/// it with zeros and is an invalid parameter to the runtime library, see checkedCopy. A block align
/// below 1 leaves it empty. Reuses the array's memory.
void copyPacket(QByteArray &raw, const void *packet, quint32 frames, int blockAlign);

/// Converts `frames` frames to 4 bytes each, left then right, little-endian. Channels beyond the
/// second are dropped, mono is doubled, no channel at all gives zeros. By the first row that fits:
///
///   float     32-bit float, clamped to [-1, 1], times 32767, truncated toward zero; NaN gives 0
///   32 bits   upper half of the signed integer
///   24 bits   three bytes, sign-extended, shifted right by 16: the range is -128..127
///   other     16-bit words, copied
///
/// The row alone sets the width of a sample, so a packet may be shorter than its frames ask for:
/// bytes that lie outside `raw` count as 0 and are never read.
QByteArray toStereo16(const QByteArray &raw, quint32 frames, const SourceFormat &format);
/// The same over plain memory of `size` bytes.
QByteArray toStereo16(const char *raw, qint64 size, quint32 frames, const SourceFormat &format);
