#include "tools/monitor/spectrumplot.h"

#include "tools/monitor/toplabels.h"

#include <algorithm>
#include <QPainter>
#include <QPaintEvent>
#include <utility>

namespace {

constexpr int kMarginPixels = 4;
constexpr int kTickPixels = 4;
constexpr int kGapPixels = 6; ///< between two labels

// The plot's cells, of which the changed ones are shown anew. Small ones are many and each costs;
// large ones are much to copy.
constexpr int kBarsTogether = 5;
constexpr int kCellRows = 16;

QColor mixed(const QColor &a, const QColor &b, double share)
{
    const auto mix = [share](int from, int to) {
        return static_cast<int>(from + (to - from) * share);
    };
    return {mix(a.red(), b.red()), mix(a.green(), b.green()), mix(a.blue(), b.blue())};
}

/// A step for lines of which at most so many fit below the top.
int stepOfHeights(double top, int lines)
{
    const int steps[] = {10, 25, 50, 100, 200, 400};
    const int *const step = std::find_if(std::begin(steps), std::end(steps) - 1,
                                         [&](int height) { return top <= height * lines; });
    return *step;
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
    const QSize end = textSize(QStringLiteral("3500 Hz"));
    return {std::max(2 * kBarCount, 2 * end.width()) + end.width() + 2 * kMarginPixels,
            7 * end.height()};
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
    m_labels.clear();
    m_lines.clear();
    arrangeTop();
    arrangeFrequencies();
    arrangeHeights();
}

QSize SpectrumPlot::textSize(const QString &text) const
{
    return {fontMetrics().horizontalAdvance(text), fontMetrics().height()};
}

bool SpectrumPlot::addLabel(const Label &label)
{
    const QRect wanted = label.area.adjusted(-kGapPixels, 0, kGapPixels, 0);
    if (std::any_of(m_labels.begin(), m_labels.end(),
                    [&](const Label &other) { return other.area.intersects(wanted); }))
        return false;
    m_labels.append(label);
    return true;
}

void SpectrumPlot::arrangeTop()
{
    const int height = fontMetrics().height();
    const auto measure = [this](const QString &text) { return textSize(text).width(); };
    for (const TopLabel &label : topLabels(m_scale, m_area.width(), 2 * kGapPixels, measure)) {
        const QRect area(m_area.left() + label.start, m_area.top() - height - kMarginPixels / 2,
                         label.width, height);
        addLabel({area, label.text, QPalette::Window, 0.7});
    }
}

void SpectrumPlot::arrangeFrequencies()
{
    const auto put = [this](int frequency, const QString &text) {
        const int x = positionOf(frequency);
        const QSize size = textSize(text);
        const QRect area({x - size.width() / 2, m_area.bottom() + 1 + kTickPixels}, size);
        if (addLabel({area, text, QPalette::Window, 1}))
            m_lines.append({{x, m_area.top(), 1, m_area.height()}, frequency == 0 ? 0.48 : 0.14});
    };
    put(0, QStringLiteral("0"));
    for (const int side : {-1, 1})
        put(side * kHighestFrequencyHz, QStringLiteral("%1 Hz").arg(kHighestFrequencyHz));
    // The finest steps that all have room.
    const int widest = textSize(QStringLiteral("3500")).width() + 2 * kGapPixels;
    const int steps[] = {250, 500, 1000, 2000};
    const int *const step = std::find_if(std::begin(steps), std::end(steps) - 1, [&](int hertz) {
        return hertz * m_area.width() / (2 * kHighestFrequencyHz) > widest;
    });
    for (int frequency = *step; frequency < kHighestFrequencyHz; frequency += *step) {
        for (const int side : {-1, 1})
            put(side * frequency, QString::number(frequency));
    }
}

void SpectrumPlot::arrangeHeights()
{
    const int lines = std::max(m_area.height() / (2 * fontMetrics().height()), 1);
    const int step = stepOfHeights(m_top, std::min(lines, 5));
    for (int value = step; value < m_top; value += step) {
        const int y = m_area.bottom() + 1 - heightOf(value);
        const QString text = QString::number(value);
        const QSize size = textSize(text);
        m_lines.append({{m_area.left(), y, m_area.width(), 1}, 0.14});
        if (y - size.height() >= m_area.top())
            addLabel({{{m_area.left() + kMarginPixels, y - size.height()}, size},
                      text,
                      QPalette::Base,
                      0.5});
    }
}

QVector<QRect> SpectrumPlot::labelAreas() const
{
    QVector<QRect> areas;
    for (const Label &label : m_labels)
        areas.append(label.area);
    return areas;
}

QString SpectrumPlot::summary() const
{
    if (!m_notice.isEmpty())
        return QStringLiteral("%1; %2").arg(m_notice, tr("height %1").arg(m_scale.label()));
    const auto middle = m_bars.begin() + kBarCount / 2;
    const auto left = std::max_element(m_bars.begin(), middle);
    const auto right = std::max_element(middle, m_bars.end());
    // The middle of a bar of 70 Hz; the left channel's first bar is its highest.
    const auto frequency = [](std::ptrdiff_t bars) {
        return static_cast<int>((2 * bars + 1) * kHighestFrequencyHz / kBarCount);
    };
    return tr("highest on the left at %1 Hz: %2, on the right at %3 Hz: %4; %5")
        .arg(frequency(middle - left - 1))
        .arg(*left)
        .arg(frequency(right - middle))
        .arg(*right)
        .arg(tr("height %1").arg(m_scale.label()));
}

QRect SpectrumPlot::barArea(int bar) const
{
    // A gap of one pixel behind it, if that leaves a bar.
    const QRect column = m_columns.at(bar);
    return column.adjusted(0, 0, column.width() > 2 ? -1 : 0, 0);
}

int SpectrumPlot::positionOf(int frequency) const
{
    return m_area.left()
        + (frequency + kHighestFrequencyHz) * m_area.width() / (2 * kHighestFrequencyHz);
}

int SpectrumPlot::heightOf(int value) const
{
    const int height = std::max(m_area.height(), 0);
    return std::clamp(static_cast<int>(value * height / m_top), 0, height);
}

void SpectrumPlot::setBars(const QVector<int> &bars)
{
    Q_ASSERT(bars.size() == kBarCount);
    m_bars = bars;
    if (size().isEmpty())
        return; // there is no picture
    QPainter painter(picture(Now));
    QRegion changed;
    for (int first = 0; first < kBarCount; first += kBarsTogether) {
        QRect together;
        for (int i = first; i < first + kBarsTogether; ++i)
            together |= setHeight(&painter, i, heightOf(bars.at(i)));
        if (!together.isEmpty())
            changed += cellsAround(together);
    }
    if (!changed.isEmpty())
        update(changed);
}

QRect SpectrumPlot::setHeight(QPainter *painter, int bar, int height)
{
    const int before = std::exchange(m_heights[bar], height);
    if (height == before)
        return {};
    const int low = std::min(before, height);
    const int high = std::max(before, height);
    // With the gap behind it, which is the same in both layers: so neighbours are one piece.
    const QRect column = m_columns.at(bar);
    const QRect changed(column.left(), m_area.bottom() + 1 - high, column.width(), high - low);
    copy(painter, changed, height > before ? Full : Empty);
    return changed;
}

QRect SpectrumPlot::cellsAround(const QRect &part) const
{
    // Edges at few heights: rectangles side by side, each as high as it must be, would be cut into
    // many more where they become one region.
    const int cell = std::max(m_area.height() / kCellRows, 1);
    const int top = (part.top() - m_area.top()) / cell * cell;
    const int bottom = ((part.bottom() - m_area.top()) / cell + 1) * cell;
    return QRect(part.left(), m_area.top() + top, part.width(), bottom - top) & m_area;
}

void SpectrumPlot::setScale(const HeightScale &scale, double top)
{
    if (qFuzzyCompare(top, m_top) && scale.hasLabelOf(m_scale))
        return;
    m_scale = scale;
    m_top = top;
    startAnew();
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
    if (layer == Now) {
        copy(painter, rect(), Empty);
        for (int i = 0; i < kBarCount; ++i) {
            const QRect area = barArea(i);
            copy(painter, area.adjusted(0, area.height() - m_heights.at(i), 0, 0), Full);
        }
        return;
    }
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
    for (const Line &line : m_lines) {
        painter->fillRect(line.area, mixed(palette().color(QPalette::Base), text, line.strength));
        if (line.area.width() == 1)
            painter->fillRect(line.area.left(), m_area.bottom() + 1, 1, kTickPixels, text);
    }
    for (const Label &label : m_labels) {
        painter->setPen(mixed(palette().color(label.ground), text, label.strength));
        painter->drawText(label.area, Qt::AlignCenter | Qt::TextDontClip, label.text);
    }
}

void SpectrumPlot::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    for (const QRect &dirty : event->region())
        copy(&painter, dirty, Now);
    if (!m_notice.isEmpty())
        paintNotice(&painter);
}

void SpectrumPlot::paintNotice(QPainter *painter) const
{
    const int flags = Qt::AlignCenter | Qt::TextWordWrap;
    const QRect room =
        m_area.adjusted(kMarginPixels, kMarginPixels, -kMarginPixels, -kMarginPixels);
    QRect place;
    for (const double size : {1.5, 1.0, 0.8}) { // the largest that fits
        QFont sized = font();
        if (sized.pointSizeF() > 0)
            sized.setPointSizeF(sized.pointSizeF() * size);
        painter->setFont(sized);
        place = painter->boundingRect(room, flags, m_notice);
        if (room.contains(place))
            break;
    }
    painter->setPen(palette().color(QPalette::Text));
    painter->fillRect(place.adjusted(-kMarginPixels, -kMarginPixels, kMarginPixels, kMarginPixels)
                          & m_area,
                      palette().base());
    painter->drawText(room, flags, m_notice);
}
