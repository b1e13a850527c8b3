// Numbers in base 16.
#pragma once

#include <QString>

/// The number in lower-case hexadecimal digits, with zeros in front up to `digits` of them; without
/// "0x". A negative one is widened to 64 bits first, so it has sixteen: the failure code 0x88890004
/// is "ffffffff88890004". Locks nothing; allocates memory, so in a crash only what may do that
/// calls it.
template <typename Integer> QString hexText(Integer number, int digits = 1)
{
    return QStringLiteral("%1").arg(static_cast<qulonglong>(number), digits, 16, QLatin1Char('0'));
}
