#include "tests/support/linux/soundserver.h"

#include "platform/qtgeneration.h"
#include "tests/support/text.h"

#include <csignal>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QStandardPaths>
#include <QThread>
#include <QVariant>
#include <sys/prctl.h>

namespace {

constexpr int kPatienceMs = 15000; // for anything that a loaded machine may take its time for

// Ends with this process, whatever ends it.
class Companion : public PreparedProcess {
protected:
    void prepare() override { ::prctl(PR_SET_PDEATHSIG, SIGKILL); }
};

void endProcess(QProcess *process)
{
    process->kill();
    process->waitForFinished(kPatienceMs);
}

} // namespace

SoundServer::SoundServer(Kind kind)
    : m_kind(kind)
    // Not the folder for temporary files: the names of sockets must stay short.
    , m_folder(QStringLiteral("/tmp/tonewell-sound-XXXXXX"))
    , m_environment(QProcessEnvironment::systemEnvironment())
    , m_child(std::make_unique<Companion>())
{
    m_environment.remove(QStringLiteral("DISPLAY"));
    m_environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                         QStringLiteral("unix:path=%1/no-bus").arg(m_folder.path()));
    m_child->setProcessEnvironment(m_environment);
    m_child->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    const bool pulseAudio = kind == Kind::PulseAudio;
    m_child->start(QStringLiteral(TONEWELL_PYTHON),
                   {QStringLiteral(TONEWELL_SOUNDSERVER), QStringLiteral("--commands"),
                    pulseAudio ? QStringLiteral("pulseaudio") : QStringLiteral("pipewire"),
                    m_folder.path(), QStringLiteral("--"), QStringLiteral("--disable-shm=yes")});
    readEnvironment();
}

SoundServer::~SoundServer()
{
    m_child->closeWriteChannel();
    if (!m_child->waitForFinished(kPatienceMs))
        endProcess(m_child.get());
}

void SoundServer::readEnvironment()
{
    for (QByteArray line = readLine(); !line.isEmpty() && line != "ready"; line = readLine()) {
        const QString name = text(line).section(QLatin1Char('='), 0, 0);
        if (line.startsWith('-'))
            m_environment.remove(name.mid(1));
        else
            m_environment.insert(name, text(line).section(QLatin1Char('='), 1));
    }
}

QByteArray SoundServer::readLine()
{
    while (!m_child->canReadLine()) {
        if (!m_child->waitForReadyRead(4 * kPatienceMs)) // whose own patience ends first
            return {};
    }
    return m_child->readLine().trimmed();
}

bool SoundServer::command(const QByteArray &word)
{
    m_child->write(word + '\n');
    const QByteArray answer = readLine();
    return answer == "ok" || fail(QStringLiteral("%1: %2").arg(text(word), text(answer)));
}

QString SoundServer::missingProgram(Kind kind)
{
    QStringList programs {QStringLiteral("pactl")};
    if (kind == Kind::PulseAudio) {
        programs << QStringLiteral("pulseaudio");
    } else {
        programs << QStringLiteral("dbus-daemon") << QStringLiteral("pipewire")
                 << QStringLiteral("wireplumber") << QStringLiteral("pipewire-pulse");
    }
    for (const QString &program : programs) {
        if (QStandardPaths::findExecutable(program).isEmpty())
            return program;
    }
    return {};
}

void SoundServer::adoptEnvironment() const
{
    const QProcessEnvironment before = QProcessEnvironment::systemEnvironment();
    for (const QString &name : before.keys()) {
        if (!m_environment.contains(name))
            qunsetenv(name.toLocal8Bit().constData());
    }
    for (const QString &name : m_environment.keys())
        qputenv(name.toLocal8Bit().constData(), m_environment.value(name).toLocal8Bit());
}

bool SoundServer::start()
{
    m_running = command("start");
    return m_running;
}

bool SoundServer::kill()
{
    m_running = false;
    m_modules.clear();
    return command("kill");
}

bool SoundServer::hang()
{
    return command("hang");
}

bool SoundServer::resume()
{
    return command("resume");
}

bool SoundServer::addSink(const Sink &sink)
{
    QByteArray number;
    QStringList arguments {QStringLiteral("module-null-sink"),
                           QStringLiteral("sink_name=") + text(sink.name),
                           QStringLiteral("rate=%1").arg(sink.rate),
                           QStringLiteral("channels=%1").arg(sink.channels()),
                           QStringLiteral("channel_map=") + text(sink.channelMap)};
    // PulseAudio's would render two seconds at once, and whoever comes meanwhile would hear
    // nothing until they are over.
    if (m_kind == Kind::PulseAudio)
        arguments << QStringLiteral("norewinds=1");
    if (!sink.description.isEmpty()) {
        arguments << QStringLiteral("sink_properties=\"device.description='%1'\"")
                         .arg(text(sink.description));
    }
    if (!loadModule(arguments, &number) || !waitForName(QStringLiteral("sinks"), sink.name, true))
        return false;
    m_modules.push_back({sink, number});
    return true;
}

bool SoundServer::removeSink(const QByteArray &name)
{
    for (auto module = m_modules.begin(); module != m_modules.end(); ++module) {
        if (module->sink.name != name)
            continue;
        const QByteArray number = module->number;
        m_modules.erase(module);
        return control({QStringLiteral("unload-module"), text(number)})
            && waitForName(QStringLiteral("sinks"), name, false);
    }
    return fail(QStringLiteral("no sink %1").arg(text(name)));
}

bool SoundServer::clear()
{
    while (!m_modules.empty()) {
        const Module module = m_modules.back();
        if (!module.sink.name.isEmpty()) {
            if (!removeSink(module.sink.name))
                return false;
            continue;
        }
        m_modules.pop_back();
        if (!control({QStringLiteral("unload-module"), text(module.number)}))
            return false;
    }
    return true;
}

bool SoundServer::addMicrophone(const QByteArray &name)
{
    QByteArray number;
    const bool loaded = addSink({name + "_feed", name + " feed"})
        && loadModule({QStringLiteral("module-remap-source"),
                       QStringLiteral("source_name=") + text(name),
                       QStringLiteral("master=%1_feed.monitor").arg(text(name))},
                      &number);
    if (!loaded)
        return false;
    m_modules.push_back({Sink {}, number});
    return waitForName(QStringLiteral("sources"), name, true);
}

bool SoundServer::setDefaultSink(const QByteArray &name)
{
    return setDefault(QStringLiteral("set-default-sink"), name);
}

bool SoundServer::setDefaultSource(const QByteArray &name)
{
    return setDefault(QStringLiteral("set-default-source"), name);
}

bool SoundServer::setDefault(const QString &command, const QByteArray &name)
{
    // PipeWire answers before its session manager has come up, which keeps the defaults.
    for (const QDeadlineTimer deadline(kPatienceMs); !control({command, text(name)});) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(20);
    }
    return true;
}

bool SoundServer::loadModule(const QStringList &arguments, QByteArray *number)
{
    QByteArray output;
    if (!control(QStringList {QStringLiteral("load-module")} + arguments, &output))
        return false;
    *number = output.trimmed();
    return true;
}

bool SoundServer::waitForName(const QString &kind, const QByteArray &name, bool present)
{
    for (const QDeadlineTimer deadline(kPatienceMs);;) {
        QByteArray output;
        if (control({QStringLiteral("list"), QStringLiteral("short"), kind}, &output)
            && output.contains('\t' + name + '\t') == present)
            return true;
        if (deadline.hasExpired())
            return fail(QStringLiteral("%1 among the %2: still not %3")
                            .arg(text(name), kind, QVariant(present).toString()));
        QThread::msleep(10);
    }
}

QList<QByteArray> SoundServer::sinks()
{
    QByteArray output;
    QList<QByteArray> names;
    if (!control({QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sinks")},
                 &output))
        return names;
    for (const QByteArray &line : output.split('\n')) {
        const QList<QByteArray> fields = line.split('\t');
        if (fields.size() > 1)
            names << fields[1];
    }
    return names;
}

QByteArray SoundServer::defaultSink()
{
    return infoLine("Default Sink: ");
}

QByteArray SoundServer::defaultSource()
{
    return infoLine("Default Source: ");
}

QByteArray SoundServer::infoLine(const QByteArray &title)
{
    QByteArray output;
    control({QStringLiteral("info")}, &output);
    for (const QByteArray &line : output.split('\n')) {
        if (line.startsWith(title))
            return line.mid(title.size());
    }
    return {};
}

bool SoundServer::control(const QStringList &arguments, QByteArray *output)
{
    Companion pactl;
    pactl.setProcessEnvironment(m_environment);
    pactl.start(QStringLiteral("pactl"), arguments);
    if (!pactl.waitForFinished(5000)) {
        endProcess(&pactl);
        return fail(QStringLiteral("pactl %1: no answer").arg(arguments.join(QLatin1Char(' '))));
    }
    if (pactl.exitStatus() != QProcess::NormalExit || pactl.exitCode() != 0) {
        return fail(QStringLiteral("pactl %1: %2")
                        .arg(arguments.join(QLatin1Char(' ')), text(pactl.readAllStandardError())));
    }
    if (output)
        *output = pactl.readAllStandardOutput();
    return true;
}

const SoundServer::Sink *SoundServer::find(const QByteArray &name) const
{
    for (const Module &module : m_modules) {
        if (module.sink.name == name)
            return &module.sink;
    }
    return nullptr;
}

bool SoundServer::fail(const QString &reason)
{
    m_errorText = reason;
    return false;
}

Tone::Tone(const SoundServer &server, const SoundServer::Sink &sink, double frequency,
           const std::vector<double> &amplitudes)
    : m_process(std::make_unique<Companion>())
{
    QStringList arguments {text(sink.name), QString::number(sink.rate), text(sink.channelMap),
                           QString::number(frequency)};
    for (const double amplitude : amplitudes)
        arguments << QString::number(amplitude);
    m_process->setProcessEnvironment(server.environment());
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process->start(QCoreApplication::applicationDirPath() + QStringLiteral("/toneplayer"),
                     arguments, QIODevice::ReadOnly);
    // It says so once the server has taken the first of the tone.
    m_playing = m_process->waitForReadyRead(kPatienceMs)
        && m_process->readAllStandardOutput() == "playing\n";
}

Tone::~Tone()
{
    endProcess(m_process.get());
}
