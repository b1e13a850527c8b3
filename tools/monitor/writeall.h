#pragma once

#include <QFileDevice>

/// Writes all of the bytes to an unbuffered file. A part of them may fit on a disk that is nearly
/// full: the rest is tried once more, since only then the file's error says what is wrong.
inline bool writeAll(QFileDevice *file, const QByteArray &bytes)
{
    for (qint64 done = 0; done < bytes.size();) {
        const qint64 written = file->write(bytes.constData() + done, bytes.size() - done);
        if (written <= 0)
            return false;
        done += written;
    }
    return true;
}
