#include "spectrumreading.h"

#include <QStringList>

#include <cmath>
#include <utility>

namespace {

bool readLevel(const QString &field, double *level)
{
    bool ok = false;
    *level = field.toDouble(&ok);
    return ok && std::isfinite(*level);
}

} // namespace

bool readSpectrumMessage(const QString &message, SpectrumReading *reading)
{
    const QStringList fields = message.split(QStringLiteral("/&+&/"));
    if (fields.size() != 4 + s_barCount || fields.first() != QStringLiteral("SoundSpectrum"))
        return false;
    SpectrumReading result;
    if (!readLevel(fields.at(1), &result.rms) || !readLevel(fields.at(2), &result.peak)
        || !readLevel(fields.at(3), &result.dynamic))
        return false;
    result.bars.reserve(s_barCount);
    for (int i = 4; i < fields.size(); ++i) {
        bool ok = false;
        result.bars.append(fields.at(i).toInt(&ok));
        if (!ok)
            return false;
    }
    *reading = std::move(result);
    return true;
}
