// The catalogue of endpoints and the thread that tells listeners of its changes.

#include "platform/linux/audio/endpointnotifier.h"
#include "tests/platform/notificationlog.h"
#include "tests/support/virtualmain.h"
#include "tests/support/waiting.h"

#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>
#include <QtTest>

namespace {

/// While set, the system has no thread to give.
std::atomic<bool> s_outOfThreads {false};

} // namespace

/// Stands before the C library's, for this whole program.
extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                              void *(*function)(void *), void *argument) noexcept
{
    static const auto real =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return s_outOfThreads ? EAGAIN : real(thread, attributes, function, argument);
}

namespace {

using namespace std::chrono_literals;

SoundEndpoint endpoint(const wchar_t *id, std::uint32_t index, EDataFlow flow = eRender)
{
    SoundEndpoint result;
    result.flow = flow;
    result.index = index;
    result.id = id;
    result.name = std::wstring(L"Name of ") + id;
    pa_channel_map_init_stereo(&result.channels);
    return result;
}

void fill(EndpointCatalogue *catalogue)
{
    catalogue->begin();
    catalogue->update(endpoint(L"a", 1));
    catalogue->update(endpoint(L"b", 2));
    catalogue->setDefaults(L"a", L"");
    catalogue->complete();
}

bool waitUntilDelivered(const EndpointNotifier &notifier)
{
    return waitUntil([&] { return notifier.delivered(); }, 10000);
}

} // namespace

class EndpointNotifierTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void catalogueIsPublishedWhole();
    void unchangedEndpointsAreNoNews();
    void olderEndpointKeepsTheName();
    void goneEndpointsAreRememberedWithinBounds();
    void reconnectionIsANewConnection();
    void waitingEndsWithTheDeadline();
    void listenersHearOnThreadsOfItsOwn();
    void registrationHoldsAReference();
    void twoRegistrationsHearTwice();
    void removalWaitsForACallUnderWay();
    void removalFromWithinACallDoesNotWait();
    void removalDropsWhatHasNotBeenTold();
    void noLockIsHeldDuringACall();
    void slowListenerHearsTheLatestDefault();
    void slowListenerHearsEveryRoleMeanwhile();
    void everyRoleIsHeardWithoutASecondThread();
    void ownerTakesItsRegistrationsAlong();
    void destructionReleasesListeners();
};

void EndpointNotifierTest::catalogueIsPublishedWhole()
{
    EndpointCatalogue catalogue;
    catalogue.begin();
    catalogue.update(endpoint(L"b", 7));
    catalogue.update(endpoint(L"a", 3));
    QCOMPARE(catalogue.serial(), static_cast<std::uint64_t>(0));
    catalogue.update(endpoint(L"mic", 1, eCapture));
    catalogue.setDefaults(L"b", L"mic");
    catalogue.complete();
    const auto snapshot = catalogue.snapshot();
    QCOMPARE(snapshot->serial, static_cast<std::uint64_t>(1));
    QCOMPARE(snapshot->present.size(), static_cast<std::size_t>(3));
    QCOMPARE(snapshot->present[0].id, std::wstring(L"a"));
    QCOMPARE(snapshot->present[1].id, std::wstring(L"b"));
    QCOMPARE(snapshot->present[2].id, std::wstring(L"mic"));
    QCOMPARE(snapshot->findDefault(eRender)->id, std::wstring(L"b"));
    QCOMPARE(snapshot->findDefault(eCapture)->id, std::wstring(L"mic"));
}

void EndpointNotifierTest::unchangedEndpointsAreNoNews()
{
    EndpointCatalogue catalogue;
    fill(&catalogue);
    const std::uint64_t serial = catalogue.serial();
    catalogue.update(endpoint(L"a", 1));
    catalogue.setDefaults(L"a", L"");
    catalogue.remove(eRender, 99);
    QCOMPARE(catalogue.serial(), serial);
    catalogue.disconnect();
    catalogue.disconnect();
    QCOMPARE(catalogue.serial(), serial + 1);
}

void EndpointNotifierTest::olderEndpointKeepsTheName()
{
    EndpointCatalogue catalogue;
    fill(&catalogue);
    SoundEndpoint twin = endpoint(L"a", 5);
    twin.name = L"Twin";
    catalogue.update(twin);
    QCOMPARE(catalogue.snapshot()->present.size(), static_cast<std::size_t>(2));
    QCOMPARE(catalogue.snapshot()->find(L"a")->name, std::wstring(L"Name of a"));
    catalogue.remove(eRender, 1);
    QCOMPARE(catalogue.snapshot()->find(L"a")->name, std::wstring(L"Twin"));
}

void EndpointNotifierTest::goneEndpointsAreRememberedWithinBounds()
{
    EndpointCatalogue catalogue;
    fill(&catalogue);
    catalogue.remove(eRender, 2);
    const auto snapshot = catalogue.snapshot();
    QVERIFY(!snapshot->findPresent(L"b"));
    QCOMPARE(snapshot->find(L"b")->name, std::wstring(L"Name of b"));
    QCOMPARE(snapshot->find(L"b")->state, static_cast<DWORD>(DEVICE_STATE_NOTPRESENT));
    QVERIFY(!snapshot->find(L"c"));

    for (std::uint32_t i = 10; i < 1000; ++i) {
        catalogue.update(endpoint((L"x" + std::to_wstring(i)).c_str(), i));
        catalogue.remove(eRender, i);
    }
    QCOMPARE(catalogue.snapshot()->gone.size(), static_cast<std::size_t>(64));
    QVERIFY(catalogue.snapshot()->find(L"x999"));
    QVERIFY(!catalogue.snapshot()->find(L"b"));
    catalogue.update(endpoint(L"x999", 1000));
    QCOMPARE(catalogue.snapshot()->gone.size(), static_cast<std::size_t>(63));
}

void EndpointNotifierTest::reconnectionIsANewConnection()
{
    EndpointCatalogue catalogue;
    fill(&catalogue);
    const auto before = catalogue.snapshot();
    catalogue.disconnect();
    QVERIFY(!catalogue.snapshot()->connected);
    QVERIFY(!catalogue.snapshot()->findDefault(eRender));
    QVERIFY(catalogue.snapshot()->find(L"a"));
    fill(&catalogue);
    QVERIFY(catalogue.snapshot()->connected);
    QVERIFY(catalogue.snapshot()->connection != before->connection);
}

void EndpointNotifierTest::waitingEndsWithTheDeadline()
{
    EndpointCatalogue catalogue;
    const quint64 beforeMs = tickCountMs();
    const auto snapshot = catalogue.waitForChange(0, steadyNow() + 50ms);
    QCOMPARE(tickCountMs() - beforeMs, 50ULL);
    QCOMPARE(snapshot->serial, static_cast<std::uint64_t>(0));
    catalogue.disconnect();
    QCOMPARE(catalogue.waitForChange(0, EndpointCatalogue::Clock::time_point::max())->serial,
             static_cast<std::uint64_t>(1));
}

void EndpointNotifierTest::listenersHearOnThreadsOfItsOwn()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    EndpointNotifier notifier(&catalogue);
    notifier.add(this, &log);
    fill(&catalogue);
    QVERIFY(waitUntilDelivered(notifier));
    QCOMPARE(log.lines(), QStringList());

    catalogue.setDefaults(L"b", L"");
    catalogue.update(endpoint(L"c", 3));
    QVERIFY(log.waitFor(NotificationLog::defaultLines(QStringLiteral("b"))));
    QVERIFY(log.waitFor({QStringLiteral("added c")}));
    SoundEndpoint renamed = endpoint(L"c", 3);
    renamed.name = L"New name";
    catalogue.update(renamed);
    QVERIFY(log.waitFor({QStringLiteral("added c"), QStringLiteral("name c")}));
    QVERIFY(log.heardOnOtherThreads());
}

void EndpointNotifierTest::registrationHoldsAReference()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    EndpointNotifier notifier(&catalogue);
    notifier.add(this, &log);
    QCOMPARE(log.references(), 2L);
    QVERIFY(notifier.remove(this, &log));
    QCOMPARE(log.references(), 1L);
    QVERIFY(!notifier.remove(this, &log));
    QCOMPARE(log.references(), 1L);
}

void EndpointNotifierTest::twoRegistrationsHearTwice()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    EndpointNotifier notifier(&catalogue);
    fill(&catalogue);
    QVERIFY(waitUntilDelivered(notifier));
    notifier.add(this, &log);
    notifier.add(this, &log);
    catalogue.update(endpoint(L"c", 3));
    QVERIFY(log.waitFor({QStringLiteral("added c"), QStringLiteral("added c")}));
    QVERIFY(notifier.remove(this, &log));
    QVERIFY(waitUntilDelivered(notifier));
    log.clear();
    catalogue.update(endpoint(L"d", 4));
    QVERIFY(log.waitFor({QStringLiteral("added d")}));
    QVERIFY(waitUntilDelivered(notifier));
    QCOMPARE(log.lines(), QStringList {QStringLiteral("added d")});
}

void EndpointNotifierTest::removalWaitsForACallUnderWay()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    EndpointNotifier notifier(&catalogue);
    fill(&catalogue);
    QVERIFY(waitUntilDelivered(notifier));
    std::atomic<bool> inside {false};
    std::atomic<bool> left {false};
    log.setAction([&] {
        inside = true;
        sleepMs(300);
        left = true;
    });
    notifier.add(this, &log);
    catalogue.update(endpoint(L"c", 3));
    QVERIFY(waitUntil([&] { return inside.load(); }, 10000));
    const quint64 beforeMs = tickCountMs();
    QVERIFY(notifier.remove(this, &log));
    QVERIFY(left);
    QCOMPARE(tickCountMs() - beforeMs, 300ULL);
}

void EndpointNotifierTest::removalFromWithinACallDoesNotWait()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    EndpointNotifier notifier(&catalogue);
    fill(&catalogue);
    QVERIFY(waitUntilDelivered(notifier));
    log.setAction([&] { notifier.remove(this, &log); });
    notifier.add(this, &log);
    catalogue.update(endpoint(L"c", 3));
    QVERIFY(log.waitFor({QStringLiteral("added c")}));
    catalogue.update(endpoint(L"d", 4));
    QVERIFY(waitUntilDelivered(notifier));
    QCOMPARE(log.lines(), QStringList {QStringLiteral("added c")});
    QCOMPARE(log.references(), 1L);
}

void EndpointNotifierTest::removalDropsWhatHasNotBeenTold()
{
    EndpointCatalogue catalogue;
    NotificationLog first;
    NotificationLog second;
    EndpointNotifier notifier(&catalogue);
    fill(&catalogue);
    QVERIFY(waitUntilDelivered(notifier));
    first.setAction([&] { notifier.remove(this, &second); });
    notifier.add(this, &first);
    notifier.add(this, &second);
    catalogue.update(endpoint(L"c", 3));
    QVERIFY(waitUntilDelivered(notifier));
    QCOMPARE(first.lines(), QStringList {QStringLiteral("added c")});
    QCOMPARE(second.lines(), QStringList());
}

void EndpointNotifierTest::noLockIsHeldDuringACall()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    NotificationLog other;
    EndpointNotifier notifier(&catalogue);
    fill(&catalogue);
    QVERIFY(waitUntilDelivered(notifier));
    std::atomic<bool> used {false};
    log.setAction([&] {
        std::thread helper([&] {
            catalogue.update(endpoint(L"d", 4));
            notifier.add(this, &other);
            notifier.remove(this, &other);
            used = catalogue.snapshot()->findPresent(L"d") != nullptr;
        });
        helper.join();
    });
    notifier.add(this, &log);
    catalogue.update(endpoint(L"c", 3));
    QVERIFY(log.waitFor({QStringLiteral("added c"), QStringLiteral("added d")}));
    QVERIFY(used);
    QVERIFY(notifier.remove(this, &log));
}

void EndpointNotifierTest::slowListenerHearsTheLatestDefault()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    EndpointNotifier notifier(&catalogue);
    fill(&catalogue);
    QVERIFY(waitUntilDelivered(notifier));
    log.setAction([] { sleepMs(50); });
    notifier.add(this, &log);
    for (int i = 0; i < 1000; ++i) {
        catalogue.setDefaults(i % 2 ? L"a" : L"b", L"");
        spin(1);
    }
    catalogue.setDefaults(L"b", L"");
    QVERIFY(waitUntilDelivered(notifier));
    const QStringList lines = log.lines();
    QVERIFY2(lines.size() < 30, qPrintable(QString::number(lines.size())));
    QCOMPARE(lines.last(), QStringLiteral("default render communications b"));
}

void EndpointNotifierTest::slowListenerHearsEveryRoleMeanwhile()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    EndpointNotifier notifier(&catalogue);
    notifier.add(this, &log);
    fill(&catalogue);
    QVERIFY(waitUntilDelivered(notifier));
    std::atomic<int> calls {0};
    std::atomic<bool> consoleReturned {false};
    log.setAction([&] {
        if (calls++ == 0) {
            sleepMs(1500);
            consoleReturned = true;
        }
    });
    catalogue.setDefaults(L"b", L"");
    spin(49);
    QCOMPARE(log.lines(), NotificationLog::defaultLines(QStringLiteral("b")).mid(0, 1));
    spin(1);
    QCOMPARE(log.lines(), NotificationLog::defaultLines(QStringLiteral("b")));
    spin(1449);
    QVERIFY(!consoleReturned);
    QVERIFY(!notifier.delivered());
    spin(1);
    QVERIFY(consoleReturned);
    QVERIFY(waitUntilDelivered(notifier));
    QCOMPARE(calls.load(), 3);
}

void EndpointNotifierTest::everyRoleIsHeardWithoutASecondThread()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    EndpointNotifier notifier(&catalogue);
    notifier.add(this, &log);
    fill(&catalogue);
    QVERIFY(waitUntilDelivered(notifier));
    log.clear();
    s_outOfThreads = true;
    catalogue.setDefaults(L"b", L"");
    const bool heard = log.waitFor(NotificationLog::defaultLines(QStringLiteral("b")));
    s_outOfThreads = false;
    QVERIFY(heard);
    QVERIFY(waitUntilDelivered(notifier));
    QCOMPARE(log.lines(), NotificationLog::defaultLines(QStringLiteral("b")));
}

void EndpointNotifierTest::ownerTakesItsRegistrationsAlong()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    EndpointNotifier notifier(&catalogue);
    int one = 0;
    int two = 0;
    notifier.add(&one, &log);
    notifier.add(&one, &log);
    notifier.add(&two, &log);
    QCOMPARE(log.references(), 4L);
    notifier.removeAll(&one);
    QCOMPARE(log.references(), 2L);
    QVERIFY(!notifier.remove(&one, &log));
    QVERIFY(notifier.remove(&two, &log));
}

void EndpointNotifierTest::destructionReleasesListeners()
{
    EndpointCatalogue catalogue;
    NotificationLog log;
    {
        EndpointNotifier notifier(&catalogue);
        notifier.add(this, &log);
        fill(&catalogue);
    }
    QCOMPARE(log.references(), 1L);
}

VIRTUAL_TIME_MAIN(EndpointNotifierTest)
#include "tst_endpointnotifier.moc"
