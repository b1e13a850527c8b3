#include "tools/monitor/terminalview.h"

#include "platform/terminal.h"
#include "tools/monitor/meterscale.h"
#include "tools/monitor/standardoutput.h"
#include "tools/monitor/terminaltext.h"
#include "tools/monitor/toplabels.h"

#include <algorithm>

namespace {

constexpr char kEnter[] = "\x1b[?1049h\x1b[?25l";
constexpr char kLeave[] = "\x1b[?25h\x1b[?1049l";
constexpr int kRowsWithLabels = 9; // of the picture, from which on it has a row for them
constexpr int kNameColumns = 7;
constexpr int kLineColumns = 50;

QString coloured(const QString &text, int colour)
{
    return QStringLiteral("\x1b[%1m%2\x1b[0m").arg(colour).arg(text);
}

/// The highest bars of each of so many columns, which share them as evenly as they can.
QVector<int> spread(const QVector<int> &bars, int columns)
{
    QVector<int> result;
    const int count = static_cast<int>(bars.size());
    for (int i = 0; i < columns; ++i) {
        const int first = i * count / columns;
        const int last = std::max((i + 1) * count / columns, first + 1);
        result.append(std::max(*std::max_element(bars.begin() + first, bars.begin() + last), 0));
    }
    return result;
}

/// One height for each column, the channels on either side of the middle.
QVector<int> columnsOf(const QVector<int> &bars, int columns)
{
    const int half = columns / 2;
    return spread(bars.mid(0, bars.size() / 2), half)
        + spread(bars.mid(bars.size() / 2), columns - half);
}

/// The frequencies under a row of bars, in Hz; each label is in the middle of its place.
QString axisOf(int columns)
{
    QString axis(columns, QLatin1Char(' '));
    const auto put = [&](int frequency, const QString &label) {
        const int middle = (frequency + kHighestFrequencyHz) * columns / (2 * kHighestFrequencyHz);
        const int width = static_cast<int>(label.size());
        const int start = std::clamp(middle - width / 2, 0, std::max(columns - width, 0));
        // A label that would touch another one, or be cut, is left out.
        if (start + width > columns
            || !axis.mid(std::max(start - 1, 0), width + 2).trimmed().isEmpty())
            return;
        axis.replace(start, width, label);
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
    , m_style(style)
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

bool TerminalView::show(const TerminalFrame &frame)
{
    if (!m_onTerminal)
        return writeToStandardOutput((line(frame, kLineColumns) + QLatin1Char('\n')).toUtf8());
    if (!takeTerminal(kEnter, kLeave))
        return true;
    const TerminalSize size = terminalSize();
    Picture picture = draw(frame, size.columns, size.rows);
    // Writes every cell anew without clearing it first: nothing flickers, and nothing of the last
    // picture stays. (Clearing the rest of a full row would clear its last cell.)
    while (picture.rows.size() < size.rows)
        picture.rows.append(QString(size.columns, QLatin1Char(' ')));
    if (m_style == ColouredUnicode)
        colour(size.columns, &picture);
    const QString text = picture.rows.mid(0, size.rows).join(QStringLiteral("\r\n"));
    return writeToStandardOutput("\x1b[H" + text.toUtf8());
}

QString TerminalView::meter(int which, double level, double held, int columns) const
{
    const QString head = fittedToColumns(levelName(which), kNameColumns)
        + QStringLiteral(" %1 ").arg(levelNumber(level), 6);
    const int width = std::max(columns - terminalColumns(head), 0);
    QString row(static_cast<int>(meterPosition(level) * width), m_ramp.back());
    const int mark = std::min(static_cast<int>(meterPosition(held) * width), width - 1);
    if (mark >= row.size() && mark > 0)
        row = row.leftJustified(mark) + m_mark;
    return head + row;
}

QStringList TerminalView::picture(const TerminalFrame &frame, int columns, int rows) const
{
    return draw(frame, columns, rows).rows;
}

TerminalView::Picture TerminalView::draw(const TerminalFrame &frame, int columns, int rows) const
{
    const SpectrumReading &reading = frame.reading;
    Picture picture;
    picture.rows = QStringList {frame.status, meter(0, reading.rms, frame.held.rms, columns),
                                meter(1, reading.peak, frame.held.peak, columns),
                                meter(2, reading.dynamic, frame.held.dynamic, columns)};
    picture.meterRows = {1, 2, 3}; // the status is above
    if (rows >= kRowsWithLabels) {
        QString labels;
        for (const TopLabel &label : topLabels(frame.scale, columns, 2, terminalColumns))
            labels = fittedToColumns(labels, label.start) + label.text;
        picture.rows.append(labels);
    }
    drawBars(frame, columns, rows - picture.rows.size() - 1, &picture);
    drawNotice(frame.notice, columns, rows, &picture);
    for (QString &row : picture.rows)
        row = fittedToColumns(m_style == Plain ? asciiOnly(row) : row, columns);
    return picture;
}

void TerminalView::drawBars(const TerminalFrame &frame, int columns, int rows,
                            Picture *picture) const
{
    if (rows <= 0)
        return;
    const QVector<int> heights = columnsOf(frame.reading.bars, columns);
    const int steps = m_ramp.size() - 1;
    for (int row = rows - 1; row >= 0; --row) {
        QString text;
        for (const int height : heights) {
            const double share = std::min(height / frame.top, 1.0);
            const int filled = static_cast<int>(share * rows * steps) - row * steps;
            text += m_ramp.at(std::clamp(filled, 0, steps));
        }
        picture->barRows.append(picture->rows.size());
        picture->rows.append(text);
    }
    picture->rows.append(axisOf(columns));
}

void TerminalView::drawNotice(const QString &notice, int columns, int rows, Picture *picture)
{
    constexpr int kMargin = 2;
    const QStringList lines = wrappedToColumns(notice, std::max(columns - 2 * kMargin, 2));
    if (lines.size() > picture->barRows.size()) {
        // It is all that there is to say: the levels are zero, and the status is in it.
        picture->rows = wrappedToColumns(notice, std::max(columns, 2));
        if (picture->rows.size() > rows) {
            picture->rows = picture->rows.mid(0, rows);
            picture->rows.last() =
                fittedToColumns(picture->rows.last(), std::max(columns - 3, 0)).trimmed()
                + QStringLiteral("...");
        }
        picture->meterRows.clear();
        picture->barRows.clear();
        return;
    }
    const int first = (picture->barRows.size() - lines.size()) / 2;
    for (int i = 0; i < lines.size(); ++i) {
        const int indent = std::max((columns - terminalColumns(lines.at(i))) / 2, 0);
        picture->rows[picture->barRows.at(first + i)] =
            QString(indent, QLatin1Char(' ')) + lines.at(i);
    }
    picture->barRows.erase(picture->barRows.begin() + first,
                           picture->barRows.begin() + first + lines.size());
}

void TerminalView::colour(int columns, Picture *picture) const
{
    // The terminal's own colours, which it has chosen for its background: green levels, and a
    // colour for each channel.
    constexpr int green = 32;
    constexpr int cyan = 36;
    constexpr int magenta = 35;
    for (const int i : picture->meterRows)
        picture->rows[i] = coloured(picture->rows.at(i), green);
    for (const int i : picture->barRows) {
        const QString row = picture->rows.at(i);
        picture->rows[i] =
            coloured(row.left(columns / 2), cyan) + coloured(row.mid(columns / 2), magenta);
    }
}

QString TerminalView::line(const TerminalFrame &frame, int columns) const
{
    const SpectrumReading &reading = frame.reading;
    QString bars;
    for (const int height : columnsOf(reading.bars, columns))
        bars += m_ramp.at(std::min(height, kFullScale) * (m_ramp.size() - 1) / kFullScale);
    return QStringLiteral("%1  RMS %2  peak %3  dynamic %4  |%5|")
        .arg(m_style == Plain ? asciiOnly(frame.status) : frame.status, levelNumber(reading.rms),
             levelNumber(reading.peak), levelNumber(reading.dynamic), bars);
}
