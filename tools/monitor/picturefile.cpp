#include "tools/monitor/picturefile.h"

#include "tools/monitor/writeall.h"

#include <memory>
#include <QBuffer>
#include <QFileInfo>
#include <QImageWriter>
#include <QSaveFile>

namespace {

/// A device or pipe cannot be replaced by a file: it is written to.
std::unique_ptr<QFileDevice> fileFor(const QString &fileName)
{
    const QFileInfo info(fileName);
    if (info.exists() && !info.isFile() && !info.isDir())
        return std::make_unique<QFile>(fileName);
    return std::make_unique<QSaveFile>(fileName);
}

} // namespace

bool savePicture(const QImage &picture, const QString &fileName, QString *error)
{
    QByteArray png;
    QBuffer buffer(&png);
    QImageWriter writer(&buffer, "PNG");
    if (!writer.write(picture)) {
        *error = writer.errorString();
        return false;
    }
    const std::unique_ptr<QFileDevice> file = fileFor(fileName);
    bool written =
        file->open(QIODevice::WriteOnly | QIODevice::Unbuffered) && writeAll(file.get(), png);
    if (auto *const whole = qobject_cast<QSaveFile *>(file.get()); whole && written)
        written = whole->commit();
    if (!written)
        *error = file->errorString();
    return written;
}
