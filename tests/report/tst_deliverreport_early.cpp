// The sink before the application object exists: the report is a file in the current directory.
#include "report/deliverreport.h"

#include <QtTest>

namespace {

const QString kReport = QStringLiteral("first line\n第二行\n%1\n");

} // namespace

class TestDeliverReportEarly : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void writesAFile();
    void overwritesAFileOfTheSameSecond();
    void folderThatCannotBeWritten();
};

void TestDeliverReportEarly::writesAFile()
{
    QTemporaryDir folder;
    QVERIFY(QDir::setCurrent(folder.path()));
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    deliverReport(kReport);
    const QStringList files = QDir().entryList(QDir::Files);
    QCOMPARE(files.size(), 1);
    const auto name = QRegularExpression(QStringLiteral("^crash_report_(\\d{8}_\\d{6})\\.txt$"))
                          .match(files.first());
    QVERIFY2(name.hasMatch(), qPrintable(files.first()));
    const QDateTime time =
        QDateTime::fromString(name.captured(1), QStringLiteral("yyyyMMdd_HHmmss"));
    QVERIFY(time >= before && time <= QDateTime::currentDateTime());
    QFile file(files.first());
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    QCOMPARE(file.readAll(), kReport.toUtf8());
}

void TestDeliverReportEarly::overwritesAFileOfTheSameSecond()
{
    QTemporaryDir folder;
    QVERIFY(QDir::setCurrent(folder.path()));
    // The second call may fall into the next second: no file has more than its own text.
    deliverReport(kReport + kReport);
    deliverReport(QStringLiteral("short"));
    const QStringList files = QDir().entryList(QDir::Files, QDir::Name);
    QVERIFY(!files.isEmpty());
    QFile file(files.last());
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    QCOMPARE(file.readAll(), QByteArray("short"));
}

void TestDeliverReportEarly::folderThatCannotBeWritten()
{
    QTemporaryDir folder;
    QVERIFY(QDir::setCurrent(folder.path()));
    // Folders that are named like the file of this minute: not even the administrator opens those.
    for (int second = 0; second < 60; ++second) {
        const QDateTime time = QDateTime::currentDateTime().addSecs(second);
        QDir().mkdir(QStringLiteral("crash_report_%1.txt")
                         .arg(time.toString(QStringLiteral("yyyyMMdd_HHmmss"))));
    }
    deliverReport(kReport);
    QCOMPARE(QDir().entryList(QDir::Files), QStringList());
    QVERIFY(QDir::setCurrent(QDir::tempPath()));
}

QTEST_APPLESS_MAIN(TestDeliverReportEarly)
#include "tst_deliverreport_early.moc"
