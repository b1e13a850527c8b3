#pragma once

#include "tools/monitor/spectrumreading.h"

#include <QStringList>

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

    /// Shows the reading under one line of status. False when it cannot be written.
    bool show(const SpectrumReading &reading, const Levels &held, const QString &status);

    /// The picture: rows of at most `columns` characters, `rows` of them at most and four at
    /// least: status, the three levels, bars, axis. No colours.
    QStringList picture(const SpectrumReading &reading, const Levels &held, const QString &status,
                        int columns, int rows) const;

    /// One line: the status, the levels, and the bars in `columns` characters.
    QString line(const SpectrumReading &reading, const QString &status, int columns) const;

private:
    QString meter(const QString &name, double level, double held, int columns) const;
    void colour(const QVector<int> &bars, QStringList *picture) const;

    bool m_onTerminal;
    const bool m_coloured;
    const QString m_ramp; ///< from empty to full
    const QChar m_mark; ///< of a held level
};
