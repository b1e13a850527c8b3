// The program's own files: who may open them, and where the log is.
#pragma once

#include <QString>

/// While it lives, the files that the process creates are the user's alone, sockets included (on
/// Linux through the process's file mode mask, which all threads share). On Windows a local
/// socket's own access list decides, and this does nothing. Not to be nested across threads.
class PrivateFileScope {
public:
    PrivateFileScope();
    ~PrivateFileScope();
    PrivateFileScope(const PrivateFileScope &) = delete;
    PrivateFileScope &operator=(const PrivateFileScope &) = delete;

private:
    unsigned m_before = 0;
};

/// Absolute path of the capture diagnostic log; its folder exists afterwards when it can be made.
QString diagnosticLogPath();
