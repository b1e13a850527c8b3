// Tells ThreadSanitizer what Qt orders. Qt itself is not instrumented and its mutexes are bare
// futexes, so the sanitizer sees neither that posting an event happens before its delivery nor
// that unlocking a mutex happens before the next lock, and would report every hand-over.
//
// The calls of our own code that post (--wrap at link time) release, every delivery acquires.
// Posts and deliveries share one tag, so an ordering between unrelated events is seen where there
// is none; mutexes have one each.
#include <QMetaObject>
#include <QMutex>
#include <QObject>
#include <QThread>
#include <QTimer>
#include <sanitizer/tsan_interface.h>

namespace {

char s_events;

bool acquireBeforeDelivery(void **)
{
    __tsan_acquire(&s_events);
    return false; // deliver as usual
}

const bool kRegistered =
    QInternal::registerCallback(QInternal::EventNotifyCallback, acquireBeforeDelivery);

} // namespace

// Names after the mangled names of what they wrap.
#define ACTIVATE _ZN11QMetaObject8activateEP7QObjectPKS_iPPv
#define INVOKE                                                                                     \
    _ZN11QMetaObject12invokeMethodEP7QObjectPKcN2Qt14ConnectionTypeE22QGenericReturnArgument16QGenericArgumentS7_S7_S7_S7_S7_S7_S7_S7_S7_
#define INVOKE_FUNCTOR                                                                             \
    _ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPv
#define SINGLE_SHOT                                                                                \
    _ZN6QTimer14singleShotImplEiN2Qt9TimerTypeEPK7QObjectPN9QtPrivate15QSlotObjectBaseE
#define DELETE_LATER _ZN7QObject11deleteLaterEv
#define THREAD_WAIT _ZN7QThread4waitEm
#define LOCK _ZN6QMutex4lockEv
#define TRY_LOCK _ZN6QMutex7tryLockEi
#define UNLOCK _ZN6QMutex6unlockEv
#define JOIN(a, b) a##b
#define WRAP(name) JOIN(__wrap_, name)
#define REAL(name) JOIN(__real_, name)

extern "C" {

void REAL(ACTIVATE)(QObject *, const QMetaObject *, int, void **);
void WRAP(ACTIVATE)(QObject *sender, const QMetaObject *meta, int signal, void **arguments)
{
    __tsan_release(&s_events);
    REAL(ACTIVATE)(sender, meta, signal, arguments);
    __tsan_release(&s_events); // what direct connections did, for those who wait for the thread
}

bool REAL(THREAD_WAIT)(QThread *, unsigned long);
bool WRAP(THREAD_WAIT)(QThread *thread, unsigned long ms)
{
    const bool finished = REAL(THREAD_WAIT)(thread, ms);
    __tsan_acquire(&s_events);
    return finished;
}

bool REAL(INVOKE)(QObject *, const char *, Qt::ConnectionType, QGenericReturnArgument,
                  QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
                  QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
                  QGenericArgument, QGenericArgument);
bool WRAP(INVOKE)(QObject *object, const char *member, Qt::ConnectionType type,
                  QGenericReturnArgument result, QGenericArgument a0, QGenericArgument a1,
                  QGenericArgument a2, QGenericArgument a3, QGenericArgument a4,
                  QGenericArgument a5, QGenericArgument a6, QGenericArgument a7,
                  QGenericArgument a8, QGenericArgument a9)
{
    __tsan_release(&s_events);
    return REAL(INVOKE)(object, member, type, result, a0, a1, a2, a3, a4, a5, a6, a7, a8, a9);
}

bool REAL(INVOKE_FUNCTOR)(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType, void *);
bool WRAP(INVOKE_FUNCTOR)(QObject *object, QtPrivate::QSlotObjectBase *slot,
                          Qt::ConnectionType type, void *result)
{
    __tsan_release(&s_events);
    return REAL(INVOKE_FUNCTOR)(object, slot, type, result);
}

void REAL(SINGLE_SHOT)(int, Qt::TimerType, const QObject *, QtPrivate::QSlotObjectBase *);
void WRAP(SINGLE_SHOT)(int ms, Qt::TimerType type, const QObject *context,
                       QtPrivate::QSlotObjectBase *slot)
{
    __tsan_release(&s_events);
    REAL(SINGLE_SHOT)(ms, type, context, slot);
}

void REAL(DELETE_LATER)(QObject *);
// Aligned as a member function is: its address is taken as a pointer to member.
[[gnu::aligned(16)]] void WRAP(DELETE_LATER)(QObject *object)
{
    __tsan_release(&s_events);
    REAL(DELETE_LATER)(object);
}

void REAL(LOCK)(QMutex *);
void WRAP(LOCK)(QMutex *mutex)
{
    REAL(LOCK)(mutex);
    __tsan_acquire(mutex);
}

bool REAL(TRY_LOCK)(QMutex *, int);
bool WRAP(TRY_LOCK)(QMutex *mutex, int timeout)
{
    const bool locked = REAL(TRY_LOCK)(mutex, timeout);
    if (locked)
        __tsan_acquire(mutex);
    return locked;
}

void REAL(UNLOCK)(QMutex *);
void WRAP(UNLOCK)(QMutex *mutex)
{
    __tsan_release(mutex);
    REAL(UNLOCK)(mutex);
}

} // extern "C"
