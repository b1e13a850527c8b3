// The stacks of threads that start later.
#include "platform/threadstacks.h"

#include <cstddef>
#include <pthread.h>
#include <QtTest>
#include <thread>

class ThreadStacksTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aNewThreadHasOneMebibyte();
};

void ThreadStacksTest::aNewThreadHasOneMebibyte()
{
    useSmallThreadStacks();
    std::size_t size = 0;
    std::thread thread([&size] {
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
            pthread_attr_getstacksize(&attributes, &size);
            pthread_attr_destroy(&attributes);
        }
    });
    thread.join();
    QCOMPARE(size, static_cast<std::size_t>(1 << 20));
}

QTEST_GUILESS_MAIN(ThreadStacksTest)
#include "tst_threadstacks.moc"
