#pragma once

#include <QString>
#include <QVector>

/// How regularly messages arrive. Times are milliseconds on any clock that never runs backwards.
/// Uses the same small memory however long it runs: gaps are counted in steps of 0.1 ms up to 10 s.
class MessageStatistics {
public:
    MessageStatistics();

    void addMessage(double time);
    void addBadMessage() { ++m_bad; }
    void addRefusedSource() { ++m_refused; }

    /// The next message starts a new row: the pause before it does not count as a gap.
    void interrupt() { m_running = false; }

    qint64 messages() const { return m_messages; }
    qint64 badMessages() const { return m_bad; }
    qint64 refusedSources() const { return m_refused; }

    /// When the last message came; 0 before the first.
    double lastMessage() const { return m_last; }

    /// Messages a second over all rows; 0 with no gap at all.
    double rate() const;

    /// The gap that the given share (0 to 1) of all gaps does not exceed, in steps of 0.1 ms; 0
    /// with no gap at all.
    double gapPercentile(double share) const;
    double longestGap() const { return m_longest; }

    /// Gaps of more than kLateMs, within which the service misses at least one message.
    qint64 lateMessages() const { return m_late; }
    static constexpr double kLateMs = 40;

    /// All of it, for people: several lines, each with its line feed.
    QString report() const;

private:
    QVector<quint32> m_histogram;
    qint64 m_messages = 0;
    qint64 m_bad = 0;
    qint64 m_refused = 0; ///< sources of another type
    qint64 m_gaps = 0;
    qint64 m_late = 0;
    double m_sum = 0;
    double m_longest = 0;
    double m_last = 0;
    bool m_running = false;
};
