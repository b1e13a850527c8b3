// What a consumer sends, built piece by piece: right as it stands, wrong where a test changes it.
#pragma once

#include "remote/frameformat.h"

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>
#include <QString>
#include <QVariant>

namespace frames {

constexpr quint16 kAttach = 4;
constexpr quint16 kDetach = 5;
constexpr quint16 kCall = 6;
constexpr quint16 kPing = 10;
constexpr quint16 kPong = 11; ///< of the source

/// The values one after the other, in the format's version.
template <typename... Values> QByteArray bytes(const Values &...values)
{
    QByteArray result;
    QDataStream stream(&result, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_5_12);
    stream.setByteOrder(kFrameByteOrder);
    (stream << ... << values);
    return result;
}

/// The number that stands there.
template <typename Number> Number numberAt(const QByteArray &bytes, int position)
{
    Number result {};
    QDataStream stream(bytes.mid(position));
    stream.setByteOrder(kFrameByteOrder);
    stream >> result;
    return result;
}

/// What kind of frame that is.
inline quint16 kindOf(const QByteArray &frame)
{
    return numberAt<quint16>(frame, sizeof(quint32));
}

/// The content with its length before it.
inline QByteArray frame(const QByteArray &content)
{
    return bytes(static_cast<quint32>(content.size())) + content;
}

inline QString tonewell()
{
    return QStringLiteral("Tonewell");
}

inline QByteArray attach(bool dynamic = false, const QString &name = tonewell())
{
    return frame(bytes(kAttach, name, dynamic));
}

inline QByteArray detach(const QString &name = tonewell())
{
    return frame(bytes(kDetach, name));
}

inline QByteArray ping(const QString &name = tonewell())
{
    return frame(bytes(kPing, name));
}

/// The source's answer to a ping.
inline QByteArray pong()
{
    return frame(bytes(kPong, tonewell()));
}

/// A call with ready-made arguments.
inline QByteArray callWith(const QByteArray &arguments, qint32 index = 0, qint32 call = 0)
{
    return frame(bytes(kCall, tonewell(), call, index) + arguments
                 + bytes(static_cast<qint32>(-1), static_cast<qint32>(-1)));
}

inline QByteArray callWith(const QVariantList &arguments, qint32 index = 0, qint32 call = 0)
{
    return callWith(bytes(arguments), index, call);
}

inline QByteArray call(const QString &text)
{
    return callWith(QVariantList {text});
}

} // namespace frames
