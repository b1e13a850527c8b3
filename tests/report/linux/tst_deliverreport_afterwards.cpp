// A report that is handed over while there is an application object, and whose turn comes when
// there is none any more: it is written to a file.
#include "report/deliverreport.h"

#include <private/qthread_p.h>
#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString kReport = QStringLiteral("first line\n第二行\n");

// Of the kind whose events are also delivered without an application.
class Reporter : public QDaemonThread {
public:
    QSemaphore handedOver;
    QSemaphore applicationGone;

protected:
    void run() override
    {
        deliverReport(kReport);
        handedOver.release();
        applicationGone.acquire();
        eventDispatcher()->processEvents(QEventLoop::AllEvents);
    }
};

QStringList files()
{
    return QDir().entryList(QDir::Files);
}

} // namespace

class TestDeliverReportAfterwards : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void writesAFile_data();
    void writesAFile();
};

void TestDeliverReportAfterwards::writesAFile_data()
{
    QTest::addColumn<bool>("writable");
    QTest::newRow("in its folder") << true;
    QTest::newRow("where no file can be made") << false;
}

void TestDeliverReportAfterwards::writesAFile()
{
    QFETCH(bool, writable);
    const QTemporaryDir folder;
    QVERIFY(QDir::setCurrent(writable ? folder.path() : QStringLiteral("/proc/self")));
    const QStringList before = writable ? QStringList() : files();
    Reporter reporter;
    {
        int argc = 1;
        char name[] = "tst_deliverreport_afterwards";
        char *argv[] = {name, nullptr};
        const QCoreApplication application(argc, argv);
        reporter.start();
        reporter.handedOver.acquire();
        if (writable)
            QCOMPARE(files(), QStringList());
    }
    reporter.applicationGone.release();
    QVERIFY(reporter.wait(10000));
    if (!writable) {
        QCOMPARE(files(), before);
        QVERIFY(QDir::setCurrent(QDir::tempPath()));
        return;
    }
    QCOMPARE(files().size(), 1);
    const QRegularExpression name(QStringLiteral("^crash_report_\\d{8}_\\d{6}\\.txt$"));
    QVERIFY2(name.match(files().first()).hasMatch(), qPrintable(files().first()));
    QFile file(files().first());
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    QCOMPARE(file.readAll(), kReport.toUtf8());
    QVERIFY(QDir::setCurrent(QDir::tempPath()));
}

QTEST_APPLESS_MAIN(TestDeliverReportAfterwards)
#include "tst_deliverreport_afterwards.moc"
