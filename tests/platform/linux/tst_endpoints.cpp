// Endpoints of a real sound server: catalogue, defaults, notifications.
#include "tests/platform/linux/audiosystemtest.h"

class EndpointsTest : public AudioSystemTest {
    Q_OBJECT

private Q_SLOTS:
    void withoutServerNothingBlocksAndItsStartIsAnnounced(); // the first: no server has run yet
    void endpointsAndTheirNames();
    void stateMasksAndBadArguments();
    void defaultEndpoints();
    void monitorIsNoDefaultMicrophone();
    void defaultChangeIsAnnouncedForEveryRole();
    void newSinkIsAnnounced();
    void removedSinkKeepsItsNameAndIsNotPresent();
    void removedDefaultIsFollowedByItsSuccessor();
    void unregisteringWaitsForACall();
};

void EndpointsTest::withoutServerNothingBlocksAndItsStartIsAnnounced()
{
    QElapsedTimer timer;
    timer.start();
    IMMDevice *found = nullptr;
    IMMDeviceCollection *collection = nullptr;
    QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &found),
             AUDCLNT_E_SERVICE_NOT_RUNNING);
    QCOMPARE(m_enumerator->EnumAudioEndpoints(eAll, DEVICE_STATE_ACTIVE, &collection),
             AUDCLNT_E_SERVICE_NOT_RUNNING);
    QCOMPARE(m_enumerator->GetDevice(L"a", &found), AUDCLNT_E_SERVICE_NOT_RUNNING);
    IMMDeviceEnumerator *another = nullptr;
    QCOMPARE(createDeviceEnumerator(&another), S_OK);
    another->Release();
    QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));

    QVERIFY2(m_server.start(), qPrintable(m_server.errorText()));
    QVERIFY2(m_server.addSink({"first", "First"}), qPrintable(m_server.errorText()));
    QVERIFY2(m_server.setDefaultSink("first"), qPrintable(m_server.errorText()));
    QVERIFY2(m_log.waitFor(QStringList {QStringLiteral("added first")}
                           + NotificationLog::defaultLines(QStringLiteral("first"))),
             qPrintable(m_log.lines().join(QLatin1String(", "))));
    QVERIFY(m_log.heardOnOtherThreads());
}

void EndpointsTest::endpointsAndTheirNames()
{
    const QString name = QStringLiteral("Büro-Lautsprecher 🎵");
    QVERIFY(m_server.addSink({"c", name.toUtf8()}));
    QVERIFY(m_server.addMicrophone("mic"));
    QVERIFY(waitUntilKnown(QStringLiteral("c")));
    QVERIFY(waitUntilKnown(QStringLiteral("mic")));

    const QStringList render {QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"),
                              QStringLiteral("mic_feed")};
    QCOMPARE(enumerate(eRender), render);
    QCOMPARE(enumerate(eCapture), QStringList {QStringLiteral("mic")}); // and no monitor
    QCOMPARE(enumerate(eAll), render + QStringList {QStringLiteral("mic")});

    IMMDevice *const c = device(QStringLiteral("c"));
    QVERIFY(c);
    QCOMPARE(friendlyName(c), name);
    QCOMPARE(friendlyName(c, PKEY_Device_DeviceDesc), name);
    DWORD state = 0;
    QCOMPARE(c->GetState(&state), S_OK);
    QCOMPARE(state, static_cast<DWORD>(DEVICE_STATE_ACTIVE));
    IPropertyStore *store = nullptr;
    QCOMPARE(c->OpenPropertyStore(1, &store), E_ACCESSDENIED);
    QCOMPARE(c->OpenPropertyStore(STGM_READ, &store), S_OK);
    PROPVARIANT value;
    QCOMPARE(store->GetValue({IID_IUnknown, 1}, &value), S_OK);
    QCOMPARE(static_cast<int>(value.vt), static_cast<int>(VT_EMPTY));
    QCOMPARE(store->SetValue(PKEY_Device_FriendlyName, value), STG_E_ACCESSDENIED);
    QCOMPARE(store->Commit(), STG_E_ACCESSDENIED);
    DWORD count = 0;
    PROPERTYKEY key {};
    QCOMPARE(store->GetCount(&count), S_OK);
    QCOMPARE(count, static_cast<DWORD>(2));
    QCOMPARE(store->GetAt(1, &key), S_OK);
    QVERIFY(key == PKEY_Device_DeviceDesc);
    QCOMPARE(store->GetAt(2, &key), E_INVALIDARG);
    store->Release();
    c->Release();
}

void EndpointsTest::stateMasksAndBadArguments()
{
    QCOMPARE(enumerate(eRender, DEVICE_STATE_UNPLUGGED), QStringList());
    QCOMPARE(enumerate(eRender, DEVICE_STATE_DISABLED), QStringList());
    QVERIFY(m_server.removeSink("b"));
    QVERIFY(waitUntilKnown(QStringLiteral("b"), false));
    QVERIFY(enumerate(eRender, DEVICE_STATE_NOTPRESENT).contains(QStringLiteral("b")));
    QVERIFY(!enumerate(eRender, DEVICE_STATE_NOTPRESENT).contains(QStringLiteral("a")));

    IMMDeviceCollection *collection = nullptr;
    IMMDevice *found = nullptr;
    QCOMPARE(m_enumerator->EnumAudioEndpoints(static_cast<EDataFlow>(3), 1, &collection),
             E_INVALIDARG);
    QCOMPARE(m_enumerator->EnumAudioEndpoints(eRender, 0, &collection), E_INVALIDARG);
    QCOMPARE(m_enumerator->EnumAudioEndpoints(eRender, 16, &collection), E_INVALIDARG);
    QCOMPARE(m_enumerator->EnumAudioEndpoints(eRender, 1, nullptr), E_POINTER);
    QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eAll, eConsole, &found), E_INVALIDARG);
    QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eRender, static_cast<ERole>(3), &found),
             E_INVALIDARG);
    QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eRender, eConsole, nullptr), E_POINTER);
    QCOMPARE(m_enumerator->GetDevice(nullptr, &found), E_POINTER);
    QCOMPARE(m_enumerator->GetDevice(L"a", nullptr), E_POINTER);
    QCOMPARE(m_enumerator->GetDevice(L"never seen", &found), E_NOTFOUND);
    QVERIFY(!found);
    QCOMPARE(m_enumerator->RegisterEndpointNotificationCallback(nullptr), E_POINTER);
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(nullptr), E_POINTER);
    NotificationLog stranger;
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(&stranger), E_NOTFOUND);
    QCOMPARE(m_enumerator->EnumAudioEndpoints(eRender, 1, &collection), S_OK);
    QCOMPARE(collection->Item(99, &found), E_INVALIDARG);
    QCOMPARE(collection->Item(0, nullptr), E_POINTER);
    void *object = nullptr;
    QCOMPARE(collection->QueryInterface(IID_IMMDevice, &object), E_NOINTERFACE);
    QCOMPARE(collection->QueryInterface(IID_IMMDeviceCollection, nullptr), E_POINTER);
    QCOMPARE(collection->QueryInterface(IID_IUnknown, &object), S_OK);
    QCOMPARE(collection->Release(), static_cast<ULONG>(1));
    QCOMPARE(collection->Release(), static_cast<ULONG>(0));

    IMMDevice *const a = device(QStringLiteral("a"));
    QCOMPARE(a->Activate(IID_IMMDevice, CLSCTX_INPROC_SERVER, nullptr, &object), E_NOINTERFACE);
    QVERIFY(!object);
    QCOMPARE(a->Activate(IID_IAudioClient, CLSCTX_LOCAL_SERVER, nullptr, &object), E_INVALIDARG);
    QCOMPARE(a->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, nullptr), E_POINTER);
    a->Release();
}

void EndpointsTest::defaultEndpoints()
{
    for (const ERole role : {eConsole, eMultimedia, eCommunications}) {
        IMMDevice *found = nullptr;
        QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eRender, role, &found), S_OK);
        QCOMPARE(idOf(found), QStringLiteral("a"));
        found->Release();
    }
    QVERIFY(m_server.setDefaultSink("b"));
    QVERIFY(waitForDefault(QStringLiteral("b")));
}

void EndpointsTest::monitorIsNoDefaultMicrophone()
{
    IMMDevice *found = nullptr;
    QVERIFY2(m_server.defaultSource().endsWith(".monitor"), m_server.defaultSource().constData());
    QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eCapture, eConsole, &found), E_NOTFOUND);
    QVERIFY(m_server.addMicrophone("mic"));
    QVERIFY(m_server.setDefaultSource("mic"));
    QVERIFY(QTest::qWaitFor(
        [&] {
            return SUCCEEDED(m_enumerator->GetDefaultAudioEndpoint(eCapture, eConsole, &found));
        },
        10000));
    QCOMPARE(idOf(found), QStringLiteral("mic"));
    found->Release();
    QVERIFY(m_log.waitFor({QStringLiteral("default capture console mic")}));

    // It can be asked for its format, but loopback is for outputs.
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("mic")), AUDCLNT_E_WRONG_ENDPOINT_TYPE);
}

void EndpointsTest::defaultChangeIsAnnouncedForEveryRole()
{
    QVERIFY(m_server.setDefaultSink("b"));
    QVERIFY(m_log.waitFor(NotificationLog::defaultLines(QStringLiteral("b"))));
    QVERIFY(m_server.setDefaultSink("a"));
    QVERIFY(m_log.waitFor(NotificationLog::defaultLines(QStringLiteral("b"))
                          + NotificationLog::defaultLines(QStringLiteral("a"))));
    QTest::qWait(300);
    const QStringList heard = m_log.lines().filter(QStringLiteral("default render"));
    QCOMPARE(heard,
             NotificationLog::defaultLines(QStringLiteral("b"))
                 + NotificationLog::defaultLines(QStringLiteral("a")));
}

void EndpointsTest::newSinkIsAnnounced()
{
    QVERIFY(m_server.addSink({"c", "Speakers C"}));
    QVERIFY(m_log.waitFor({QStringLiteral("added c")}));
    QVERIFY(m_server.setDefaultSink("c"));
    QVERIFY(m_log.waitFor(NotificationLog::defaultLines(QStringLiteral("c"))));
    QCOMPARE(m_log.lines().filter(QStringLiteral("state")), QStringList());
}

void EndpointsTest::removedSinkKeepsItsNameAndIsNotPresent()
{
    IMMDevice *const before = device(QStringLiteral("b"));
    QVERIFY(before);
    QString nameInCallback;
    m_log.setAction([&] {
        if (IMMDevice *const found = device(QStringLiteral("b"))) {
            nameInCallback = friendlyName(found);
            found->Release();
        }
    });
    QVERIFY(m_server.removeSink("b"));
    QVERIFY(m_log.waitFor({QStringLiteral("removed b")}));
    QCOMPARE(m_log.lines().filter(QStringLiteral("state")), QStringList());
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(&m_log), S_OK); // ends the action
    QCOMPARE(nameInCallback, QStringLiteral("Speakers B"));

    DWORD state = 0;
    QCOMPARE(before->GetState(&state), S_OK);
    QCOMPARE(state, static_cast<DWORD>(DEVICE_STATE_NOTPRESENT));
    void *object = nullptr;
    QCOMPARE(before->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, &object),
             AUDCLNT_E_DEVICE_INVALIDATED);
    QVERIFY(!object);
    QCOMPARE(friendlyName(before), QStringLiteral("Speakers B"));
    before->Release();
}

void EndpointsTest::removedDefaultIsFollowedByItsSuccessor()
{
    QVERIFY(m_server.removeSink("a"));
    QVERIFY2(m_log.waitFor(NotificationLog::defaultLines(QStringLiteral("b"))
                           + QStringList {QStringLiteral("removed a")}),
             qPrintable(m_log.lines().join(QLatin1String(", "))));
    QCOMPARE(m_log.lines().filter(QStringLiteral("state")), QStringList());
}

void EndpointsTest::unregisteringWaitsForACall()
{
    NotificationLog log;
    std::atomic<bool> inside {false};
    std::atomic<bool> left {false};
    log.setAction([&] {
        inside = true;
        QTest::qSleep(300);
        left = true;
    });
    QCOMPARE(m_enumerator->RegisterEndpointNotificationCallback(&log), S_OK);
    QVERIFY(m_server.addSink({"c", "Speakers C"}));
    QVERIFY(QTest::qWaitFor([&] { return inside.load(); }, 10000));
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(&log), S_OK);
    QVERIFY(left);
    QCOMPARE(log.references(), 1L);
    const int heard = log.lines().size();
    QVERIFY(m_server.removeSink("c"));
    QVERIFY(m_log.waitFor({QStringLiteral("removed c")}));
    QCOMPARE(log.lines().size(), heard);

    // An enumerator that goes takes its registrations along.
    IMMDeviceEnumerator *another = nullptr;
    QCOMPARE(createDeviceEnumerator(&another), S_OK);
    QCOMPARE(another->RegisterEndpointNotificationCallback(&log), S_OK);
    QCOMPARE(another->Release(), static_cast<ULONG>(0));
    QCOMPARE(log.references(), 1L);
}

QTEST_GUILESS_MAIN(EndpointsTest)
#include "tst_endpoints.moc"
