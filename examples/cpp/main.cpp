// spectrum-consumer: prints the levels and the loudest frequency of each channel, twice a second,
// from what TonewellDetection publishes. Ctrl-C ends it.
#include "rep_commoninterface_replica.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <QVector>

namespace {

constexpr int kBarCount = 100;
constexpr int kSide = kBarCount / 2; // left: bars 0 to 49, right: bars 50 to 99
constexpr double kBarWidthHz = 70.0;
constexpr int kPrintIntervalMs = 500;
constexpr int kPatienceMs = 1000; // without a message until the service counts as missing

/// A message taken apart. Levels and bars are usually 0 to 400, and more at an onset.
struct Reading {
    double rms = 0.0;
    double peak = 0.0;
    double dynamics = 0.0;
    QVector<int> bars;
};

/// Nothing when the text is not a spectrum message.
std::optional<Reading> parse(const QString &text)
{
    const QStringList fields = text.split(QStringLiteral("/&+&/"));
    if (fields.size() != 4 + kBarCount || fields.first() != QLatin1String("SoundSpectrum"))
        return {};
    Reading reading;
    bool ok = true;
    double *const levels[] = {&reading.rms, &reading.peak, &reading.dynamics};
    for (int i = 0; i < 3 && ok; ++i)
        *levels[i] = fields.at(1 + i).toDouble(&ok);
    for (int i = 0; i < kBarCount && ok; ++i)
        reading.bars.append(fields.at(4 + i).toInt(&ok));
    return ok ? std::optional(reading) : std::nullopt;
}

/// The middle of a bar in Hz.
double frequency(int bar)
{
    return bar < kSide ? (kSide - bar - 0.5) * kBarWidthHz : (bar - kSide + 0.5) * kBarWidthHz;
}

/// The loudest bar's frequency, or "-" when all are 0.
QString loudest(const QVector<int> &bars, int first)
{
    const auto begin = bars.begin() + first;
    const auto bar = std::max_element(begin, begin + kSide);
    return *bar > 0 ? QString::number(frequency(static_cast<int>(bar - bars.begin())), 'f', 0)
                    : QStringLiteral("-");
}

void print(const QString &line)
{
    std::puts(qPrintable(line));
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);

    // Both live as long as the program: the node finds the service again by itself.
    QRemoteObjectNode node;
    node.connectToNode(QUrl(QStringLiteral("local:tonewell")));
    const QScopedPointer<CommonInterfaceReplica> replica(
        node.acquire<CommonInterfaceReplica>(QStringLiteral("Tonewell")));

    std::optional<Reading> newest;
    QElapsedTimer age;
    int ignored = 0;
    QObject::connect(replica.data(), &CommonInterfaceReplica::sigMessage, &app,
                     [&](const QString &text) {
                         const std::optional<Reading> reading = parse(text);
                         if (!reading) {
                             ++ignored;
                             return;
                         }
                         newest = reading;
                         age.start();
                     });

    // Every message is taken, the newest is shown.
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &app, [&] {
        if (replica->state() == QRemoteObjectReplica::SignatureMismatch)
            return print(QStringLiteral("the service has another interface: build this anew"));
        if (ignored > 0)
            print(QStringLiteral("ignored %1 messages of another kind").arg(ignored));
        ignored = 0;
        if (!newest || age.elapsed() > kPatienceMs)
            return print(QStringLiteral("waiting for the service"));
        print(QStringLiteral("rms %1  peak %2  dynamics %3  left %4 Hz  right %5 Hz")
                  .arg(newest->rms, 0, 'f', 1)
                  .arg(newest->peak, 0, 'f', 1)
                  .arg(newest->dynamics, 0, 'f', 1)
                  .arg(loudest(newest->bars, 0), loudest(newest->bars, kSide)));
    });
    timer.start(kPrintIntervalMs);
    return QCoreApplication::exec();
}
