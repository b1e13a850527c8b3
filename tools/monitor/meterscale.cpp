#include "tools/monitor/meterscale.h"

#include "tools/monitor/spectrumreading.h"

#include <algorithm>
#include <cmath>
#include <QCoreApplication>

double meterPosition(double level)
{
    if (!(level > 0))
        return 0;
    const double decibels = 20 * std::log10(level / kFullScale);
    return std::clamp(1 - decibels / kMeterFloorDecibels, 0.0, 1.0);
}

QString levelNumber(double level)
{
    constexpr double smallest = 0.0005; // that is not shown as 0
    constexpr double widest = 99;
    const double share = std::clamp(level / kFullScale, -widest, widest);
    return QString::number(std::abs(share) < smallest ? 0.0 : share, 'f', 3);
}

QString levelName(int level)
{
    const char *const names[] = {QT_TRANSLATE_NOOP("Levels", "RMS"),
                                 QT_TRANSLATE_NOOP("Levels", "peak"),
                                 QT_TRANSLATE_NOOP("Levels", "dynamic")};
    return QCoreApplication::translate("Levels", names[level]);
}
