// What this host answers about itself, compared with the files of its kernel. Queries that it
// cannot answer fail.
#include "platform/display.h"

#include <windows.h>
#include <QFile>
#include <QGuiApplication>
#include <QtTest>
#include <thread>
#include <unistd.h>
#include <winsvc.h>

class TestSystemQueries : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void versionIsNotAnswered();
    void processors();
    void memory();
    void memoryNeedsItsLength();
    void noServices();
    void noDisplayInMemory();
    void displayNeedsItsSize();
    void lastErrorIsTheThreads();
};

void TestSystemQueries::versionIsNotAnswered()
{
    OSVERSIONINFOEXW version {};
    version.dwOSVersionInfoSize = sizeof(version);
    QVERIFY(!GetVersionExW(reinterpret_cast<OSVERSIONINFOW *>(&version)));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_CALL_NOT_IMPLEMENTED));
    QCOMPARE(version.dwMajorVersion, 0U);
}

void TestSystemQueries::processors()
{
    SYSTEM_INFO info {};
    GetSystemInfo(&info);
    QCOMPARE(info.wProcessorArchitecture, static_cast<WORD>(PROCESSOR_ARCHITECTURE_AMD64));
    int listed = 0;
    QFile file(QStringLiteral("/proc/cpuinfo"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    for (const QByteArray &line : file.readAll().split('\n'))
        listed += line.startsWith("processor\t") ? 1 : 0;
    QCOMPARE(static_cast<int>(info.dwNumberOfProcessors), listed);
    QCOMPARE(static_cast<long>(info.dwPageSize), sysconf(_SC_PAGESIZE));
}

void TestSystemQueries::memory()
{
    MEMORYSTATUSEX status {};
    status.dwLength = sizeof(status);
    QVERIFY(GlobalMemoryStatusEx(&status));
    QFile file(QStringLiteral("/proc/meminfo"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromLatin1(file.readAll());
    const auto bytes = [&text](const char *name) {
        const QRegularExpression line(QStringLiteral("^%1: +(\\d+) kB$").arg(QLatin1String(name)),
                                      QRegularExpression::MultilineOption);
        return line.match(text).captured(1).toULongLong() * 1024;
    };
    QCOMPARE(static_cast<qulonglong>(status.ullTotalPhys), bytes("MemTotal"));
    // Others use memory meanwhile.
    const double available = static_cast<double>(bytes("MemAvailable"));
    QVERIFY(qAbs(static_cast<double>(status.ullAvailPhys) - available)
            < static_cast<double>(status.ullTotalPhys) / 10);
    const double used = static_cast<double>(status.ullTotalPhys - status.ullAvailPhys);
    QCOMPARE(static_cast<int>(status.dwMemoryLoad),
             static_cast<int>(used * 100 / static_cast<double>(status.ullTotalPhys)));
    QVERIFY(status.ullTotalPageFile >= status.ullTotalPhys);
}

void TestSystemQueries::memoryNeedsItsLength()
{
    MEMORYSTATUSEX status {};
    status.dwLength = sizeof(status) - 1;
    QVERIFY(!GlobalMemoryStatusEx(&status));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    QCOMPARE(status.ullTotalPhys, static_cast<DWORDLONG>(0));
}

void TestSystemQueries::noServices()
{
    QVERIFY(!OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_CALL_NOT_IMPLEMENTED));
    SetLastError(ERROR_SUCCESS);
    QVERIFY(!OpenServiceW(nullptr, L"Audiosrv", SERVICE_QUERY_STATUS));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_CALL_NOT_IMPLEMENTED));
    SERVICE_STATUS status {};
    QVERIFY(!QueryServiceStatus(nullptr, &status));
    QVERIFY(!CloseServiceHandle(nullptr));
}

void TestSystemQueries::noDisplayInMemory()
{
    DEVMODEW mode {};
    mode.dmSize = sizeof(mode);
    QVERIFY(!dialogCanBeSeen());
    QVERIFY(!EnumDisplaySettingsW(nullptr, ENUM_CURRENT_SETTINGS, &mode));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_NOT_SUPPORTED));

    int argc = 1;
    char name[] = "test";
    char *argv[] = {name, nullptr};
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    QVERIFY(QGuiApplication::primaryScreen());
    QVERIFY(!dialogCanBeSeen());
    QVERIFY(!EnumDisplaySettingsW(nullptr, ENUM_CURRENT_SETTINGS, &mode));
}

void TestSystemQueries::displayNeedsItsSize()
{
    DEVMODEW mode {};
    mode.dmSize = sizeof(mode) - 1;
    QVERIFY(!EnumDisplaySettingsW(nullptr, ENUM_CURRENT_SETTINGS, &mode));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

void TestSystemQueries::lastErrorIsTheThreads()
{
    SetLastError(ERROR_NOT_FOUND);
    DWORD other = ERROR_ACCESS_DENIED;
    std::thread([&other] { other = GetLastError(); }).join();
    QCOMPARE(other, static_cast<DWORD>(ERROR_SUCCESS));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_NOT_FOUND));
}

QTEST_APPLESS_MAIN(TestSystemQueries)
#include "tst_systemqueries.moc"
