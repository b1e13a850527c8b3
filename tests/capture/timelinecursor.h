// A cursor on the timeline of a fake audio system.
#pragma once

#include "platform/timesource.h"
#include "tests/support/fakeaudio.h"
#include "tests/support/text.h"

inline QString hex(HRESULT code)
{
    return QString::number(static_cast<quint64>(static_cast<qint64>(code)), 16);
}

/// What real time may take from a duration: the clock's rounding, and of a coarse timer 5 %.
inline qint64 least(qint64 ms, bool coarse = false)
{
    if (timeSource())
        return ms;
    return (coarse ? ms - ms / 20 : ms) - 1;
}

/// Whether a pause that nothing can lengthen lasted so long.
inline bool lasted(qint64 ms, qint64 passedMs)
{
    return timeSource() ? passedMs == ms : passedMs >= least(ms);
}

/// The part of one thread, read from the front.
class Cursor {
public:
    Cursor(const QList<FakeCallRecord> &entries, QStringList &complaints)
        : m_entries(entries)
        , m_complaints(complaints)
    {
    }

    bool atEnd() const { return m_next >= m_entries.size(); }
    bool isBroken() const { return m_broken; }
    /// From now on the end of the timeline is no complaint.
    void mayEnd() { m_mayEnd = true; }
    bool isCutOff() const { return m_broken && m_mayEnd && atEnd(); }
    const FakeCallRecord &peek() const { return m_entries.at(m_next); }
    bool nextIsMessage(const QString &start) const
    {
        return !atEnd() && peek().call == FakeCall::Message && peek().text.startsWith(start);
    }
    bool nextIsCall(FakeCall call) const { return !atEnd() && peek().call == call; }
    const FakeCallRecord &take() { return m_entries.at(m_next++); }
    /// Time since what came before on this thread; -1 at its first.
    qint64 msSinceLast() const
    {
        return m_next > 0 && !atEnd() ? peek().atMs - m_entries.at(m_next - 1).atMs : -1;
    }
    /// Time since the last call of this thread if that was the wanted call; else -1.
    qint64 msSince(FakeCall call) const
    {
        const bool follows = !atEnd() && m_next > 0 && m_entries.at(m_next - 1).call == call;
        return follows ? peek().atMs - m_entries.at(m_next - 1).atMs : -1;
    }

    void message(const QString &start)
    {
        if (m_broken)
            return;
        if (nextIsMessage(start))
            ++m_next;
        else
            complain(QStringLiteral("expected \"%1\"").arg(start));
    }

    FakeCallRecord call(FakeCall wanted)
    {
        if (m_broken)
            return {};
        if (nextIsCall(wanted))
            return take();
        complain(QStringLiteral("expected call %1").arg(static_cast<int>(wanted)));
        FakeCallRecord none;
        none.result = E_UNEXPECTED;
        return none;
    }

    void complain(const QString &what)
    {
        if (m_broken)
            return;
        m_broken = true;
        if (atEnd() && m_mayEnd)
            return;
        QString found = QStringLiteral("the end");
        if (!atEnd())
            found = peek().call == FakeCall::Message ? QStringLiteral("\"%1\"").arg(peek().text)
                                                     : QStringLiteral("call %1 (%2)")
                                                           .arg(static_cast<int>(peek().call))
                                                           .arg(hex(peek().result));
        m_complaints.append(QStringLiteral("%1, found %2").arg(what, found));
    }

private:
    const QList<FakeCallRecord> &m_entries;
    QStringList &m_complaints;
    int m_next = 0;
    bool m_broken = false;
    bool m_mayEnd = false;
};
