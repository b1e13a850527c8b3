#pragma once

#include "spectrumreading.h"

#include <QStringList>

/// The live spectrum as text.
///
/// On a terminal one picture that is drawn over and over on the terminal's second screen, which is
/// left again by close, at the latest in the destructor. Elsewhere one line per call.
class TerminalView {
public:
    /// onTerminal: whether standard output is one. unicode: whether block characters may be used;
    /// else plain ASCII.
    TerminalView(bool onTerminal, bool unicode);
    ~TerminalView();
    TerminalView(const TerminalView &) = delete;
    TerminalView &operator=(const TerminalView &) = delete;

    /// Gives the terminal back as it was; show no more after it.
    void close();

    /// Shows the reading under one line of status.
    void show(const SpectrumReading &reading, const QString &status);

    /// The picture: rows of at most `columns` characters, `rows` of them at most and four at
    /// least: status, the three levels, bars, axis.
    QStringList picture(const SpectrumReading &reading, const QString &status, int columns,
                        int rows) const;

    /// One line: the levels, the status, and the bars in `columns` characters.
    QString line(const SpectrumReading &reading, const QString &status, int columns) const;

private:
    QVector<int> columnsOf(const QVector<int> &bars, int columns) const;

    bool m_onTerminal;
    const QString m_ramp; ///< from empty to full
};
