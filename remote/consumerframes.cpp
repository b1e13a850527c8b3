#include "remote/consumerframes.h"

#include "remote/frameformat.h"

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>
#include <QMetaType>
#include <QtEndian>

namespace {

constexpr quint16 kAddObject = 4;
constexpr quint16 kRemoveObject = 5;
constexpr quint16 kInvoke = 6;
constexpr quint16 kPing = 10;

constexpr qint32 kMethodCall = 0; // QMetaObject::InvokeMetaMethod
constexpr qint32 kSlotIndex = 0; // among the slots of the interface: onMessage
constexpr quint32 kArgumentCount = 1;
constexpr qint8 kNotNull = 0;

constexpr std::size_t kLengthBytes = sizeof(quint32);
constexpr quint32 kNullText = 0xFFFFFFFF; // a null text's length
// No reply is wanted, no property is meant.
constexpr std::string_view kCallTail = "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF";

/// The values as the wire has them, one after the other: alike in every version of the stream.
template <typename... Values> std::string serialised(const Values &...values)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setByteOrder(kFrameByteOrder);
    (stream << ... << values);
    return bytes.toStdString();
}

quint32 lengthAt(std::string_view bytes)
{
    return kFrameByteOrder == QDataStream::BigEndian ? qFromBigEndian<quint32>(bytes.data())
                                                     : qFromLittleEndian<quint32>(bytes.data());
}

bool startsWith(std::string_view bytes, std::string_view start)
{
    return bytes.substr(0, start.size()) == start;
}

} // namespace

ConsumerFrames::ConsumerFrames(const QString &objectName)
    : m_attachTyped(serialised(kAddObject, objectName, false))
    , m_attachDynamic(serialised(kAddObject, objectName, true))
    , m_detach(serialised(kRemoveObject, objectName))
    , m_ping(serialised(kPing, objectName))
    , m_callHead(serialised(kInvoke, objectName, kMethodCall, kSlotIndex, kArgumentCount,
                            static_cast<quint32>(QMetaType::QString), kNotNull))
{
}

int ConsumerFrames::receive(std::string_view bytes)
{
    if (bytes.size() < kLengthBytes)
        return 0;
    const quint32 length = lengthAt(bytes);
    if (length > kLongestBytes)
        return kWrong;
    const std::string_view frame = bytes.substr(kLengthBytes, length);
    if (frame.size() < length)
        return 0;
    return accept(frame) ? static_cast<int>(kLengthBytes + length) : kWrong;
}

bool ConsumerFrames::accept(std::string_view frame)
{
    if (frame == m_detach) {
        m_attached = false;
        return true;
    }
    if (frame == m_attachTyped || frame == m_attachDynamic) {
        const bool first = !m_attached;
        m_attached = true;
        return first;
    }
    return frame == m_ping || isCall(frame);
}

bool ConsumerFrames::isCall(std::string_view frame) const
{
    if (!startsWith(frame, m_callHead))
        return false;
    frame.remove_prefix(m_callHead.size());
    if (frame.size() < kLengthBytes + kCallTail.size())
        return false;
    const quint32 announced = lengthAt(frame);
    frame.remove_prefix(kLengthBytes);
    const std::size_t text = frame.size() - kCallTail.size(); // bytes, two a character
    if (frame.substr(text) != kCallTail)
        return false;
    return announced == kNullText ? text == 0 : announced == text && text % 2 == 0;
}
