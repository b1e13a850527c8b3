#include "tests/support/windows/outsideserver.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QtMath>

namespace {

constexpr int kPatienceMs = 15000;
constexpr int kRateHz = 48000;
constexpr int kSeconds = 60;

bool writeTones(const QString &path, double left, double leftAmplitude, double right,
                double rightAmplitude)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    QDataStream stream(&file);
    stream.setByteOrder(QDataStream::LittleEndian);
    const quint32 bytes = kRateHz * kSeconds * 4;
    stream.writeRawData("RIFF", 4);
    stream << static_cast<quint32>(36 + bytes);
    stream.writeRawData("WAVEfmt ", 8);
    stream << static_cast<quint32>(16) << static_cast<quint16>(1) << static_cast<quint16>(2)
           << static_cast<quint32>(kRateHz) << static_cast<quint32>(kRateHz * 4)
           << static_cast<quint16>(4) << static_cast<quint16>(16);
    stream.writeRawData("data", 4);
    stream << bytes;
    QByteArray second; // whole periods of every whole frequency
    QDataStream samples(&second, QIODevice::WriteOnly);
    samples.setByteOrder(QDataStream::LittleEndian);
    for (int i = 0; i < kRateHz; ++i) {
        const double angle = 2 * M_PI * i / kRateHz;
        samples << static_cast<qint16>(qRound(32767 * leftAmplitude * qSin(left * angle)))
                << static_cast<qint16>(qRound(32767 * rightAmplitude * qSin(right * angle)));
    }
    for (int i = 0; i < kSeconds; ++i)
        stream.writeRawData(second.constData(), second.size());
    return stream.status() == QDataStream::Ok && file.flush();
}

} // namespace

OutsideServer::OutsideServer()
{
    m_socket.connectToHost(QStringLiteral("127.0.0.1"), 4712);
    m_socket.waitForConnected(5000);
}

OutsideServer::~OutsideServer()
{
    stopTones();
    const QList<QByteArray> sinks = m_sinks;
    for (const QByteArray &name : sinks)
        removeSink(name);
}

QByteArray OutsideServer::command(const QByteArray &line)
{
    // A successful command may answer nothing, so a wrong one marks the end.
    m_socket.write(line + "\nthats-all\n");
    QByteArray answer;
    while (!answer.contains("Unknown command: thats-all") && m_socket.waitForReadyRead(kPatienceMs))
        answer += m_socket.readAll();
    return answer;
}

bool OutsideServer::addSink(const QByteArray &name, const QByteArray &description)
{
    QByteArray quoted = description;
    quoted.replace(' ', "\\ ");
    command("load-module module-null-sink sink_name=" + name
            + " norewinds=1 sink_properties=device.description=\"" + quoted + '"');
    m_sinks.append(name);
    return command("list-sinks").contains('<' + name + '>');
}

bool OutsideServer::removeSink(const QByteArray &name)
{
    m_sinks.removeAll(name);
    // The module's number stands in the list of sinks, some lines below the name.
    const QString list = QString::fromUtf8(command("list-sinks"));
    const QRegularExpression module(
        QStringLiteral("name: <%1>.*?\\n\\s*module: (\\d+)").arg(QString::fromUtf8(name)),
        QRegularExpression::DotMatchesEverythingOption);
    command("unload-module " + module.match(list).captured(1).toUtf8());
    return !command("list-sinks").contains('<' + name + '>');
}

bool OutsideServer::playTones(const QByteArray &sink, double left, double leftAmplitude,
                              double right, double rightAmplitude)
{
    stopTones();
    const QString place = QCoreApplication::applicationDirPath();
    m_folder = std::make_unique<QTemporaryDir>(place + QStringLiteral("/tones-XXXXXX"));
    const QString path = m_folder->filePath(QStringLiteral("tones.wav"));
    if (!m_folder->isValid() || !writeTones(path, left, leftAmplitude, right, rightAmplitude))
        return false;
    // Wine shows the server's own paths as a drive.
    command("play-file " + path.section(QLatin1Char(':'), 1).toUtf8() + ' ' + sink);
    return command("list-sink-inputs").contains("tones.wav");
}

void OutsideServer::stopTones()
{
    if (!m_folder)
        return;
    const QString list = QString::fromUtf8(command("list-sink-inputs"));
    const QRegularExpression input(QStringLiteral("index: (\\d+)(?:(?!index:).)*tones\\.wav"),
                                   QRegularExpression::DotMatchesEverythingOption);
    for (auto match = input.globalMatch(list); match.hasNext();)
        command("kill-sink-input " + match.next().captured(1).toUtf8());
    m_folder.reset();
}
