// Collects what is sent to the debug stream while it lives. One at a time.
#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    QStringList lines() const;

private:
    QtMessageHandler m_previous;
};
