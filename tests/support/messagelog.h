// Collects debug messages for tests.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>

class FakeAudio;

/// While it lives, every debug message of the process is kept instead of printed, with the fake
/// audio system that its thread belongs to. One at a time.
class MessageLog {
public:
    struct Line {
        QString text;
        qint64 atMs = 0; ///< by the clock of the product
        const FakeAudio *world = nullptr;
    };

    /// Messages go to the timeline of their world in any case; for a program with thousands of
    /// worlds that is enough.
    enum class Keep { Here, InTheWorldsOnly };
    explicit MessageLog(Keep keep = Keep::Here);
    ~MessageLog();
    MessageLog(const MessageLog &) = delete;
    MessageLog &operator=(const MessageLog &) = delete;

    QList<Line> lines() const;
    /// The texts of one world (all of them for null), quotes removed.
    QStringList texts(const FakeAudio *world = nullptr) const;
    /// Lines that contain the text.
    int count(const QString &text, const FakeAudio *world = nullptr) const;
    bool contains(const QString &text, const FakeAudio *world = nullptr) const
    {
        return count(text, world) > 0;
    }
    /// Whether lines containing these texts come in this order, other lines between them.
    bool inOrder(const QStringList &texts, const FakeAudio *world = nullptr) const;
    void clear();
};
