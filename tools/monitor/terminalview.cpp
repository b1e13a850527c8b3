#include "terminalview.h"

#include "platform/terminal.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr char s_enter[] = "\x1b[?1049h\x1b[?25l";
constexpr char s_leave[] = "\x1b[?25h\x1b[?1049l";

void print(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, std::size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

QString meter(const QString &name, double level, int columns, const QString &ramp)
{
    const QString head = QStringLiteral("%1 %2 ").arg(name, -7).arg(level / s_fullScale, 6, 'f', 3);
    const int width = std::max(columns - head.size(), 0);
    const int filled = int(std::clamp(level / s_fullScale, 0.0, 1.0) * width);
    return (head + QString(filled, ramp.back())).left(columns);
}

} // namespace

TerminalView::TerminalView(bool onTerminal, bool unicode)
    : m_onTerminal(onTerminal)
    , m_ramp(unicode ? QStringLiteral(" ▁▂▃▄▅▆▇█") : QStringLiteral(" .:-=+*#@"))
{
    if (m_onTerminal)
        print(QLatin1String(s_enter));
}

TerminalView::~TerminalView()
{
    close();
}

void TerminalView::close()
{
    if (m_onTerminal)
        print(QLatin1String(s_leave));
    m_onTerminal = false;
}

void TerminalView::show(const SpectrumReading &reading, const QString &status)
{
    if (!m_onTerminal) {
        print(line(reading, status, 50) + QLatin1Char('\n'));
        return;
    }
    const TerminalSize size = terminalSize();
    const QStringList rows = picture(reading, status, size.columns, size.rows);
    // Each row is cleared to its end after it is written, and what is below afterwards, so that
    // nothing flickers and nothing of a larger picture stays.
    print(QStringLiteral("\x1b[H") + rows.join(QStringLiteral("\x1b[K\r\n"))
          + QStringLiteral("\x1b[K\x1b[J"));
}

QVector<int> TerminalView::columnsOf(const QVector<int> &bars, int columns) const
{
    // Whole bars to a column or whole columns to a bar: every column is as wide as its neighbour.
    const int perColumn = std::max((bars.size() + columns - 1) / std::max(columns, 1), 1);
    const int perBar = std::max(columns / std::max(bars.size(), 1), 1);
    QVector<int> result;
    for (int i = 0; i < bars.size(); i += perColumn) {
        const auto first = bars.begin() + i;
        const auto last = bars.begin() + std::min(i + perColumn, bars.size());
        for (int n = 0; n < perBar; ++n)
            result.append(std::clamp(*std::max_element(first, last), 0, s_fullScale));
    }
    return result;
}

QStringList TerminalView::picture(const SpectrumReading &reading, const QString &status,
                                  int columns, int rows) const
{
    QStringList result {status.left(columns)};
    result.append(meter(QStringLiteral("RMS"), reading.rms, columns, m_ramp));
    result.append(meter(QStringLiteral("peak"), reading.peak, columns, m_ramp));
    result.append(meter(QStringLiteral("dynamic"), reading.dynamic, columns, m_ramp));

    const QVector<int> heights = columnsOf(reading.bars, columns);
    const int steps = m_ramp.size() - 1;
    const int barRows = rows - result.size() - 1;
    for (int row = barRows - 1; row >= 0; --row) {
        QString text;
        for (const int height : heights) {
            const int filled = height * barRows * steps / s_fullScale - row * steps;
            text += m_ramp.at(std::clamp(filled, 0, steps));
        }
        result.append(text);
    }
    if (barRows > 0 && !heights.isEmpty()) {
        // The bars run from one channel's 3500 Hz down to 0 Hz and up to the other's.
        QString axis(heights.size(), QLatin1Char(' '));
        const QString left = QStringLiteral("3500 Hz");
        const QString middle = QStringLiteral("0");
        if (axis.size() > 3 * left.size()) {
            axis.replace(0, left.size(), left);
            axis.replace(axis.size() / 2, middle.size(), middle);
            axis.replace(axis.size() - left.size(), left.size(), left);
        }
        result.append(axis);
    }
    return result;
}

QString TerminalView::line(const SpectrumReading &reading, const QString &status, int columns) const
{
    QString bars;
    for (const int height : columnsOf(reading.bars, columns))
        bars += m_ramp.at(height * (m_ramp.size() - 1) / s_fullScale);
    return QStringLiteral("%1  RMS %2  peak %3  dynamic %4  |%5|")
        .arg(status)
        .arg(reading.rms / s_fullScale, 0, 'f', 3)
        .arg(reading.peak / s_fullScale, 0, 'f', 3)
        .arg(reading.dynamic / s_fullScale, 0, 'f', 3)
        .arg(bars);
}
