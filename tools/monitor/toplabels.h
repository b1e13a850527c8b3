#pragma once

#include "tools/monitor/heightscale.h"

#include <functional>
#include <QString>
#include <QVector>

/// A text in the row above the bars.
struct TopLabel {
    QString text;
    int start;
    int width;
};

/// What stands above bars of this width: at the left which scale their height has, and over the
/// middle of each half which channel it is. Shorter words where there is less room, and none that
/// would touch another. measure: the width of a text, in the unit of the others.
QVector<TopLabel> topLabels(const HeightScale &scale, int width, int gap,
                            const std::function<int(const QString &)> &measure);
