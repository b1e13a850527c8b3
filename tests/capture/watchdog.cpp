#include "tests/capture/watchdog.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr qint64 kWatchdogMs = 5000;

bool isPoll(const FakeCallRecord &record)
{
    return record.call == FakeCall::GetNextPacketSize || record.call == FakeCall::GetBuffer
        || record.call == FakeCall::ReleaseBuffer;
}

} // namespace

Watchdog::Watchdog()
    : m_thread([this] { watch(); })
{
}

Watchdog::~Watchdog()
{
    m_end = true;
    m_thread.join();
}

std::list<Watchdog::Entry>::iterator Watchdog::enter(FakeAudio *world, quint32 seed,
                                                     const char *what)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.push_front({world, seed, what, world->nowMs()});
    return m_entries.begin();
}

void Watchdog::leave(std::list<Entry>::iterator entry)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.erase(entry);
}

void Watchdog::watch()
{
    while (!m_end) {
        sleepMs(250);
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (const Entry &entry : m_entries) {
            qint64 last = entry.sinceMs;
            if (entry.world->nowMs() - last < kWatchdogMs)
                continue;
            for (const FakeCallRecord &record : entry.world->timeline()) {
                if (!isPoll(record))
                    last = qMax(last, record.atMs);
            }
            if (entry.world->nowMs() - last < kWatchdogMs)
                continue;
            std::printf("sequence %u: \"%s\" hangs\n", entry.seed, entry.what);
            for (const FakeCallRecord &record : entry.world->timeline()) {
                if (!isPoll(record))
                    std::printf("%lld %p %d %s\n", static_cast<long long>(record.atMs),
                                record.thread, static_cast<int>(record.call),
                                qPrintable(record.text));
            }
            std::fflush(stdout);
            std::abort();
        }
    }
}
