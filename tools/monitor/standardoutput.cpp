#include "tools/monitor/standardoutput.h"

#include <cerrno>
#include <cstdio>

namespace {
int s_error = 0;
} // namespace

bool writeToStandardOutput(const QByteArray &bytes)
{
    const std::size_t size = static_cast<std::size_t>(bytes.size());
    errno = 0;
    if (std::fwrite(bytes.constData(), 1, size, stdout) == size && std::fflush(stdout) == 0)
        return true;
    if (s_error == 0)
        s_error = errno == 0 ? EIO : errno;
    return false;
}

QString standardOutputError()
{
    // The words that Qt's files have for it, too.
    return s_error == 0 ? QString() : qt_error_string(s_error);
}
