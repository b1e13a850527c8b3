// The audio system of the host itself, as the program uses it: catalogue and names, notifications,
// and a loopback session in which a tone is heard that was played from outside.
#include "capture/audiocapture.h"
#include "platform/deviceenumerator.h"
#include "tests/platform/loopbackrecorder.h"
#include "tests/platform/notificationlog.h"
#include "tests/support/windows/outsideserver.h"

#include <cmath>
#include <cstdio>
#include <objbase.h>
#include <QProcess>
#include <QtTest>

namespace {

QString idOf(IMMDevice *device)
{
    LPWSTR id = nullptr;
    if (FAILED(device->GetId(&id)))
        return {};
    const QString result = QString::fromWCharArray(id);
    CoTaskMemFree(id);
    return result;
}

QString defaultId(IMMDeviceEnumerator *enumerator)
{
    IMMDevice *device = nullptr;
    if (FAILED(enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &device)))
        return {};
    const QString id = idOf(device);
    device->Release();
    return id;
}

QStringList namesOf(const AudioCapture &capture)
{
    QStringList names;
    for (const DeviceEntry &entry : capture.devices())
        names.append(entry.name);
    return names;
}

QString idNamed(const QString &name)
{
    const AudioCapture capture;
    for (const DeviceEntry &entry : capture.devices()) {
        if (entry.name == name)
            return entry.id;
    }
    return {};
}

// The catalogue of this program run once more, which prints it.
QStringList namesSeenByAnotherProgram()
{
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--catalogue")});
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return {QStringLiteral("(failed)")};
    return QString::fromUtf8(process.readAllStandardOutput())
        .remove(QLatin1Char('\r'))
        .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

bool chooseDefault(const QString &id)
{
    const std::wstring value = id.toStdWString();
    const wchar_t *const key = L"Software\\Wine\\Drivers\\winepulse.drv";
    const wchar_t *const name = L"DefaultOutput";
    if (id.isEmpty())
        return RegDeleteKeyValueW(HKEY_CURRENT_USER, key, name) == ERROR_SUCCESS;
    return RegSetKeyValueW(HKEY_CURRENT_USER, key, name, REG_SZ, value.c_str(),
                           static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)))
        == ERROR_SUCCESS;
}

} // namespace

class EndpointsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void catalogueHasTheEndpointsAndTheirNames();
    void unknownEndpointIsNotFound();
    void mixFormatIsFloat();
    void toneIsHeardOnItsChannel();
    void silenceIsSilent();
    void nextProgramSeesWhatCameAndWent();
    void changedDefaultIsAnnounced();
    void notificationsCanBeAskedForAndGivenBack();

private:
    OutsideServer m_server;
    IMMDeviceEnumerator *m_enumerator = nullptr;
};

void EndpointsTest::initTestCase()
{
#ifdef TONEWELL_WINE_SESSION
    QVERIFY2(m_server.isThere(), "the session's sound server does not answer");
#else
    QSKIP("only a Wine session has a sound server outside that can play to Windows", "");
#endif
    QVERIFY(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    QCOMPARE(createDeviceEnumerator(&m_enumerator), S_OK);
}

void EndpointsTest::cleanupTestCase()
{
    if (m_enumerator)
        m_enumerator->Release();
}

void EndpointsTest::catalogueHasTheEndpointsAndTheirNames()
{
    AudioCapture capture;
    QCOMPARE(namesOf(capture).first(), QStringLiteral("默认输出设备"));
    QVERIFY(namesOf(capture).contains(QStringLiteral("Tonewell Speakers")));
}

void EndpointsTest::unknownEndpointIsNotFound()
{
    IMMDevice *device = nullptr;
    QVERIFY(FAILED(m_enumerator->GetDevice(L"{no such endpoint}", &device)));
    QVERIFY(!device);
}

void EndpointsTest::mixFormatIsFloat()
{
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, defaultId(m_enumerator)), S_OK);
    QCOMPARE(recorder.format()->wFormatTag, static_cast<WORD>(WAVE_FORMAT_EXTENSIBLE));
    QCOMPARE(recorder.format()->wBitsPerSample, static_cast<WORD>(32));
    QCOMPARE(recorder.channels(), 2);
    QCOMPARE(recorder.format()->nBlockAlign, static_cast<WORD>(8));
}

void EndpointsTest::toneIsHeardOnItsChannel()
{
    QVERIFY(m_server.playTones("speakers", 1000, 0.5, 2000, 0.25));
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, defaultId(m_enumerator)), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);
    QCOMPARE(recorder.waitForSound(), S_OK);
    // On a machine under load some stretches have gaps; one without is enough.
    QString heard;
    for (int attempt = 0; attempt < 30; ++attempt) {
        recorder.forget();
        QCOMPARE(recorder.record(330), S_OK);
        const double left = recorder.amplitude(0, 1000);
        const double right = recorder.amplitude(1, 2000);
        const double across = qMax(recorder.amplitude(0, 2000), recorder.amplitude(1, 1000));
        if (std::fabs(left - 0.5) < 0.01 && std::fabs(right - 0.25) < 0.01 && across < 0.01)
            return;
        heard = QStringLiteral("left %1, right %2, across %3").arg(left).arg(right).arg(across);
    }
    QFAIL(qPrintable(heard));
}

void EndpointsTest::silenceIsSilent()
{
    m_server.stopTones();
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, defaultId(m_enumerator)), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);
    QCOMPARE(recorder.waitForSound(), S_OK);
    QTRY_VERIFY_WITH_TIMEOUT((recorder.forget(),
                              recorder.record(300) == S_OK && recorder.frames() > 0
                                  && recorder.peak(0) == 0.0 && recorder.peak(1) == 0.0),
                             10000);
}

void EndpointsTest::nextProgramSeesWhatCameAndWent()
{
    const QString second = QStringLiteral("Second Output");
    QVERIFY(!namesSeenByAnotherProgram().contains(second));
    QVERIFY(m_server.addSink("second", second.toUtf8()));
    QVERIFY(namesSeenByAnotherProgram().contains(second));
    QVERIFY(m_server.removeSink("second"));
    QVERIFY(!namesSeenByAnotherProgram().contains(second));
}

// Wine keeps the user's choice of the default endpoint in its registry, and watches it.
void EndpointsTest::changedDefaultIsAnnounced()
{
    const QString speakers = idNamed(QStringLiteral("Tonewell Speakers"));
    QVERIFY(!speakers.isEmpty());
    QVERIFY(defaultId(m_enumerator) != speakers);
    NotificationLog log;
    QCOMPARE(m_enumerator->RegisterEndpointNotificationCallback(&log), S_OK);
    QTest::qWait(1500); // the watch begins with what it finds
    QVERIFY(chooseDefault(speakers));
    QVERIFY2(log.waitFor({QStringLiteral("default render console ") + speakers,
                          QStringLiteral("default render multimedia ") + speakers}),
             qPrintable(log.lines().join(QLatin1String(", "))));
    QVERIFY(log.heardOnOtherThreads());
    QCOMPARE(defaultId(m_enumerator), speakers);
    {
        AudioCapture capture;
        QVERIFY(namesOf(capture).contains(QStringLiteral("Tonewell Speakers (当前默认)")));
    }
    QVERIFY(chooseDefault(QString()));
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(&log), S_OK);
    QCOMPARE(log.references(), 1L);
}

void EndpointsTest::notificationsCanBeAskedForAndGivenBack()
{
    NotificationLog log;
    QCOMPARE(m_enumerator->RegisterEndpointNotificationCallback(&log), S_OK);
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(&log), S_OK);
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(&log), E_NOTFOUND);
    QCOMPARE(log.references(), 1L);
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], "--catalogue") == 0) {
        const AudioCapture capture;
        std::puts(namesOf(capture).join(QLatin1Char('\n')).toUtf8().constData());
        return 0;
    }
    EndpointsTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_wasapi.moc"
