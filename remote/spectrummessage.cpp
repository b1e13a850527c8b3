#include "remote/spectrummessage.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

constexpr char kKindText[] = "SoundSpectrum";
constexpr QLatin1String kKind(kKindText, sizeof kKindText - 1);
constexpr char16_t kSeparator[] = u"/&+&/";
constexpr int kSeparatorLength = 5;
constexpr double kScale = 400.0;
constexpr int kLevelLength = 13; // -1.23457e+308
constexpr int kBarLength = 4;

/// Writes the Latin-1 text and returns the end of what was written.
QChar *write(QChar *out, const char *begin, const char *end)
{
    return std::transform(begin, end, out, [](char unit) { return QLatin1Char(unit); });
}

QChar *writeSeparator(QChar *out)
{
    // Five units at once; memcpy of a constant size becomes two stores.
    std::memcpy(out, kSeparator, sizeof(QChar) * kSeparatorLength);
    return out + kSeparatorLength;
}

/// True when the shortest scientific text of a number has seven digits of which the last is 5:
/// the number may then lie exactly between two numbers of six digits.
bool mayBeTie(const char *shortest, const char *end)
{
    const char *const digits = shortest + (*shortest == '-');
    return end - digits > 8 && digits[8] == 'e' && digits[7] == '5';
}

QChar *writeLevel(QChar *out, double level)
{
    const double value = level * kScale;
    char text[32];
    const char *end =
        std::to_chars(text, text + sizeof text, value, std::chars_format::scientific).ptr;
    if (!std::isfinite(value) || mayBeTie(text, end)) {
        // to_chars rounds a tie to even and writes a negative nan; QString::number does neither.
        const QString exact = QString::number(value, 'g', 6);
        return std::copy(exact.begin(), exact.end(), out);
    }
    end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6).ptr;
    return write(out, text, end);
}

int scaledBar(float bar)
{
    const float value = bar * static_cast<float>(kScale);
    if (std::isnan(value))
        return 0;
    // No float equals the largest integer. The next float, 2^31, is the first that does not fit.
    if (value >= 2147483648.0F)
        return std::numeric_limits<int>::max();
    if (value < -2147483648.0F)
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

QChar *writeBar(QChar *out, float bar)
{
    const int value = scaledBar(bar);
    if (value >= 0 && value < 1000) {
        // Nearly every bar is one of these.
        if (value >= 100)
            *out++ = QLatin1Char(static_cast<char>('0' + value / 100));
        if (value >= 10)
            *out++ = QLatin1Char(static_cast<char>('0' + value / 10 % 10));
        *out++ = QLatin1Char(static_cast<char>('0' + value % 10));
        return out;
    }
    char text[12];
    const char *const end = std::to_chars(text, text + sizeof text, value).ptr;
    return write(out, text, std::min<const char *>(end, text + kBarLength));
}

} // namespace

QString spectrumMessage(double rmsLevel, double peakLevel, double dynamicLevel, const float *bars,
                        int barCount)
{
    barCount = std::max(barCount, 0);
    QString message(kKind.size() + 3 * (kSeparatorLength + kLevelLength)
                        + barCount * (kSeparatorLength + kBarLength),
                    Qt::Uninitialized);
    QChar *const begin = message.data();
    QChar *out = write(begin, kKind.begin(), kKind.end());
    for (const double level : {rmsLevel, peakLevel, dynamicLevel})
        out = writeLevel(writeSeparator(out), level);
    for (const float *bar = bars; bar != bars + barCount; ++bar)
        out = writeBar(writeSeparator(out), *bar);
    message.truncate(static_cast<int>(out - begin));
    return message;
}
