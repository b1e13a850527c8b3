#pragma once

#include <QString>

/// The scale of the level meters: decibels of full scale, from kMeterFloorDecibels up to 0.
constexpr double kMeterFloorDecibels = -60.0;

/// A level's place on the scale, 0 to 1: 0 for kMeterFloorDecibels and all below it (negative
/// levels and not-a-number, too), 1 for full scale and all above. level: as it was sent, 400 is
/// full scale.
double meterPosition(double level);

/// A level as a number with three digits behind the point, 1.000 for full scale; never -0.000, and
/// never wider than 99.000, whatever was sent.
QString levelNumber(double level);

/// What a level is called: 0 RMS, 1 peak, 2 dynamic.
QString levelName(int level);
