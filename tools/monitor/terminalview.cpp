#include "tools/monitor/terminalview.h"

#include "platform/terminal.h"
#include "tools/monitor/meterscale.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr char kEnter[] = "\x1b[?1049h\x1b[?25l";
constexpr char kLeave[] = "\x1b[?25h\x1b[?1049l";
constexpr int kMeterRow = 1; // the status is above
constexpr int kBarRow = 4;
constexpr int kLineColumns = 50;

bool print(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    const std::size_t size = static_cast<std::size_t>(bytes.size());
    return std::fwrite(bytes.constData(), 1, size, stdout) == size && std::fflush(stdout) == 0;
}

QString coloured(const QString &text, int colour)
{
    return QStringLiteral("\x1b[%1m%2\x1b[0m").arg(colour).arg(text);
}

/// One height for each column, as many as fit.
QVector<int> columnsOf(const QVector<int> &bars, int columns)
{
    // Whole bars to a column or whole columns to a bar: every column is as wide as its neighbour.
    const int perColumn = std::max((bars.size() + columns - 1) / std::max(columns, 1), 1);
    const int perBar = std::max(columns / std::max(bars.size(), 1), 1);
    QVector<int> result;
    for (int i = 0; i < bars.size(); i += perColumn) {
        const auto first = bars.begin() + i;
        const auto last = bars.begin() + std::min(i + perColumn, bars.size());
        for (int n = 0; n < perBar; ++n)
            result.append(std::clamp(*std::max_element(first, last), 0, kFullScale));
    }
    return result;
}

/// The frequencies under a row of bars, in Hz; each label is in the middle of its place.
QString axisOf(int columns)
{
    QString axis(columns, QLatin1Char(' '));
    const auto put = [&](int frequency, const QString &label) {
        const int middle = (frequency + kHighestFrequencyHz) * columns / (2 * kHighestFrequencyHz);
        const int start =
            std::clamp(middle - label.size() / 2, 0, std::max(columns - label.size(), 0));
        // Never so that it touches another one, or is cut.
        if (start + label.size() > columns
            || !axis.mid(std::max(start - 1, 0), label.size() + 2).trimmed().isEmpty())
            return;
        axis.replace(start, label.size(), label);
    };
    put(0, QStringLiteral("0"));
    put(-kHighestFrequencyHz, QStringLiteral("%1 Hz").arg(kHighestFrequencyHz));
    put(kHighestFrequencyHz, QStringLiteral("%1 Hz").arg(kHighestFrequencyHz));
    for (const int step : {1000, 500}) {
        for (int frequency = step; frequency < kHighestFrequencyHz; frequency += step) {
            put(-frequency, QString::number(frequency));
            put(frequency, QString::number(frequency));
        }
    }
    return axis;
}

} // namespace

TerminalView::TerminalView(bool onTerminal, Style style)
    : m_onTerminal(onTerminal)
    , m_coloured(style == ColouredUnicode)
    , m_ramp(style == Plain ? QStringLiteral(" .:-=+*#@") : QStringLiteral(" ▁▂▃▄▅▆▇█"))
    , m_mark(style == Plain ? QLatin1Char('|') : QChar(0x2502))
{
    if (m_onTerminal)
        takeTerminal(kEnter, kLeave);
}

TerminalView::~TerminalView()
{
    close();
}

void TerminalView::close()
{
    if (m_onTerminal)
        giveTerminalBack();
    m_onTerminal = false;
}

bool TerminalView::show(const SpectrumReading &reading, const Levels &held, const QString &status)
{
    if (!m_onTerminal)
        return print(line(reading, status, kLineColumns) + QLatin1Char('\n'));
    if (!takeTerminal(kEnter, kLeave))
        return true;
    const TerminalSize size = terminalSize();
    QStringList rows = picture(reading, held, status, size.columns, size.rows).mid(0, size.rows);
    // Every cell is written anew and none is cleared before, so that nothing flickers and nothing
    // of another picture stays. (To clear the rest of a full row would clear its last cell.)
    while (rows.size() < size.rows)
        rows.append(QString());
    for (QString &row : rows)
        row = row.leftJustified(size.columns);
    if (m_coloured)
        colour(reading.bars, &rows);
    return print(QStringLiteral("\x1b[H") + rows.join(QStringLiteral("\r\n")));
}

QString TerminalView::meter(const QString &name, double level, double held, int columns) const
{
    const QString head = QStringLiteral("%1 %2 ").arg(name, -7).arg(levelNumber(level), 6);
    const int width = std::max(columns - head.size(), 0);
    QString row = QString(static_cast<int>(meterPosition(level) * width), m_ramp.back());
    const int mark = std::min(static_cast<int>(meterPosition(held) * width), width - 1);
    if (mark >= row.size() && mark > 0)
        row = row.leftJustified(mark) + m_mark;
    return (head + row).left(columns);
}

QStringList TerminalView::picture(const SpectrumReading &reading, const Levels &held,
                                  const QString &status, int columns, int rows) const
{
    QStringList result {status.left(columns)};
    result.append(meter(QStringLiteral("RMS"), reading.rms, held.rms, columns));
    result.append(meter(QStringLiteral("peak"), reading.peak, held.peak, columns));
    result.append(meter(QStringLiteral("dynamic"), reading.dynamic, held.dynamic, columns));

    const QVector<int> heights = columnsOf(reading.bars, columns);
    const int steps = m_ramp.size() - 1;
    const int barRows = rows - result.size() - 1;
    for (int row = barRows - 1; row >= 0; --row) {
        QString text;
        for (const int height : heights) {
            const int filled = height * barRows * steps / kFullScale - row * steps;
            text += m_ramp.at(std::clamp(filled, 0, steps));
        }
        result.append(text);
    }
    if (barRows > 0)
        result.append(axisOf(heights.size()));
    return result;
}

void TerminalView::colour(const QVector<int> &bars, QStringList *picture) const
{
    // The terminal's own colours, which it has chosen for its background: green levels, and a
    // colour for each channel.
    constexpr int green = 32;
    constexpr int cyan = 36;
    constexpr int magenta = 35;
    for (int i = kMeterRow; i < std::min(kBarRow, picture->size()); ++i)
        (*picture)[i] = coloured(picture->at(i), green);
    for (int i = kBarRow; i < picture->size() - 1; ++i) {
        const QString row = picture->at(i);
        const int middle = columnsOf(bars, row.size()).size() / 2;
        (*picture)[i] = coloured(row.left(middle), cyan) + coloured(row.mid(middle), magenta);
    }
}

QString TerminalView::line(const SpectrumReading &reading, const QString &status, int columns) const
{
    QString bars;
    for (const int height : columnsOf(reading.bars, columns))
        bars += m_ramp.at(height * (m_ramp.size() - 1) / kFullScale);
    return QStringLiteral("%1  RMS %2  peak %3  dynamic %4  |%5|")
        .arg(status)
        .arg(levelNumber(reading.rms))
        .arg(levelNumber(reading.peak))
        .arg(levelNumber(reading.dynamic))
        .arg(bars);
}
