#pragma once

#include <QString>
#include <string>
#include <string_view>

/// What one consumer may say, and where each piece of it ends. The only place, with frameformat.h,
/// that knows the wire format of Qt Remote Objects; needs nothing of that library.
///
/// A frame is a length of four bytes and that many bytes. Of all that the format can express, a
/// replica of the published interface sends four things:
///
/// - it asks for the object, as a typed or as a dynamic replica, once until it has given it back;
/// - it gives the object back;
/// - it calls the one slot with one text;
/// - it asks whether the source is there still (a heartbeat).
///
/// The text apart, each is one fixed sequence of bytes, so they are compared, not decoded: no
/// length or count that a consumer announces is ever believed, and no memory is asked for. All else
/// is wrong: another kind (the handshake is the source's to send), another name, call or index,
/// more, fewer or other arguments, a byte too many or too few.
class ConsumerFrames {
public:
    static constexpr int kWrong = -1;
    static constexpr int kLongestBytes = 1024 * 1024; ///< of a frame without its length

    explicit ConsumerFrames(const QString &objectName);

    /// Judges the frame that `bytes` begin with. Returns its size, its length included, if it is
    /// whole and right; then it counts as received, so go on behind it. Returns 0 if more bytes
    /// must come first, kWrong if whatever comes will not make it right.
    int receive(std::string_view bytes);

private:
    bool accept(std::string_view frame);
    bool isCall(std::string_view frame) const;

    std::string m_attachTyped;
    std::string m_attachDynamic;
    std::string m_detach;
    std::string m_ping;
    std::string m_callHead; ///< up to the text's length
    bool m_attached = false;
};
