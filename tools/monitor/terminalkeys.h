#pragma once

#include <QByteArray>

/// Turns what a terminal sends into keys. A key such as an arrow is a sequence that begins with the
/// byte of Esc and is left out; so Esc is one only when nothing has followed it until the next
/// look.
class TerminalKeys {
public:
    static constexpr char kEscape = '\x1b';

    /// Takes the bytes since the last look, which may be none. Returns the keys, a character each.
    QByteArray take(const QByteArray &bytes);

private:
    enum State {
        Plain,
        AfterEscape, ///< perhaps a key, perhaps the begin of a sequence
        InSequence
    };
    State m_state = Plain;
};
