// The program's main(), step by step: the linker leads what it calls here first (--wrap). Neither
// handlers nor a window are installed in earnest.
#include "app/singleinstance.h"
#include "app/widget.h"
#include "report/crashhandlers.h"

#include <windows.h>
#include <exception>
#include <QApplication>
#include <QSharedMemory>
#include <QTest>

int programMain(int argc, char *argv[]); // main() of app/main.cpp

namespace {

constexpr int kLoopResult = 7;

QStringList s_steps;
bool s_otherCopyRuns = false;

void step(const char *name, const QString &detail = QString())
{
    s_steps.append(QLatin1String(name) + detail);
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the linker's.
extern "C" {

std::terminate_handler __wrap__ZSt13set_terminatePFvvE(std::terminate_handler handler)
{
    step("terminate handler", handler == terminateHandler ? QString() : QStringLiteral(" unknown"));
    return nullptr;
}

LPTOP_LEVEL_EXCEPTION_FILTER
__wrap_SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter)
{
    step("exception filter", filter == crashFilter ? QString() : QStringLiteral(" unknown"));
    return nullptr;
}

QtMessageHandler __wrap__Z22qInstallMessageHandlerPFv9QtMsgTypeRK18QMessageLogContextRK7QStringE(
    QtMessageHandler handler)
{
    step("message handler", handler ? QString() : QStringLiteral(" of Qt"));
    return nullptr;
}

void __real__ZN12QApplicationC1ERiPPci(void *self, int &argc, char **argv, int flags);
void __wrap__ZN12QApplicationC1ERiPPci(void *self, int &argc, char **argv, int flags)
{
    step("application", QStringLiteral(" with %1 argument").arg(argc));
    __real__ZN12QApplicationC1ERiPPci(self, argc, argv, flags);
}

void __real__ZN12QApplicationD1Ev(void *self);
void __wrap__ZN12QApplicationD1Ev(void *self)
{
    __real__ZN12QApplicationD1Ev(self);
    step("application ends");
}

void __wrap__ZN16QCoreApplication18setApplicationNameERK7QString(const QString &name)
{
    step("name ", name);
}

void __wrap__ZN16QCoreApplication21setApplicationVersionERK7QString(const QString &version)
{
    step("version ", version);
}

void __wrap__ZN16QCoreApplication19setOrganizationNameERK7QString(const QString &name)
{
    step("organization ", name);
}

void __real__ZN13QSharedMemoryC1ERK7QStringP7QObject(void *self, const QString &key,
                                                     QObject *parent);
void __wrap__ZN13QSharedMemoryC1ERK7QStringP7QObject(void *self, const QString &key,
                                                     QObject *parent)
{
    step("key ", parent ? key + QStringLiteral(", with a parent") : key);
    __real__ZN13QSharedMemoryC1ERK7QStringP7QObject(self, key, parent);
}

bool __wrap__Z19attachToRunningCopyP13QSharedMemory(QSharedMemory *)
{
    step("attach");
    return s_otherCopyRuns;
}

// The result is not looked at: this one fails.
bool __wrap__ZN13QSharedMemory6createEiNS_10AccessModeE(void *, int size,
                                                        QSharedMemory::AccessMode mode)
{
    step("create ", QStringLiteral("%1, mode %2").arg(size).arg(static_cast<int>(mode)));
    return false;
}

void __real__ZN13QSharedMemoryD1Ev(void *self);
void __wrap__ZN13QSharedMemoryD1Ev(void *self)
{
    __real__ZN13QSharedMemoryD1Ev(self);
    step("segment ends");
}

void __wrap__ZN6WidgetC1EP7QWidget(void *, QWidget *parent)
{
    step("window", parent ? QStringLiteral(" with a parent") : QString());
}

void __wrap__ZN6WidgetD1Ev(void *)
{
    step("window ends");
}

void __wrap__ZN7QWidget4showEv(void *)
{
    step("show");
}

int __wrap__ZN12QApplication4execEv()
{
    step("event loop");
    return kLoopResult;
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

class ProgramEntryTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { s_steps.clear(); }
    void startsInThisOrder();
    void leavesWhereAnotherCopyRuns();

private:
    static int runMain()
    {
        char name[] = "TonewellDetection";
        char *arguments[] = {name, nullptr};
        return programMain(1, arguments);
    }
    static QStringList untilTheAttach()
    {
        return {QStringLiteral("terminate handler"),
                QStringLiteral("exception filter"),
                QStringLiteral("message handler"),
                QStringLiteral("application with 1 argument"),
                QStringLiteral("name TonewellDetection"),
                QStringLiteral("version " TONEWELL_VERSION),
                QStringLiteral("organization TonewellDetection"),
                QStringLiteral("key TonewellDetection"),
                QStringLiteral("attach")};
    }
};

void ProgramEntryTest::startsInThisOrder()
{
    s_otherCopyRuns = false;
    QCOMPARE(runMain(), kLoopResult);
    QCOMPARE(s_steps,
             untilTheAttach() << QStringLiteral("create 1, mode 1") << QStringLiteral("window")
                              << QStringLiteral("show") << QStringLiteral("event loop")
                              << QStringLiteral("window ends") << QStringLiteral("segment ends")
                              << QStringLiteral("application ends"));
}

void ProgramEntryTest::leavesWhereAnotherCopyRuns()
{
    s_otherCopyRuns = true;
    QCOMPARE(runMain(), 0);
    QCOMPARE(s_steps,
             untilTheAttach() << QStringLiteral("segment ends")
                              << QStringLiteral("application ends"));
}

QTEST_APPLESS_MAIN(ProgramEntryTest)
#include "tst_programentry.moc"
