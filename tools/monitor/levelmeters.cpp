#include "tools/monitor/levelmeters.h"

#include "tools/monitor/meterscale.h"

#include <algorithm>
#include <cstdlib>
#include <QPainter>
#include <QPaintEvent>

namespace {

constexpr int kGapPixels = 5;
constexpr int kMarkWidthPixels = 2;

std::array<double, LevelMeters::kCount> list(const Levels &levels)
{
    return {levels.rms, levels.peak, levels.dynamic};
}

} // namespace

LevelMeters::LevelMeters(QWidget *parent)
    : LayeredWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setNumbers({});
}

QSize LevelMeters::sizeHint() const
{
    const int line = fontMetrics().height();
    return {600, kCount * (line + kGapPixels) + line + kGapPixels};
}

QSize LevelMeters::minimumSizeHint() const
{
    return {250, sizeHint().height()};
}

void LevelMeters::arrange()
{
    const QFontMetrics metrics = fontMetrics();
    int left = 0;
    for (int i = 0; i < kCount; ++i)
        left = std::max(left, metrics.horizontalAdvance(levelName(i)) + 2 * kGapPixels);
    const int right = metrics.horizontalAdvance(QStringLiteral("00.000")) + 2 * kGapPixels;
    m_first = {left, kGapPixels, std::max(width() - left - right, 0), metrics.height()};
    for (Meter &meter : m_meters)
        place(&meter);
    arrangeScale();
}

void LevelMeters::arrangeScale()
{
    const QFontMetrics metrics = fontMetrics();
    const QRect scale = meterArea(kCount - 1);
    const int room = metrics.horizontalAdvance(QStringLiteral("-60 dB")) + kGapPixels;
    const int floor = static_cast<int>(kMeterFloorDecibels);
    const int steps[] = {10, 20, 30, 60};
    const int *const step = std::find_if(std::begin(steps), std::end(steps) - 1, [&](int decibels) {
        return decibels * scale.width() / -floor > room;
    });
    m_labels.clear();
    for (int decibels = floor; decibels <= 0; decibels += *step) {
        const int x =
            scale.left() + static_cast<int>((1 - decibels / kMeterFloorDecibels) * scale.width());
        const QString text = decibels == 0 ? QStringLiteral("0 dB") : QString::number(decibels);
        const int width = metrics.horizontalAdvance(text);
        m_labels.append(
            {{x - width / 2, scale.bottom() + kGapPixels - 1, width, metrics.height()}, text, x});
    }
}

QVector<QRect> LevelMeters::labelAreas() const
{
    QVector<QRect> areas;
    for (const Label &label : m_labels)
        areas.append(label.area);
    return areas;
}

QRect LevelMeters::meterArea(int meter) const
{
    return m_first.translated(0, meter * (m_first.height() + kGapPixels));
}

QRect LevelMeters::numberArea(int meter) const
{
    const QRect area = meterArea(meter);
    return {area.right() + 1 + kGapPixels, area.top(), width() - area.right() - 1 - kGapPixels,
            area.height()};
}

QRect LevelMeters::markArea(int meter) const
{
    const QRect area = meterArea(meter);
    const int mark = m_meters.at(static_cast<std::size_t>(meter)).mark;
    if (mark == 0)
        return {};
    return {area.left() + mark - kMarkWidthPixels, area.top(), kMarkWidthPixels, area.height()};
}

void LevelMeters::place(Meter *meter) const
{
    const int width = meterArea(0).width();
    meter->width = static_cast<int>(meter->level * width);
    meter->mark =
        meter->held > 0 ? std::max(static_cast<int>(meter->held * width), kMarkWidthPixels) : 0;
}

void LevelMeters::setLevels(const Levels &levels, const Levels &held)
{
    for (int i = 0; i < kCount; ++i) {
        Meter &meter = m_meters.at(static_cast<std::size_t>(i));
        const int before = meter.width;
        const QRect markBefore = markArea(i);
        meter.level = meterPosition(list(levels).at(static_cast<std::size_t>(i)));
        meter.held = meterPosition(list(held).at(static_cast<std::size_t>(i)));
        place(&meter);
        if (meter.width != before) {
            const QRect area = meterArea(i);
            update(area.left() + std::min(before, meter.width), area.top(),
                   std::abs(meter.width - before), area.height());
        }
        const QRect mark = markArea(i);
        if (mark != markBefore) {
            update(markBefore);
            update(mark);
        }
    }
}

void LevelMeters::setNumbers(const Levels &held)
{
    for (int i = 0; i < kCount; ++i) {
        const QString number = levelNumber(list(held).at(static_cast<std::size_t>(i)));
        Meter &meter = m_meters.at(static_cast<std::size_t>(i));
        if (number == meter.number)
            continue;
        meter.number = number;
        update(numberArea(i));
    }
}

void LevelMeters::paintLayer(QPainter *painter, Layer layer)
{
    painter->fillRect(rect(), palette().window());
    painter->setPen(palette().color(QPalette::WindowText));
    for (int i = 0; i < kCount; ++i) {
        const QRect area = meterArea(i);
        painter->drawText(QRect(0, area.top(), area.left(), area.height()),
                          Qt::AlignVCenter | Qt::AlignLeft, levelName(i));
        painter->fillRect(area, palette().base());
        if (layer == Empty)
            continue;
        // Green up to -12 dB, amber up to -3 dB, red above.
        QLinearGradient gradient(area.topLeft(), area.topRight());
        const auto stop = [&](double decibels, const QColor &colour) {
            gradient.setColorAt(1 - decibels / kMeterFloorDecibels, colour);
        };
        const QColor green = isDark() ? QColor(0x3fd6c1) : QColor(0x17a08d);
        stop(-60, green);
        stop(-14, green);
        stop(-10, QColor(0xe8b33a));
        stop(-4, QColor(0xe8b33a));
        stop(-2, QColor(0xe0524d));
        stop(0, QColor(0xe0524d));
        painter->fillRect(area, gradient);
    }

    for (const Label &label : m_labels) {
        painter->fillRect(label.x, meterArea(kCount - 1).bottom() + 1, 1, kGapPixels - 2,
                          palette().color(QPalette::WindowText));
        painter->drawText(label.area, Qt::AlignCenter | Qt::TextDontClip, label.text);
    }
}

void LevelMeters::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    for (const QRect &dirty : event->region()) {
        copy(&painter, dirty, Empty);
        for (int i = 0; i < kCount; ++i) {
            QRect filled = meterArea(i);
            filled.setWidth(m_meters.at(static_cast<std::size_t>(i)).width);
            copy(&painter, filled & dirty, Full);
        }
    }
    for (int i = 0; i < kCount; ++i) {
        painter.fillRect(markArea(i), palette().text());
        if (!event->region().intersects(numberArea(i)))
            continue;
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(numberArea(i), Qt::AlignVCenter | Qt::AlignRight,
                         m_meters.at(static_cast<std::size_t>(i)).number);
    }
}
