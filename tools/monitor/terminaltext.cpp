#include "tools/monitor/terminaltext.h"

#include <algorithm>

namespace {

struct Range {
    uint first;
    uint last;
};

// What Unicode calls wide and full width, without the rare ones in between.
constexpr Range kWide[] = {{0x1100, 0x115f},   {0x2e80, 0x303e},  {0x3041, 0xa4cf},
                           {0xac00, 0xd7a3},   {0xf900, 0xfaff},  {0xfe30, 0xfe6f},
                           {0xff00, 0xff60},   {0xffe0, 0xffe6},  {0x1f300, 0x1f64f},
                           {0x1f900, 0x1f9ff}, {0x20000, 0x3fffd}};

int columnsOf(uint character)
{
    return std::any_of(std::begin(kWide), std::end(kWide),
                       [=](const Range &range) {
                           return character >= range.first && character <= range.last;
                       })
        ? 2
        : 1;
}

/// How much of the text, from its begin, fits into so many columns.
int fittingLength(const QVector<uint> &text, int columns)
{
    int length = 0;
    for (int used = 0; length < text.size(); ++length) {
        used += columnsOf(text.at(length));
        if (used > columns)
            break;
    }
    return length;
}

QString asText(const QVector<uint> &characters)
{
    return QString::fromUcs4(reinterpret_cast<const char32_t *>(characters.constData()),
                             characters.size());
}

} // namespace

int terminalColumns(const QString &text)
{
    int columns = 0;
    for (const uint character : text.toUcs4())
        columns += columnsOf(character);
    return columns;
}

QString fittedToColumns(const QString &text, int columns)
{
    const QVector<uint> characters = text.toUcs4();
    const QString cut = asText(characters.mid(0, fittingLength(characters, columns)));
    return cut + QString(std::max(columns - terminalColumns(cut), 0), QLatin1Char(' '));
}

QStringList wrappedToColumns(const QString &text, int columns)
{
    QStringList lines;
    QVector<uint> rest = text.toUcs4();
    while (!rest.isEmpty()) {
        int length = std::max(fittingLength(rest, columns), 1);
        if (length < rest.size()) {
            const int space = rest.lastIndexOf(' ', length);
            length = space > 0 ? space : length;
        }
        lines.append(asText(rest.mid(0, length)).trimmed());
        rest = rest.mid(length);
        while (!rest.isEmpty() && rest.first() == ' ')
            rest.removeFirst();
    }
    return lines;
}

QString asciiOnly(const QString &text)
{
    QString result = text;
    for (QChar &character : result) {
        if (character.unicode() < 0x20 || character.unicode() > 0x7e)
            character = QLatin1Char('?');
    }
    return result;
}
