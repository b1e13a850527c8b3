#pragma once

#include <QObject>
#include <QStringList>

/// Starts the service for a person who asks for it. The service outlives this program.
class ServiceStarter : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    /// command: a program and its arguments, as ServiceLookup names them.
    void start(const QStringList &command);

Q_SIGNALS:
    /// It could not be started: why, one line.
    void failed(const QString &error);
};
