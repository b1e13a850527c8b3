#pragma once

#include "tools/monitor/heightscale.h"
#include "tools/monitor/spectrumreading.h"

#include <QStringList>

/// What the terminal shows at one moment.
struct TerminalFrame {
    SpectrumReading reading;
    Levels held;
    QString status; ///< one line
    QString notice; ///< in place of the bars; empty: none
    HeightScale scale;
    double top = kFullScale; ///< the height that reaches the top of the picture
};

/// The live spectrum as text.
///
/// On a terminal one picture that is drawn over and over on the terminal's second screen, which is
/// left again by close, at the latest in the destructor, and while the process is stopped.
/// Elsewhere one line per call.
class TerminalView {
public:
    enum Style { Plain, Unicode, ColouredUnicode };

    /// onTerminal: whether standard output is one. Plain: ASCII only. Colours are for a terminal.
    TerminalView(bool onTerminal, Style style);
    ~TerminalView();
    TerminalView(const TerminalView &) = delete;
    TerminalView &operator=(const TerminalView &) = delete;

    /// Gives the terminal back as it was; show no more after it.
    void close();

    /// Shows the frame. False when it cannot be written.
    bool show(const TerminalFrame &frame);

    /// The picture: rows of exactly `columns` columns, `rows` of them at most, but for the first
    /// four: status, the three levels, what the bars are (where there is room), bars, axis. A
    /// notice for which there is no room among the bars is the whole picture. No colours.
    QStringList picture(const TerminalFrame &frame, int columns, int rows) const;

    /// One line: the status, the levels, and the bars in `columns` characters, of the height that
    /// was sent.
    QString line(const TerminalFrame &frame, int columns) const;

private:
    /// A picture, and which of its rows are levels, or bars and nothing else.
    struct Picture {
        QStringList rows;
        QVector<int> meterRows;
        QVector<int> barRows;
    };
    Picture draw(const TerminalFrame &frame, int columns, int rows) const;
    QString meter(int which, double level, double held, int columns) const;
    void drawBars(const TerminalFrame &frame, int columns, int rows, Picture *picture) const;
    static void drawNotice(const QString &notice, int columns, int rows, Picture *picture);
    void colour(int columns, Picture *picture) const;

    bool m_onTerminal;
    const Style m_style;
    const QString m_ramp; ///< from empty to full
    const QChar m_mark; ///< of a held level
};
