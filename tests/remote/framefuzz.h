#pragma once

#include <QByteArray>
#include <QList>
#include <QRandomGenerator>

/// Makes up what consumers send: right sessions, recorded sessions with damage, and frames built
/// after the format's grammar with wrong kinds, names, calls, arguments, counts and lengths. The
/// same seed gives the same bytes.
class FrameFuzz {
public:
    /// `recorded` are whole sessions to damage.
    FrameFuzz(quint32 seed, const QList<QByteArray> &recorded);

    /// The bytes of one connection: some frames, of which mostly only the last is wrong, if any.
    QByteArray session();

private:
    int below(int limit) { return m_random.bounded(limit); }
    bool oneIn(int count) { return below(count) == 0; }
    template <typename Value> Value choose(std::initializer_list<Value> values)
    {
        return values.begin()[below(static_cast<int>(values.size()))];
    }

    QByteArray right();
    QByteArray damaged();
    QByteArray built();
    QByteArray name();
    QByteArray arguments();
    QByteArray value(int depth);
    QByteArray count(int right);
    void damage(QByteArray *bytes);
    void overwrite(QByteArray *bytes, int at, quint32 number);

    QRandomGenerator m_random;
    const QList<QByteArray> m_recorded;
};
