#pragma once

#include <QCoreApplication>
#include <QString>
#include <QStringList>

/// What the monitor is asked to do.
struct MonitorOptions {
    Q_DECLARE_TR_FUNCTIONS(MonitorOptions)

public:
    enum Request {
        Run,
        Help,
        Version,
        Wrong ///< the options make no sense, see error
    };
    Request request = Run;
    bool text = false; ///< in the terminal, even with a display
    bool json = false; ///< standard output is the record; recordFile is "-"
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

/// The exit codes of the monitor. Wrong options and a service that is not there are both why
/// nothing was shown; standard error says which.
enum MonitorResult { MessagesCame = 0, WrongOptions = 2, NoMessageCame = 2, FileNotWritten = 3 };
