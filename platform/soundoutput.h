// What the sound system plays to, for a person who wonders why nothing is to be seen.
#pragma once

#include <memory>
#include <QObject>

/// What the sound system says about its output.
struct SoundOutputState {
    enum Kind {
        Unknown, ///< not asked, not answered yet, or a host that is not asked at all
        NoServer, ///< the sound system does not run
        NoDevice, ///< it runs and has nothing to play to
        Idle, ///< nothing plays to the default output
        Playing ///< a program plays to the default output, be it silence
    };
    Kind kind = Unknown;
    QString name; ///< the default output as people know it; empty unless Idle or Playing

    bool operator==(const SoundOutputState &other) const
    {
        return kind == other.kind && name == other.name;
    }
    bool operator!=(const SoundOutputState &other) const { return !(*this == other); }
};

/// Asks the sound system and follows it while it is active; otherwise it has no connection to it.
/// Nothing here waits: answers come as a signal, on the thread that this lives on, whose event loop
/// must run. On Windows the state is always Unknown.
class SoundOutput : public QObject {
    Q_OBJECT

public:
    explicit SoundOutput(QObject *parent = nullptr);
    ~SoundOutput() override;

    /// Connects, or lets go and forgets what was known. No server is ever started.
    void setActive(bool active);

    const SoundOutputState &state() const { return m_state; }

Q_SIGNALS:
    void changed(const SoundOutputState &state);

private:
    class Connection;
    void setState(const SoundOutputState &state);

    SoundOutputState m_state;
    std::unique_ptr<Connection> m_connection; ///< null while not active
};
