// What Windows answers about itself, compared with another place where it says the same.
#include "platform/display.h"

#include <windows.h>
#include <QSysInfo>
#include <QThread>
#include <QtTest>
#include <winsvc.h>

class TestSystemQueries : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void versionIsTheTrueOne();
    void processors();
    void memory();
    void memoryNeedsItsLength();
    void serviceManager();
    void lastErrorIsTheThreads();
};

// Without the manifest the system would answer with the number of an older one.
void TestSystemQueries::versionIsTheTrueOne()
{
    OSVERSIONINFOEXW version {};
    QCOMPARE(sizeof(version), static_cast<std::size_t>(284));
    version.dwOSVersionInfoSize = sizeof(version);
    QVERIFY(GetVersionExW(reinterpret_cast<OSVERSIONINFOW *>(&version)));
    using GetVersion = LONG(WINAPI *)(OSVERSIONINFOEXW *);
    const auto trueVersion = reinterpret_cast<GetVersion>(reinterpret_cast<void (*)()>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    QVERIFY(trueVersion);
    OSVERSIONINFOEXW expected {};
    expected.dwOSVersionInfoSize = sizeof(expected);
    QCOMPARE(trueVersion(&expected), 0L);
    QCOMPARE(version.dwMajorVersion, expected.dwMajorVersion);
    QCOMPARE(version.dwMinorVersion, expected.dwMinorVersion);
    QCOMPARE(version.dwBuildNumber, expected.dwBuildNumber);
    QVERIFY(version.dwMajorVersion >= 10);
    QCOMPARE(version.dwPlatformId, static_cast<DWORD>(VER_PLATFORM_WIN32_NT));
}

void TestSystemQueries::processors()
{
    SYSTEM_INFO info {};
    GetSystemInfo(&info);
    QCOMPARE(info.wProcessorArchitecture, static_cast<WORD>(PROCESSOR_ARCHITECTURE_AMD64));
    QCOMPARE(static_cast<int>(info.dwNumberOfProcessors),
             qEnvironmentVariableIntValue("NUMBER_OF_PROCESSORS"));
}

void TestSystemQueries::memory()
{
    MEMORYSTATUSEX status {};
    QCOMPARE(sizeof(status), static_cast<std::size_t>(64));
    status.dwLength = sizeof(status);
    QVERIFY(GlobalMemoryStatusEx(&status));
    ULONGLONG kilobytes = 0; // all that is fitted, some of which the firmware may keep
    if (GetPhysicallyInstalledSystemMemory(&kilobytes))
        QVERIFY(status.ullTotalPhys <= kilobytes * 1024);
    QVERIFY(status.ullTotalPhys > 256ULL * 1024 * 1024);
    QVERIFY(status.ullAvailPhys > 0 && status.ullAvailPhys <= status.ullTotalPhys);
    const double used = static_cast<double>(status.ullTotalPhys - status.ullAvailPhys);
    const double load = used * 100 / static_cast<double>(status.ullTotalPhys);
    QVERIFY2(qAbs(load - static_cast<double>(status.dwMemoryLoad)) <= 2,
             qPrintable(QString::number(load)));
}

void TestSystemQueries::memoryNeedsItsLength()
{
    MEMORYSTATUSEX status {};
    status.dwLength = sizeof(status) - 1;
    QVERIFY(!GlobalMemoryStatusEx(&status));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

void TestSystemQueries::serviceManager()
{
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    QVERIFY(manager);
    // A service that every system has, and a service that no system has.
    const SC_HANDLE service = OpenServiceW(manager, L"RpcSs", SERVICE_QUERY_STATUS);
    QVERIFY2(service, qPrintable(QString::number(GetLastError())));
    SERVICE_STATUS status {};
    QVERIFY(QueryServiceStatus(service, &status));
    QVERIFY(status.dwCurrentState >= SERVICE_STOPPED && status.dwCurrentState <= SERVICE_PAUSED);
    QVERIFY(CloseServiceHandle(service));
    QVERIFY(!OpenServiceW(manager, L"TonewellHasNoService", SERVICE_QUERY_STATUS));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));
    QVERIFY(CloseServiceHandle(manager));
}

void TestSystemQueries::lastErrorIsTheThreads()
{
    SetLastError(ERROR_NOT_FOUND);
    DWORD other = ERROR_ACCESS_DENIED;
    QScopedPointer<QThread> thread(QThread::create([&other] { other = GetLastError(); }));
    thread->start();
    QVERIFY(thread->wait());
    QVERIFY(other != static_cast<DWORD>(ERROR_NOT_FOUND));
    SetLastError(ERROR_NOT_FOUND);
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_NOT_FOUND));
}

QTEST_APPLESS_MAIN(TestSystemQueries)
#include "tst_win32queries.moc"
