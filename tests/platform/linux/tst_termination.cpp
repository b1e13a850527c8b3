// Requests to end the process.
#include "platform/termination.h"

#include <csignal>
#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <QtTest>

class TerminationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void requestBeforeTheLoopRunsEndsIt();
};

void TerminationTest::requestBeforeTheLoopRunsEndsIt()
{
    endEventLoopOnTermination();
    std::raise(SIGTERM);
    QEventLoop inner; // as while the program is being set up
    QTimer::singleShot(100, &inner, &QEventLoop::quit);
    inner.exec();
    QTimer::singleShot(10000, this, [] { QCoreApplication::exit(1); });
    QCOMPARE(QCoreApplication::exec(), 0);
}

QTEST_GUILESS_MAIN(TerminationTest)
#include "tst_termination.moc"
