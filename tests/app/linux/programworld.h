#pragma once

#include <memory>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

/// A private place for real processes of the program: folders of its own, no sound server, no
/// system bus, no display. The program then runs with its error report open in a dialog that
/// nobody sees, and publishes.
class ProgramWorld {
public:
    ProgramWorld();

    QProcessEnvironment environment;
    int descriptorLimit = 0; ///< descriptors of each copy; 0 for the limit of the test

    /// The file of the program's socket.
    QString socket() const;

    /// Starts a copy. Its output and errors are kept apart.
    std::unique_ptr<QProcess> start() const;
    /// Starts a copy and waits until its socket is there; null if it does not come.
    std::unique_ptr<QProcess> startAndWait() const;

    /// Lets a consumer receive the given number of messages. Returns what it printed; empty on
    /// failure.
    QString receive(int messages) const;

private:
    QTemporaryDir m_folder;
};
