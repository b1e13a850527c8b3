#include "tools/monitor/messagerecorder.h"

#include "tools/monitor/writeall.h"

namespace {
constexpr int kStandardOutput = 1;
} // namespace

bool MessageRecorder::open(const QString &fileName)
{
    if (fileName == QStringLiteral("-"))
        return m_file.open(kStandardOutput, QIODevice::WriteOnly | QIODevice::Unbuffered);
    m_file.setFileName(fileName);
    return m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered);
}

bool MessageRecorder::write(const SpectrumReading &reading, double now)
{
    return m_file.error() == QFileDevice::NoError && writeAll(&m_file, line(reading, now));
}

QByteArray MessageRecorder::line(const SpectrumReading &reading, double now)
{
    QByteArray text = "{\"time\":" + QByteArray::number(now / 1000, 'f', 6)
        + ",\"rms\":" + QByteArray::number(reading.rms, 'g', 6)
        + ",\"peak\":" + QByteArray::number(reading.peak, 'g', 6)
        + ",\"dynamics\":" + QByteArray::number(reading.dynamic, 'g', 6) + ",\"bars\":[";
    for (const int bar : reading.bars)
        text += QByteArray::number(bar) + ',';
    if (text.endsWith(','))
        text.chop(1);
    return text + "]}\n";
}
