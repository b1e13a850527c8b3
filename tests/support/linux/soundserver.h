// A sound server of a test's own.
#pragma once

#include <memory>
#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <vector>

/// PulseAudio, or PipeWire with its session manager and its PulseAudio protocol, as a child that
/// runs tools/soundserver.py starts it: in a private runtime folder, without any hardware. The
/// user's own server is neither used nor touched. Everything that was started ends with the object,
/// by its process id, and also when the test dies. Failures of calls that return bool are explained
/// by errorText(). For one thread.
class SoundServer {
public:
    enum class Kind { PulseAudio, PipeWire };

    struct Sink {
        QByteArray name;
        QByteArray description; ///< empty: the server's own choice
        int rate = 48000;
        QByteArray channelMap = "front-left,front-right";

        int channels() const { return channelMap.count(',') + 1; }
    };

    explicit SoundServer(Kind kind);
    ~SoundServer();
    SoundServer(const SoundServer &) = delete;
    SoundServer &operator=(const SoundServer &) = delete;

    /// The first program that this kind of server needs and this machine lacks; empty if none.
    static QString missingProgram(Kind kind);

    /// Makes this process, and every one that it starts, a client of this server and of no other.
    void adoptEnvironment() const;

    /// Starts the server, or starts it again in the same place; true once it answers. It has no
    /// sinks (PipeWire may show one that leads nowhere).
    bool start();

    /// Ends the server like a crash. Its sinks are forgotten.
    bool kill();

    bool isRunning() const { return m_running; }

    bool hang(); ///< keeps its processes from running
    bool resume();

    /// Loads a sink that goes nowhere, and waits until the server shows it.
    bool addSink(const Sink &sink);
    bool removeSink(const QByteArray &name);

    /// Removes everything that was added.
    bool clear();

    /// A source that is no monitor. What is played to the sink "<name>_feed" is what it hears.
    bool addMicrophone(const QByteArray &name);

    bool setDefaultSink(const QByteArray &name);
    bool setDefaultSource(const QByteArray &name);

    QList<QByteArray> sinks(); ///< names, in the server's order
    QByteArray defaultSink();
    QByteArray defaultSource();

    /// Runs pactl; false with an errorText() when it fails or takes more than five seconds.
    bool control(const QStringList &arguments, QByteArray *output = nullptr);

    const Sink *find(const QByteArray &name) const;
    QString errorText() const { return m_errorText; }
    const QProcessEnvironment &environment() const { return m_environment; }

private:
    struct Module {
        Sink sink; // without a name: not a sink
        QByteArray number;
    };

    void readEnvironment();
    bool command(const QByteArray &word);
    QByteArray readLine();
    bool loadModule(const QStringList &arguments, QByteArray *number);
    bool setDefault(const QString &command, const QByteArray &name);
    bool waitForName(const QString &kind, const QByteArray &name, bool present);
    QByteArray infoLine(const QByteArray &title);
    bool fail(const QString &text);

    const Kind m_kind;
    QTemporaryDir m_folder;
    QProcessEnvironment m_environment;
    std::unique_ptr<QProcess> m_child; // obeys command() and ends the server with its own input
    bool m_running = false;
    std::vector<Module> m_modules; // in the order in which they were loaded
    QString m_errorText;
};

/// A sine played to a sink for as long as the object lives, by a process of its own.
class Tone {
public:
    /// The amplitude of each channel, 0 to 1, at the sink's own rate and channels.
    Tone(const SoundServer &server, const SoundServer::Sink &sink, double frequency,
         const std::vector<double> &amplitudes);
    ~Tone();
    Tone(const Tone &) = delete;
    Tone &operator=(const Tone &) = delete;

    /// Whether the server has taken the first of it.
    bool isPlaying() const { return m_playing; }

private:
    std::unique_ptr<QProcess> m_process;
    bool m_playing = false;
};
