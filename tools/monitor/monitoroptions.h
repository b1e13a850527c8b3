#pragma once

#include <QString>
#include <QStringList>

/// What the monitor is asked to do.
struct MonitorOptions {
    enum Request {
        Run,
        Help,
        Version,
        Wrong ///< the options make no sense, see error
    };
    Request request = Run;
    bool text = false; ///< in the terminal, even with a display
    bool stats = false;
    double seconds = 0; ///< 0: until it is ended
    QString recordFile; ///< empty: none
    QString pngFile; ///< empty: none
    QString error; ///< one line for a person

    /// The first argument is the program's name. Needs no application object.
    static MonitorOptions read(const QStringList &arguments);

    /// The description of all options and exit codes; several lines.
    static QString help();
};

/// The exit codes of the monitor.
enum MonitorResult { MessagesCame = 0, WrongOptions = 1, NoMessageCame = 2, FileNotWritten = 3 };
