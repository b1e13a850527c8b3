#pragma once

#include "tools/monitor/spectrumreading.h"

#include <QFile>

/// Writes readings to a file, one JSON object a line:
///
///     {"time":12.345678,"rms":49.3824,"peak":112.5,"dynamics":3.25,"bars":[0,12,87, ...]}
///
/// time: seconds of a clock that never runs backwards, microseconds behind the point. The others as
/// they were sent. Each line is handed to the system as a whole, so a reader never sees half of
/// one.
class MessageRecorder {
public:
    /// Makes or empties the file; "-" is standard output. False if that fails, see errorText.
    bool open(const QString &fileName);

    bool isOpen() const { return m_file.isOpen(); }

    /// now: milliseconds. False when not all of it could be written; nothing is written after that.
    bool write(const SpectrumReading &reading, double now);

    QString errorText() const { return m_file.errorString(); }

    /// The line of a reading, its line feed included.
    static QByteArray line(const SpectrumReading &reading, double now);

private:
    QFile m_file;
};
