// Texts of test data.
#pragma once

#include <QBuffer>
#include <QByteArray>
#include <QString>

inline QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// What a text file of this host holds: UTF-8, with the host's line ends.
inline QByteArray textFile(const QString &text)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly | QIODevice::Text);
    buffer.write(text.toUtf8());
    return buffer.data();
}
