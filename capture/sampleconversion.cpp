#include "capture/sampleconversion.h"

#include "capture/floatkernels.h"
#include "platform/checkedcopy.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <QtEndian>

namespace {

constexpr int kBytesPerOutputFrame = 4;

/// What a byte array can hold, with room for its head.
constexpr qint64 kLargestArrayBytes = std::numeric_limits<int>::max() - 64;

int arraySize(quint32 frames, int bytesPerFrame)
{
    return static_cast<int>(
        qMin(static_cast<qint64>(frames) * qMax(bytesPerFrame, 0), kLargestArrayBytes));
}

/// A packet that reads as zeros outside its bytes.
class Packet {
public:
    Packet(const char *raw, qint64 size)
        : m_raw(raw)
        , m_size(size)
    {
    }

    /// The T at a byte offset; bytes outside count as 0.
    template <typename T> T at(qint64 offset) const
    {
        T value {};
        if (offset + static_cast<qint64>(sizeof(T)) <= m_size)
            std::memcpy(&value, m_raw + offset, sizeof(T));
        else if (offset < m_size)
            std::memcpy(&value, m_raw + offset, static_cast<size_t>(m_size - offset));
        return value;
    }

private:
    const char *m_raw;
    qint64 m_size;
};

struct FloatRow {
    static constexpr int kBytes = 4;
    static qint16 sample(const Packet &packet, qint64 offset)
    {
        const float value = packet.at<float>(offset);
        if (std::isnan(value))
            return 0;
        return static_cast<qint16>(static_cast<double>(qBound(-1.0F, value, 1.0F)) * 32767.0);
    }
};

struct Int32Row {
    static constexpr int kBytes = 4;
    static qint16 sample(const Packet &packet, qint64 offset)
    {
        return static_cast<qint16>(packet.at<qint32>(offset) >> 16);
    }
};

struct Int24Row {
    static constexpr int kBytes = 3;
    static qint16 sample(const Packet &packet, qint64 offset)
    {
        // The top byte, sign-extended, is all that a shift by 16 leaves.
        return static_cast<qint16>(packet.at<qint8>(offset + 2));
    }
};

struct Int16Row {
    static constexpr int kBytes = 2;
    static qint16 sample(const Packet &packet, qint64 offset) { return packet.at<qint16>(offset); }
};

template <typename Row> void convert(const Packet &packet, quint32 frames, int channels, char *out)
{
    const qint64 stride = static_cast<qint64>(channels) * Row::kBytes;
    const qint64 second = channels > 1 ? Row::kBytes : 0;
    for (quint32 i = 0; i < frames; ++i) {
        const qint64 offset = i * stride;
        const qint16 left = Row::sample(packet, offset);
        const qint16 right = second ? Row::sample(packet, offset + second) : left;
        qToLittleEndian(left, out);
        qToLittleEndian(right, out + 2);
        out += kBytesPerOutputFrame;
    }
}

} // namespace

void copyPacket(QByteArray &raw, const void *packet, quint32 frames, int blockAlign)
{
    raw.resize(arraySize(frames, blockAlign));
    if (raw.isEmpty())
        return;
    checkedCopy(raw.data(), static_cast<size_t>(raw.size()), packet);
}

QByteArray toStereo16(const char *raw, qint64 size, quint32 frames, const SourceFormat &format)
{
    const int resultSize = arraySize(frames, kBytesPerOutputFrame);
    if (format.channels <= 0)
        return QByteArray(resultSize, '\0');
    QByteArray result(resultSize, Qt::Uninitialized);
    const Packet packet(raw, size);
    frames = static_cast<quint32>(result.size() / kBytesPerOutputFrame);
    if (format.isFloat && format.channels == 2
        && size >= static_cast<qint64>(frames) * 2 * FloatRow::kBytes) {
        static const FloatKernel kernel = floatKernel(vectorUnit());
        const RoundingTowardZero rounding;
        kernel(raw, result.data(), static_cast<int>(frames) * 2);
    } else if (format.isFloat)
        convert<FloatRow>(packet, frames, format.channels, result.data());
    else if (format.bitsPerSample == 32)
        convert<Int32Row>(packet, frames, format.channels, result.data());
    else if (format.bitsPerSample == 24)
        convert<Int24Row>(packet, frames, format.channels, result.data());
    else
        convert<Int16Row>(packet, frames, format.channels, result.data());
    return result;
}

QByteArray toStereo16(const QByteArray &raw, quint32 frames, const SourceFormat &format)
{
    return toStereo16(raw.constData(), raw.size(), frames, format);
}
