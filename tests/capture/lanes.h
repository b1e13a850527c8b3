// Many controllers at once: the product waits for most of its time, so runs overlap well.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <QEventLoop>
#include <QStringList>
#include <thread>
#include <vector>

/// Calls job(0) to job(jobs - 1), `lanes` of them at a time, each on a thread with events of its
/// own. Returns when all are done.
inline void runInLanes(int lanes, int jobs, const std::function<void(int)> &job)
{
    std::atomic<int> next {0};
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(lanes));
    for (int i = 0; i < lanes; ++i) {
        threads.emplace_back([&] {
            const QEventLoop dispatcher; // makes this thread one with events
            for (int n = next++; n < jobs; n = next++)
                job(n);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

/// Complaints of many threads.
class Complaints {
public:
    void add(const QString &run, const QStringList &texts)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (const QString &text : texts)
            m_texts.append(run + QStringLiteral(": ") + text);
    }
    /// The first complaints, one in a line; empty without complaints.
    QString summary() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_texts.isEmpty() ? QString()
                                 : QStringLiteral("%1 complaints\n").arg(m_texts.size())
                + m_texts.mid(0, 30).join(QLatin1Char('\n'));
    }

private:
    mutable std::mutex m_mutex;
    QStringList m_texts;
};
