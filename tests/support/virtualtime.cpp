#include "tests/support/virtualtime.h"

#include "tests/support/virtualdispatcher.h"

#include <algorithm>
#include <climits>
#include <QCoreApplication>
#include <QSemaphore>
#include <QStringList>

#ifdef __SANITIZE_THREAD__
extern "C" {
void AnnotateIgnoreSyncBegin(const char *file, int line);
void AnnotateIgnoreSyncEnd(const char *file, int line);
void AnnotateIgnoreReadsBegin(const char *file, int line);
void AnnotateIgnoreReadsEnd(const char *file, int line);
void AnnotateIgnoreWritesBegin(const char *file, int line);
void AnnotateIgnoreWritesEnd(const char *file, int line);
}
#endif

struct VirtualTime::Member {
    QString name;
    const QThread *thread = nullptr; ///< null for one that is not Qt's
    std::thread::id id; ///< of such a one
    QSemaphore turn; ///< released when its turn has come
    Wait wait;
    quint64 order = 0; ///< of its wait among all waits
    quint64 sinceMs = 0;
    Reason reason = Reason::Due; ///< why it went on
};

namespace {

thread_local VirtualTime::Member *t_member = nullptr;

/// Hides from ThreadSanitizer that the threads take turns: it would take the turns for what orders
/// the product's accesses, and find no race.
class HiddenTurn {
public:
#ifdef __SANITIZE_THREAD__
    HiddenTurn()
    {
        AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
        AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
        AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    }
    ~HiddenTurn()
    {
        AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
        AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
        AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
    }
#else
    HiddenTurn() { }
    ~HiddenTurn() { }
#endif
    HiddenTurn(const HiddenTurn &) = delete;
    HiddenTurn &operator=(const HiddenTurn &) = delete;
};

/// Members that have left and are kept, since who woke them last may not have returned yet.
constexpr std::size_t kKeptMembers = 64;

VirtualDispatcher *dispatcherOfThread()
{
    return dynamic_cast<VirtualDispatcher *>(QAbstractEventDispatcher::instance());
}

} // namespace

VirtualTime::VirtualTime()
{
    m_members.emplace_back();
    t_member = &m_members.back();
    t_member->name = QStringLiteral("the main thread");
    QCoreApplication::setEventDispatcher(
        new VirtualDispatcher(this, VirtualDispatcher::Of::OtherThread));
    setTimeSource(this);
}

VirtualTime::~VirtualTime()
{
    setTimeSource(nullptr);
    t_member = nullptr;
}

VirtualTime *VirtualTime::ofThread()
{
    return t_member ? dynamic_cast<VirtualTime *>(timeSource()) : nullptr;
}

// --- the waits ---------------------------------------------------------------------------------

void VirtualTime::sleepMs(quint64 ms)
{
    if (!t_member) {
        QThread::msleep(static_cast<unsigned long>(ms));
        return;
    }
    Wait sleep;
    sleep.what = "the end of its sleep";
    sleep.dueMs = nowMs() + ms;
    wait(sleep);
}

bool VirtualTime::waitUntil(const char *what, quint64 untilMs, const std::function<bool()> &ready)
{
    if (!t_member) {
        while (!ready() && nowMs() < untilMs)
            QThread::msleep(1);
        return ready();
    }
    Wait condition;
    condition.what = what;
    condition.dueMs = untilMs;
    condition.ready = &ready;
    return wait(condition) == Reason::Ready;
}

bool VirtualTime::waitForEnd(QThread &thread, quint64 ms)
{
    if (t_member) {
        const std::function<bool()> left = [this, &thread] {
            return std::none_of(m_members.begin(), m_members.end(),
                                [&](const Member &member) { return member.thread == &thread; });
        };
        if (!waitUntil("a thread's end", nowMs() + ms, left))
            return false;
        ms = ULONG_MAX; // it has left, and is about to end
    }
    return thread.wait(static_cast<unsigned long>(ms));
}

void VirtualTime::pass(quint64 ms, const std::function<void()> &handle)
{
    passUntil(nullptr, ms, handle);
}

bool VirtualTime::passUntil(const std::function<bool()> &condition, quint64 limitMs,
                            const std::function<void()> &handle)
{
    return passUntil(&condition, limitMs, handle);
}

bool VirtualTime::passUntil(const std::function<bool()> *condition, quint64 limitMs,
                            const std::function<void()> &handle)
{
    const VirtualDispatcher *const dispatcher = dispatcherOfThread();
    const std::function<bool()> woken = [dispatcher] {
        return dispatcher && dispatcher->isWoken();
    };
    const quint64 untilMs = nowMs() + limitMs;
    Wait moment;
    moment.what = "events, in a test";
    moment.ready = &woken;
    for (bool atRest = false;;) {
        if (atRest && condition && (*condition)())
            return true;
        if (atRest && nowMs() >= untilMs)
            return false;
        moment.dueMs = dispatcher ? dispatcher->dueMs() : kNeverMs;
        moment.lastMs = condition && !atRest ? nowMs() : untilMs;
        moment.everyMoment = condition && atRest;
        atRest = wait(moment) == Reason::Last;
        if (!atRest)
            handle();
    }
}

VirtualTime::Reason VirtualTime::wait(const Wait &wait)
{
    const HiddenTurn hidden;
    std::unique_lock<std::mutex> lock(m_mutex);
    t_member->wait = wait;
    t_member->order = ++m_waits;
    t_member->sinceMs = nowMs();
    handOver(&lock);
    return t_member->reason;
}

void VirtualTime::handOver(std::unique_lock<std::mutex> *lock)
{
    Member *const self = t_member;
    Member *const chosen = next();
    if (!chosen) {
        const QString who = whoWaits();
        lock->unlock();
        deadlocked(who);
        lock->lock();
        return;
    }
    if (chosen == self)
        return;
    lock->unlock();
    chosen->turn.release();
    self->turn.acquire();
    lock->lock();
}

// --- whose turn it is --------------------------------------------------------------------------

/// Who goes on; lets the clock jump for it. Null when nobody ever does.
VirtualTime::Member *VirtualTime::next()
{
    for (;;) {
        if (Member *const member = nextOfThisMoment())
            return member;
        const quint64 moment = nextMoment();
        if (moment == kNeverMs)
            return nullptr;
        m_nowMs = moment;
    }
}

VirtualTime::Member *VirtualTime::nextOfThisMoment()
{
    const quint64 now = nowMs();
    Member *first = nullptr;
    Member *last = nullptr;
    for (Member &member : m_members) {
        const Wait &wait = member.wait;
        if (!first || member.order < first->order) {
            const bool ready = wait.ready && (*wait.ready)();
            if (ready || wait.dueMs <= now) {
                first = &member;
                first->reason = ready ? Reason::Ready : Reason::Due;
            }
        }
        if ((!last || member.order < last->order)
            && (wait.lastMs <= now || (wait.everyMoment && member.sinceMs < now)))
            last = &member;
    }
    if (first)
        return first;
    if (last)
        last->reason = Reason::Last;
    return last;
}

quint64 VirtualTime::nextMoment() const
{
    quint64 moment = kNeverMs;
    for (const Member &member : m_members)
        moment = std::min({moment, member.wait.dueMs, member.wait.lastMs});
    return moment;
}

// --- who takes part ----------------------------------------------------------------------------

VirtualTime::Member *VirtualTime::expect(const QString &name, const QThread *thread)
{
    const HiddenTurn hidden;
    const std::lock_guard<std::mutex> lock(m_mutex);
    Member &member = m_members.emplace_back();
    member.name = name;
    member.thread = thread;
    member.wait.what = "its start";
    member.wait.dueMs = nowMs();
    member.order = ++m_waits;
    return &member;
}

void VirtualTime::enter(Member *member)
{
    const HiddenTurn hidden;
    t_member = member;
    member->turn.acquire();
}

void VirtualTime::leave()
{
    const HiddenTurn hidden;
    std::unique_lock<std::mutex> lock(m_mutex);
    const Member *const self = t_member;
    t_member = nullptr;
    const auto own = std::find_if(m_members.begin(), m_members.end(),
                                  [self](const Member &member) { return &member == self; });
    m_left.splice(m_left.end(), m_members, own);
    if (m_left.size() > kKeptMembers)
        m_left.pop_front();
    Member *const chosen = next();
    const QString who = chosen ? QString() : whoWaits();
    lock.unlock();
    if (chosen)
        chosen->turn.release();
    else
        deadlocked(who);
}

void VirtualTime::adopt(QThread &thread)
{
    if (!t_member)
        return;
    const QString name =
        QStringLiteral("a %1").arg(QLatin1String(thread.metaObject()->className()));
    Member *const member = expect(name, &thread);
    thread.setEventDispatcher(new VirtualDispatcher(this, VirtualDispatcher::Of::QtThread));
    QObject::connect(
        &thread, &QThread::started, &thread, [this, member] { enter(member); },
        Qt::DirectConnection);
}

std::thread VirtualTime::startThread(std::function<void()> function)
{
    if (!t_member)
        return std::thread(std::move(function));
    Member *const member = expect(QStringLiteral("another thread"));
    std::thread thread;
    try {
        thread = std::thread([this, member, own = std::move(function)] {
            enter(member);
            QThread::currentThread()->setEventDispatcher(
                new VirtualDispatcher(this, VirtualDispatcher::Of::OtherThread));
            own();
            leave();
        });
    } catch (...) {
        m_members.remove_if([member](const Member &each) { return &each == member; });
        throw;
    }
    member->id = thread.get_id();
    return thread;
}

void VirtualTime::join(std::thread &thread)
{
    if (t_member) {
        waitUntil("a thread's end", kNeverMs, [this, id = thread.get_id()] {
            return std::none_of(m_members.begin(), m_members.end(),
                                [id](const Member &member) { return member.id == id; });
        });
    }
    thread.join();
}

// --- nobody goes on ----------------------------------------------------------------------------

void VirtualTime::setDeadlockHandler(std::function<void(const QString &)> handler)
{
    m_deadlock = std::move(handler);
}

QString VirtualTime::whoWaits() const
{
    QStringList waits;
    for (const Member &member : m_members)
        waits.append(
            QStringLiteral("%1 waits for %2").arg(member.name, QLatin1String(member.wait.what)));
    return waits.join(QStringLiteral(", "));
}

void VirtualTime::deadlocked(const QString &who) const
{
    if (m_deadlock)
        m_deadlock(who);
    else
        qFatal("Everybody waits and nobody is ever due: %s", qPrintable(who));
}

// --- real time ---------------------------------------------------------------------------------

RealTime::RealTime()
    : m_before(timeSource())
{
    setTimeSource(nullptr);
}

RealTime::~RealTime()
{
    setTimeSource(m_before);
}
