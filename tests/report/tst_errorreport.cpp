// The head of a report, text by text, on a machine that the test describes.
#include "report/errorreport.h"
#include "tests/report/fakehost.h"

#include <QtTest>
#include <thread>

namespace {

void describeVersion(DWORD major, DWORD minor, DWORD build)
{
    fakeHost().getVersion = [=](OSVERSIONINFOEXW *version) {
        version->dwMajorVersion = major;
        version->dwMinorVersion = minor;
        version->dwBuildNumber = build;
        version->dwPlatformId = 2;
        version->wServicePackMajor = 3;
        version->wServicePackMinor = 1;
        return TRUE;
    };
}

void describeProcessor(WORD architecture, DWORD count)
{
    fakeHost().getSystemInfo = [=](SYSTEM_INFO *info) {
        info->wProcessorArchitecture = architecture;
        info->dwNumberOfProcessors = count;
    };
}

void describeMemory(DWORDLONG total, DWORDLONG available, DWORD load)
{
    fakeHost().getMemory = [=](MEMORYSTATUSEX *status) {
        status->ullTotalPhys = total;
        status->ullAvailPhys = available;
        status->dwMemoryLoad = load;
        return TRUE;
    };
}

void describeDisplay(DWORD width, DWORD height, DWORD rate)
{
    fakeHost().getDisplay = [=](DEVMODEW *mode) {
        mode->dmPelsWidth = width;
        mode->dmPelsHeight = height;
        mode->dmDisplayFrequency = rate;
        return TRUE;
    };
}

// The lines of the system section, without its heading.
QString systemSection()
{
    const QString report = buildErrorReport(QStringLiteral("T"), QStringLiteral("M"));
    return report.section(QStringLiteral("[System Info]\n"), 1)
        .section(QStringLiteral("\n[Runtime Environment]\n"), 0, 0);
}

QString lineStarting(const QString &report, const QString &start)
{
    for (const QString &line : report.split(QLatin1Char('\n'))) {
        if (line.startsWith(start))
            return line;
    }
    return {};
}

} // namespace

class TestErrorReport : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void wholeReport();
    void reportTimeIsLocalNow();
    void version_data();
    void version();
    void failedVersionQueryLeavesItsLinesOut();
    void architecture_data();
    void architecture();
    void sixteenGibibytesAreSixteen();
    void memoryWithTwoDecimals();
    void percentSignIsDoubled();
    void failedMemoryQueryLeavesItsLinesOut();
    void failedDisplayQueryLeavesItsLineOut();
    void everyQueryFails();
    void messageWithLineBreakStartsAtTheLeftMargin();
    void placeholdersInArgumentsStay();
    void threadIdIsTheCallers();
};

void TestErrorReport::init()
{
    fakeHost() = FakeHost();
    describeProcessor(PROCESSOR_ARCHITECTURE_AMD64, 16);
}

void TestErrorReport::wholeReport()
{
    describeVersion(10, 0, 22631);
    describeMemory(34359738368ULL, 17448304640ULL, 45);
    describeDisplay(2560, 1440, 144);
    const QString report =
        buildErrorReport(QStringLiteral("Type of it"), QStringLiteral("Message of it"));

    const QString expected =
        QStringLiteral("===========================================\n"
                       "     TonewellDetection Error Report\n"
                       "===========================================\n"
                       "\n"
                       "%1\n"
                       "\n"
                       "[Application Info]\n"
                       "  App Name: NameOfIt\n"
                       "  App Version: 7.8.9\n"
                       "  Executable: %2\n"
                       "%3\n"
                       "\n"
                       "[Exception Info]\n"
                       "  Exception Type: Type of it\n"
                       "  Exception Message: Message of it\n"
                       "\n"
                       "[System Info]\n"
                       "  Windows Version: 10.0 (Build 22631) [Windows 11]\n"
                       "  Platform ID: 2\n"
                       "  Service Pack: 3.1\n"
                       "  System Architecture: x64\n"
                       "  Processor Cores: 16\n"
                       "  Total Memory: 32.00 GB\n"
                       "  Available Memory: 16.25 GB\n"
                       "  Memory Usage: 45%%\n"
                       "  Screen Resolution: 2560 x 1440 @ 144Hz\n"
                       "\n"
                       "[Runtime Environment]\n"
                       "  Qt Version: %4\n"
                       "  Compiler: MSVC 1929\n"
                       "  Build Type: Release\n"
                       "%5\n"
                       "  Ideal Thread Count: %6\n"
                       "\n"
                       "===========================================\n"
                       "            End of Report\n"
                       "===========================================\n")
            .arg(lineStarting(report, QStringLiteral("[Report Time] ")),
                 QCoreApplication::applicationFilePath(),
                 lineStarting(report, QStringLiteral("  Build Date: ")),
                 QString::fromLatin1(qVersion()),
                 lineStarting(report, QStringLiteral("  Current Thread ID: 0x")),
                 QString::number(QThread::idealThreadCount()));
    QCOMPARE(report, expected);
    const QRegularExpression date(
        QStringLiteral("^  Build Date: [A-Z][a-z]{2} [ 1-3]\\d 20\\d\\d \\d\\d:\\d\\d:\\d\\d$"));
    QVERIFY(date.match(lineStarting(report, QStringLiteral("  Build Date: "))).hasMatch());
}

void TestErrorReport::reportTimeIsLocalNow()
{
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    const QString report = buildErrorReport({}, {});
    const QString text = lineStarting(report, QStringLiteral("[Report Time] ")).mid(14);
    const QDateTime time = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    QVERIFY2(time.isValid(), qPrintable(text));
    QVERIFY(time >= before && time <= QDateTime::currentDateTime());
}

void TestErrorReport::version_data()
{
    QTest::addColumn<uint>("major");
    QTest::addColumn<uint>("minor");
    QTest::addColumn<uint>("build");
    QTest::addColumn<QString>("text");
    QTest::newRow("22631 is Windows 11")
        << 10U << 0U << 22631U << "10.0 (Build 22631) [Windows 11]";
    QTest::newRow("22000 is Windows 11")
        << 10U << 0U << 22000U << "10.0 (Build 22000) [Windows 11]";
    QTest::newRow("21999 is Windows 10")
        << 10U << 0U << 21999U << "10.0 (Build 21999) [Windows 10]";
    QTest::newRow("19045 is Windows 10")
        << 10U << 0U << 19045U << "10.0 (Build 19045) [Windows 10]";
    QTest::newRow("6.2 has no suffix") << 6U << 2U << 9200U << "6.2 (Build 9200)";
    QTest::newRow("10.1 has no suffix") << 10U << 1U << 30000U << "10.1 (Build 30000)";
    QTest::newRow("11.0 has no suffix") << 11U << 0U << 30000U << "11.0 (Build 30000)";
}

void TestErrorReport::version()
{
    QFETCH(uint, major);
    QFETCH(uint, minor);
    QFETCH(uint, build);
    QFETCH(QString, text);
    describeVersion(major, minor, build);
    QVERIFY(systemSection().startsWith(
        QStringLiteral("  Windows Version: %1\n  Platform ID: 2\n  Service Pack: 3.1\n")
            .arg(text)));
}

void TestErrorReport::failedVersionQueryLeavesItsLinesOut()
{
    describeDisplay(1, 2, 3);
    QCOMPARE(systemSection(),
             QStringLiteral("  System Architecture: x64\n  Processor Cores: 16\n"
                            "  Screen Resolution: 1 x 2 @ 3Hz\n"));
}

void TestErrorReport::architecture_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("name");
    QTest::newRow("9") << 9 << "x64";
    QTest::newRow("0") << 0 << "x86";
    QTest::newRow("12") << 12 << "ARM64";
    QTest::newRow("5") << 5 << "Unknown";
    QTest::newRow("65535") << 65535 << "Unknown";
}

void TestErrorReport::architecture()
{
    QFETCH(int, code);
    QFETCH(QString, name);
    describeProcessor(static_cast<WORD>(code), 3);
    QCOMPARE(systemSection(),
             QStringLiteral("  System Architecture: %1\n  Processor Cores: 3\n").arg(name));
}

void TestErrorReport::sixteenGibibytesAreSixteen()
{
    describeMemory(17179869184ULL, 17179869184ULL, 0);
    QVERIFY(systemSection().contains(QStringLiteral("\n  Total Memory: 16.00 GB\n")));
}

void TestErrorReport::memoryWithTwoDecimals()
{
    describeMemory(17179869184ULL - 10737419ULL, 8053064ULL, 99); // 15.99 and 0.0075 gibibytes
    const QString section = systemSection();
    QVERIFY(section.contains(QStringLiteral("\n  Total Memory: 15.99 GB\n")));
    QVERIFY(section.contains(QStringLiteral("\n  Available Memory: 0.01 GB\n")));
}

void TestErrorReport::percentSignIsDoubled()
{
    describeMemory(1, 1, 45);
    QVERIFY(systemSection().contains(QStringLiteral("\n  Memory Usage: 45%%\n")));
}

void TestErrorReport::failedMemoryQueryLeavesItsLinesOut()
{
    describeVersion(10, 0, 22631);
    describeDisplay(1920, 1080, 60);
    QVERIFY(systemSection().endsWith(QStringLiteral("\n  Processor Cores: 16\n"
                                                    "  Screen Resolution: 1920 x 1080 @ 60Hz\n")));
}

void TestErrorReport::failedDisplayQueryLeavesItsLineOut()
{
    describeMemory(1073741824ULL, 1073741824ULL, 7);
    QVERIFY(systemSection().endsWith(QStringLiteral("\n  Memory Usage: 7%%\n")));
}

void TestErrorReport::everyQueryFails()
{
    QCOMPARE(systemSection(),
             QStringLiteral("  System Architecture: x64\n  Processor Cores: 16\n"));
}

void TestErrorReport::messageWithLineBreakStartsAtTheLeftMargin()
{
    const QString report =
        buildErrorReport(QStringLiteral("Audio Service Error"),
                         QStringLiteral("WASAPI Error: x\nError Code: 0x80004005"));
    QVERIFY(report.contains(QStringLiteral("  Exception Type: Audio Service Error\n"
                                           "  Exception Message: WASAPI Error: x\n"
                                           "Error Code: 0x80004005\n\n[System Info]\n")));
}

void TestErrorReport::placeholdersInArgumentsStay()
{
    const QString report = buildErrorReport(QStringLiteral("%1 %2"), QStringLiteral("%1%2%%"));
    QVERIFY(
        report.contains(QStringLiteral("  Exception Type: %1 %2\n  Exception Message: %1%2%%\n")));
}

void TestErrorReport::threadIdIsTheCallers()
{
    const auto line = [](Qt::HANDLE id) {
        return QStringLiteral("  Current Thread ID: 0x%1")
            .arg(static_cast<qulonglong>(reinterpret_cast<quintptr>(id)), 16, 16, QLatin1Char('0'));
    };
    QString here;
    QString expected;
    std::thread([&] {
        here = buildErrorReport({}, {});
        expected = line(QThread::currentThreadId());
    }).join();
    QCOMPARE(lineStarting(here, QStringLiteral("  Current Thread ID: ")), expected);
    QVERIFY(expected != line(QThread::currentThreadId()));
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("NameOfIt"));
    QCoreApplication::setApplicationVersion(QStringLiteral("7.8.9"));
    TestErrorReport test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_errorreport.moc"
