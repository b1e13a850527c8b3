#include "tests/remote/framefuzz.h"

#include "tests/remote/frames.h"

#include <algorithm>
#include <QMetaType>
#include <QtEndian>

namespace {

constexpr int kDeepest = 4; // lists in lists

/// Numbers at which something may turn: signs, limits, the length of a null text.
constexpr std::initializer_list<quint32> kTurningPoints {
    0,        1,          2,          0x7F,       0xFF,       0x100,      0xFFFF,     0x100000,
    0x100001, 0x7FFFFFFE, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF0, 0xFFFFFFFE, 0xFFFFFFFF,
};

} // namespace

FrameFuzz::FrameFuzz(quint32 seed, const QList<QByteArray> &recorded)
    : m_random(seed)
    , m_recorded(recorded)
{
}

QByteArray FrameFuzz::session()
{
    switch (below(8)) {
    case 0:
    case 1:
        return right();
    case 2:
    case 3:
    case 4:
        return damaged();
    default:
        return right() + built() + right();
    }
}

QByteArray FrameFuzz::right()
{
    QByteArray result;
    bool attached = false;
    for (int i = below(8); i > 0; --i) {
        switch (below(4)) {
        case 0:
            result += attached ? frames::detach() : frames::attach(oneIn(2));
            attached = !attached;
            break;
        case 1:
            result += frames::ping();
            break;
        default:
            result +=
                frames::call(oneIn(8) ? QString() : QString(below(40), QChar(below(0x10000))));
        }
    }
    // So that whatever comes behind may attach.
    return attached ? result + frames::detach() : result;
}

QByteArray FrameFuzz::damaged()
{
    QByteArray result = m_recorded[below(m_recorded.size())];
    for (int i = 1 + below(3); i > 0; --i)
        damage(&result);
    return result;
}

void FrameFuzz::damage(QByteArray *bytes)
{
    if (bytes->isEmpty())
        return;
    const int at = below(bytes->size());
    switch (below(7)) {
    case 0:
    case 1:
        (*bytes)[at] = static_cast<char>((*bytes)[at] ^ (1 << below(8)));
        break;
    case 2:
        overwrite(bytes, at, choose(kTurningPoints));
        break;
    case 3:
        bytes->remove(at, 1 + below(8));
        break;
    case 4:
        bytes->insert(at, QByteArray(1 + below(8), static_cast<char>(below(256))));
        break;
    case 5:
        bytes->insert(at, bytes->mid(below(bytes->size()), 1 + below(64)));
        break;
    default:
        bytes->truncate(at);
    }
}

void FrameFuzz::overwrite(QByteArray *bytes, int at, quint32 number)
{
    const QByteArray text = frames::bytes(number);
    bytes->replace(at, text.size(), text);
}

QByteArray FrameFuzz::built()
{
    const auto kind = static_cast<quint16>(oneIn(3) ? below(14) : choose({4, 5, 6, 6, 6, 10}));
    QByteArray content = frames::bytes(oneIn(50) ? static_cast<quint16>(below(0x10000)) : kind);
    content += name();
    if (kind == frames::kAttach)
        content += static_cast<char>(oneIn(4) ? below(256) : below(2));
    if (kind == frames::kCall) {
        const auto index = [this] {
            return static_cast<qint32>(oneIn(3) ? choose(kTurningPoints) : 0);
        };
        content += frames::bytes(index(), index()) + arguments();
        const auto none = static_cast<qint32>(-1);
        content += frames::bytes(oneIn(8) ? index() : none, oneIn(8) ? index() : none);
    }
    if (oneIn(10))
        content += QByteArray(below(8), '\0');
    if (oneIn(10))
        content.chop(1 + below(8));
    QByteArray result = frames::frame(content);
    if (oneIn(10))
        overwrite(&result, 0, choose(kTurningPoints));
    return result;
}

QByteArray FrameFuzz::name()
{
    if (!oneIn(6))
        return frames::bytes(frames::tonewell());
    switch (below(4)) {
    case 0:
        return frames::bytes(QString());
    case 1:
        return frames::bytes(choose(kTurningPoints));
    case 2:
        return frames::bytes(QString(below(100), QLatin1Char('x')));
    default: {
        QByteArray result = frames::bytes(frames::tonewell());
        damage(&result);
        return result;
    }
    }
}

QByteArray FrameFuzz::count(int right)
{
    return frames::bytes(oneIn(8) ? choose(kTurningPoints) : static_cast<quint32>(right));
}

QByteArray FrameFuzz::arguments()
{
    const int size = oneIn(2) ? 1 : below(5);
    QByteArray result = count(size);
    for (int i = 0; i < size; ++i)
        result += value(0);
    return result;
}

// A variant: its type, whether it is null, and what a value of that type is made of.
QByteArray FrameFuzz::value(int depth)
{
    const int type = oneIn(2)
        ? QMetaType::QString
        : choose({QMetaType::UnknownType, QMetaType::Int, QMetaType::Double, QMetaType::QByteArray,
                  QMetaType::QVariantList, QMetaType::QVariantMap, QMetaType::QStringList,
                  QMetaType::QBitArray, QMetaType::User});
    QByteArray result =
        frames::bytes(oneIn(20) ? choose(kTurningPoints) : static_cast<quint32>(type),
                      static_cast<qint8>(oneIn(8)));
    if (type == QMetaType::User && depth < kDeepest)
        return result + frames::bytes(QByteArray("QVariant")) + value(depth + 1);
    if (type == QMetaType::QVariantList || type == QMetaType::QVariantMap) {
        const int size = depth < kDeepest ? below(4) : 0;
        result += count(size);
        for (int i = 0; i < size; ++i) {
            if (type == QMetaType::QVariantMap)
                result += name();
            result += value(depth + 1);
        }
        return result;
    }
    const int size = 2 * below(20);
    return result + count(size) + QByteArray(size, static_cast<char>(below(256)));
}
