#include "tools/monitor/spectrumreading.h"

#include "platform/qtgeneration.h"

#include <cmath>
#include <utility>

namespace {

constexpr int kLevelCount = 3;

bool readLevel(TextPiece field, double *level)
{
    bool ok = false;
    *level = field.toDouble(&ok);
    return ok && std::isfinite(*level);
}

} // namespace

bool readSpectrumMessage(const QString &message, SpectrumReading *reading)
{
    const auto fields = splitText(message, QStringLiteral("/&+&/"));
    if (fields.size() != 1 + kLevelCount + kBarCount
        || fields.first() != QLatin1String("SoundSpectrum"))
        return false;
    SpectrumReading result;
    if (!readLevel(fields.at(1), &result.rms) || !readLevel(fields.at(2), &result.peak)
        || !readLevel(fields.at(3), &result.dynamic))
        return false;
    result.bars.reserve(kBarCount);
    for (int i = 1 + kLevelCount; i < fields.size(); ++i) {
        bool ok = false;
        result.bars.append(fields.at(i).toInt(&ok));
        if (!ok)
            return false;
    }
    *reading = std::move(result);
    return true;
}
