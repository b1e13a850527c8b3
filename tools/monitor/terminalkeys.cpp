#include "tools/monitor/terminalkeys.h"

QByteArray TerminalKeys::take(const QByteArray &bytes)
{
    QByteArray keys;
    if (bytes.isEmpty() && m_state == AfterEscape) {
        keys.append(kEscape);
        m_state = Plain;
    }
    for (const char byte : bytes) {
        switch (m_state) {
        case Plain:
            if (byte == kEscape)
                m_state = AfterEscape;
            else
                keys.append(byte);
            break;
        case AfterEscape:
            // Esc [ and Esc O begin a sequence; before any other it is that key with Alt.
            m_state = byte == '[' || byte == 'O' ? InSequence : Plain;
            break;
        case InSequence:
            if (byte >= '@' && byte <= '~')
                m_state = Plain;
            break;
        }
    }
    return keys;
}
