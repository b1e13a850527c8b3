#include "tools/monitor/spectrumplot.h"

#include "tools/monitor/spectrumreading.h"

#include <algorithm>
#include <QPainter>
#include <QPaintEvent>

namespace {

constexpr int kMarginPixels = 4;
constexpr int kTickPixels = 4;
constexpr int kBarsTogether = 5; ///< that are painted anew when one of them changes

QColor mixed(const QColor &a, const QColor &b, double share)
{
    const auto mix = [share](int from, int to) {
        return static_cast<int>(from + (to - from) * share);
    };
    return {mix(a.red(), b.red()), mix(a.green(), b.green()), mix(a.blue(), b.blue())};
}

} // namespace

SpectrumPlot::SpectrumPlot(QWidget *parent)
    : LayeredWidget(parent)
    , m_columns(kBarCount)
    , m_bars(kBarCount, 0)
    , m_heights(kBarCount, 0)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

QSize SpectrumPlot::sizeHint() const
{
    return {900, 360};
}

QSize SpectrumPlot::minimumSizeHint() const
{
    return {2 * kBarCount, 80};
}

void SpectrumPlot::arrange()
{
    const int below = fontMetrics().height() + kTickPixels + 2;
    const int above = fontMetrics().height() + kMarginPixels; // the channels' names
    const int side = fontMetrics().horizontalAdvance(QStringLiteral("3500 Hz")) / 2 + kMarginPixels;
    m_area = rect().adjusted(side, above, -side, -below);
    for (int i = 0; i < kBarCount; ++i) {
        const int left = m_area.left() + i * m_area.width() / kBarCount;
        const int right = m_area.left() + (i + 1) * m_area.width() / kBarCount;
        m_columns[i] = {left, m_area.top(), right - left, m_area.height()};
        m_heights[i] = heightOf(m_bars.at(i));
    }
}

QRect SpectrumPlot::barArea(int bar) const
{
    // A gap of one pixel behind it, if that leaves a bar.
    const QRect column = m_columns.at(bar);
    return column.adjusted(0, 0, column.width() > 2 ? -1 : 0, 0);
}

int SpectrumPlot::barAt(int x) const
{
    const auto behind = std::upper_bound(m_columns.begin() + 1, m_columns.end(), x,
                                         [](int a, const QRect &b) { return a < b.left(); });
    return static_cast<int>(behind - m_columns.begin()) - 1;
}

int SpectrumPlot::positionOf(int frequency) const
{
    return m_area.left()
        + (frequency + kHighestFrequencyHz) * m_area.width() / (2 * kHighestFrequencyHz);
}

int SpectrumPlot::heightOf(int value) const
{
    return std::clamp(value, 0, kFullScale) * std::max(m_area.height(), 0) / kFullScale;
}

void SpectrumPlot::setBars(const QVector<int> &bars)
{
    Q_ASSERT(bars.size() == kBarCount);
    m_bars = bars;
    // A rectangle for some bars together: one for all would be nearly everything, and one for each
    // costs more than it saves.
    QRect changed;
    for (int i = 0; i < kBarCount; ++i) {
        if (i % kBarsTogether == 0 && !changed.isEmpty()) {
            update(changed);
            changed = QRect();
        }
        const int before = m_heights.at(i);
        const int after = heightOf(bars.at(i));
        if (after == before)
            continue;
        m_heights[i] = after;
        const QRect bar = barArea(i);
        const int low = std::min(before, after);
        const int high = std::max(before, after);
        changed |= QRect(bar.left(), m_area.bottom() + 1 - high, bar.width(), high - low);
    }
    if (!changed.isEmpty())
        update(changed);
}

void SpectrumPlot::setNotice(const QString &notice)
{
    if (notice == m_notice)
        return;
    m_notice = notice;
    update();
}

void SpectrumPlot::paintLayer(QPainter *painter, Layer layer)
{
    painter->fillRect(rect(), palette().window());
    painter->fillRect(m_area, palette().base());
    paintAxis(painter);
    if (layer == Empty)
        return;
    for (const bool right : {false, true}) {
        const QColor colour = right ? (isDark() ? QColor(0xb38bff) : QColor(0x7a4fd0))
                                    : (isDark() ? QColor(0x3fd6c1) : QColor(0x14907f));
        QLinearGradient gradient(m_area.bottomLeft(), m_area.topLeft());
        gradient.setColorAt(0, mixed(colour, palette().color(QPalette::Base), 0.25));
        gradient.setColorAt(0.6, colour);
        gradient.setColorAt(1, isDark() ? colour.lighter(125) : colour.darker(125));
        for (int i = right ? kBarCount / 2 : 0; i < (right ? kBarCount : kBarCount / 2); ++i)
            painter->fillRect(barArea(i), gradient);
    }
}

void SpectrumPlot::paintAxis(QPainter *painter) const
{
    const QColor text = palette().color(QPalette::WindowText);
    const QColor line = mixed(palette().color(QPalette::Base), text, 0.14);
    const int height = fontMetrics().height();
    const QColor quiet = mixed(palette().color(QPalette::Base), text, 0.5);
    for (int value = 100; value < kFullScale; value += 100) {
        const int y = m_area.bottom() + 1 - heightOf(value);
        painter->fillRect(m_area.left(), y, m_area.width(), 1, line);
        painter->setPen(quiet);
        painter->drawText(QRect(m_area.left() + kMarginPixels, y - height, m_area.width(), height),
                          Qt::AlignLeft | Qt::AlignBottom, QString::number(value));
    }

    const int widest = fontMetrics().horizontalAdvance(QStringLiteral("3500 Hz"));
    const int steps[] = {250, 500, 1000, kHighestFrequencyHz};
    const int *const step = std::find_if(std::begin(steps), std::end(steps) - 1, [&](int hertz) {
        return hertz * m_area.width() / (2 * kHighestFrequencyHz) > widest * 3 / 2;
    });
    const auto label = [&](int frequency, const QString &name) {
        const int x = positionOf(frequency);
        painter->fillRect(x, m_area.top(), 1, m_area.height(),
                          frequency == 0 ? mixed(line, text, 0.4) : line);
        painter->fillRect(x, m_area.bottom() + 1, 1, kTickPixels, text);
        painter->setPen(text);
        painter->drawText(QRect(x - widest, m_area.bottom() + 1 + kTickPixels, 2 * widest, height),
                          Qt::AlignCenter, name);
    };
    label(0, QStringLiteral("0"));
    for (const int side : {-1, 1}) {
        for (int frequency = *step;
             positionOf(kHighestFrequencyHz) - positionOf(frequency) > widest; frequency += *step)
            label(side * frequency, QString::number(frequency));
        label(side * kHighestFrequencyHz, QStringLiteral("%1 Hz").arg(kHighestFrequencyHz));
    }

    painter->setPen(mixed(palette().color(QPalette::Window), text, 0.7));
    const QRect names(m_area.left(), m_area.top() - height - kMarginPixels / 2, m_area.width(),
                      height);
    painter->drawText(names.adjusted(0, 0, -m_area.width() / 2, 0), Qt::AlignCenter,
                      QStringLiteral("left channel"));
    painter->drawText(names.adjusted(m_area.width() / 2, 0, 0, 0), Qt::AlignCenter,
                      QStringLiteral("right channel"));
}

void SpectrumPlot::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    for (const QRect &dirty : event->region()) {
        if (!m_area.contains(dirty))
            copy(&painter, dirty, Empty);
        for (int i = barAt(dirty.left()); i <= barAt(dirty.right()); ++i) {
            // With the gap behind it, which is the same in both layers.
            const QRect column = m_columns.at(i);
            const int height = m_heights.at(i);
            copy(&painter, column.adjusted(0, 0, 0, -height) & dirty, Empty);
            copy(&painter, column.adjusted(0, column.height() - height, 0, 0) & dirty, Full);
        }
    }
    if (m_notice.isEmpty())
        return;
    QFont larger = font();
    larger.setPointSizeF(larger.pointSizeF() * 1.5);
    painter.setFont(larger);
    painter.setPen(palette().color(QPalette::Text));
    const int flags = Qt::AlignCenter | Qt::TextWordWrap;
    const QRect place = painter.boundingRect(m_area, flags, m_notice);
    painter.fillRect(place.adjusted(-kMarginPixels, -kMarginPixels, kMarginPixels, kMarginPixels),
                     palette().base());
    painter.drawText(m_area, flags, m_notice);
}
