#include "tools/monitor/waitreason.h"

#include <algorithm>
#include <QFileInfo>

namespace {

/// The generation of Qt whose Remote Objects introduce themselves like this: "QtRO 1.3" is Qt 5,
/// "QtRO 2.0" is Qt 6. 0 for what does not look like either.
int generationOf(const QString &protocol)
{
    const QString version = protocol.section(QLatin1Char(' '), 1);
    const int major = version.section(QLatin1Char('.'), 0, 0).toInt();
    return major > 0 ? major + 4 : 0;
}

bool isSameFolder(const QString &a, const QString &b)
{
    return a == b || QFileInfo(a).canonicalFilePath() == QFileInfo(b).canonicalFilePath();
}

bool runsIn(const QString &folder, const ServiceLookup &lookup)
{
    return std::any_of(lookup.runningIn.begin(), lookup.runningIn.end(),
                       [&](const QString &other) { return isSameFolder(other, folder); });
}

} // namespace

WaitReason WaitReason::explain(const ServiceLookup &lookup, const ProbeResult &probe, bool settled,
                               int qtGeneration)
{
    if (!probe.protocol.isEmpty()) {
        const int generation = generationOf(probe.protocol);
        if (generation != qtGeneration)
            return WaitReason(tr("it speaks %1, which programs of Qt %2 do not understand")
                                  .arg(probe.protocol)
                                  .arg(qtGeneration));
        return WaitReason(settled
                              ? tr("what answers at its socket publishes nothing named Tonewell")
                              : tr("it answers, but has sent nothing yet"));
    }
    const bool runs = !lookup.runningIn.isEmpty();
    if (!lookup.foreignOwner.isEmpty())
        return WaitReason((runs ? tr("it runs, but user %1 holds its socket %2")
                                : tr("user %1 holds its socket %2"))
                              .arg(lookup.foreignOwner, lookup.socket));
    const QString here = QFileInfo(lookup.socket).path();
    if (probe.hungUp && runsIn(here, lookup))
        return WaitReason(
            tr("it takes no more consumers; as soon as one of them ends, there is room"));
    if (probe.accepted)
        return WaitReason(tr("what holds its socket says nothing: another program, or it hangs"));
    if (runs) {
        if (!runsIn(here, lookup))
            return WaitReason(tr("it runs with another TMPDIR: %1 there, %2 here")
                                  .arg(lookup.runningIn.join(QStringLiteral(", ")), here));
        return WaitReason(tr("it runs, but its socket %1 does not answer").arg(lookup.socket));
    }
    if (lookup.startCommand.isEmpty())
        return WaitReason(tr("it is not installed"));
    return WaitReason(
        tr("it is not running; this starts it: %1").arg(lookup.startCommand.join(QLatin1Char(' '))),
        lookup.startCommand);
}
