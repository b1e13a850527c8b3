#include "tools/monitor/toplabels.h"

#include <QCoreApplication>

namespace {

struct TopLabels {
    Q_DECLARE_TR_FUNCTIONS(TopLabels)
};

bool haveRoom(const QVector<TopLabel> &labels, int width, int gap)
{
    int free = 0; // from here on
    for (const TopLabel &label : labels) {
        if (label.start < free || label.start + label.width > width)
            return false;
        free = label.start + label.width + gap;
    }
    return true;
}

} // namespace

QVector<TopLabel> topLabels(const HeightScale &scale, int width, int gap,
                            const std::function<int(const QString &)> &measure)
{
    struct Words {
        QString scale;
        QString left;
        QString right;
    };
    const QString left = TopLabels::tr("left channel");
    const QString right = TopLabels::tr("right channel");
    const Words choices[] = {
        {scale.label(), left, right},
        {scale.shortLabel(), left, right},
        {scale.shortLabel(), TopLabels::tr("left"), TopLabels::tr("right")},
        {scale.shortLabel(), TopLabels::tr("L", "left channel"),
         TopLabels::tr("R", "right channel")},
        {QString(), TopLabels::tr("L", "left channel"), TopLabels::tr("R", "right channel")},
    };
    for (const Words &words : choices) {
        QVector<TopLabel> labels;
        if (!words.scale.isEmpty())
            labels.append({words.scale, 0, measure(words.scale)});
        const int leftWidth = measure(words.left);
        const int rightWidth = measure(words.right);
        labels.append({words.left, (width / 2 - leftWidth) / 2, leftWidth});
        labels.append({words.right, width / 2 + (width - width / 2 - rightWidth) / 2, rightWidth});
        if (haveRoom(labels, width, gap))
            return labels;
    }
    return {};
}
