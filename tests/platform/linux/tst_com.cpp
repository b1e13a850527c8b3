// Apartments, object creation, task memory, PROPVARIANT, identifiers and structure sizes.

#include <audioclient.h>
#include <functiondiscoverykeys_devpkey.h>
#include <mmdeviceapi.h>
#include <QtTest>
#include <QUuid>
#include <thread>
#include <winbase.h>

namespace {

// Runs on a thread that has no apartment yet.
template <class Function> void onFreshThread(Function function)
{
    std::thread(function).join();
}

QString text(const GUID &guid)
{
    const std::uint8_t *const d = guid.Data4;
    return QUuid(guid.Data1, guid.Data2, guid.Data3, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7])
        .toString(QUuid::WithoutBraces)
        .toUpper();
}

} // namespace

class ComTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void firstEntryIsOkAndRepeatedOnesAreFalse();
    void otherKindOfApartmentIsChangedMode();
    void modeMayChangeAfterTheLastLeave();
    void apartmentsBelongToTheirThread();
    void unknownFlagsAreInvalid();
    void creationNeedsAnApartment();
    void anotherThreadsMultithreadedApartmentServesAll();
    void creationRefusesWhatIsNotThere();
    void taskMemoryIsWritableAndNullIsFreed();
    void clearingFreesAndEmpties();
    void clearingRefusesUnknownKinds();
    void identifiers_data();
    void identifiers();
    void propertyKeys();
    void structureSizes();
    void resultCodes();
    void ticksAreMilliseconds();
};

void ComTest::firstEntryIsOkAndRepeatedOnesAreFalse()
{
    for (const DWORD mode :
         {static_cast<DWORD>(COINIT_APARTMENTTHREADED), static_cast<DWORD>(COINIT_MULTITHREADED)}) {
        onFreshThread([mode] {
            QCOMPARE(CoInitializeEx(nullptr, mode), S_OK);
            QCOMPARE(CoInitializeEx(nullptr, mode), S_FALSE);
            QCOMPARE(CoInitializeEx(nullptr, mode), S_FALSE);
        });
    }
}

void ComTest::otherKindOfApartmentIsChangedMode()
{
    onFreshThread([] {
        QCOMPARE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        QCOMPARE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), RPC_E_CHANGED_MODE);
        QCOMPARE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
    });
    onFreshThread([] {
        QCOMPARE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
        QCOMPARE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
    });
}

void ComTest::modeMayChangeAfterTheLastLeave()
{
    onFreshThread([] {
        QCOMPARE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
        QCOMPARE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_FALSE);
        CoUninitialize();
        QCOMPARE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
        CoUninitialize();
        QCOMPARE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        CoUninitialize();
        CoUninitialize(); // one too many does nothing
        QCOMPARE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    });
}

void ComTest::apartmentsBelongToTheirThread()
{
    onFreshThread([] {
        QCOMPARE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
        onFreshThread([] { QCOMPARE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); });
    });
}

void ComTest::unknownFlagsAreInvalid()
{
    onFreshThread([] {
        int reserved = 0;
        QCOMPARE(CoInitializeEx(&reserved, COINIT_APARTMENTTHREADED), E_INVALIDARG);
        QCOMPARE(CoInitializeEx(nullptr, 0x100), E_INVALIDARG);
        QCOMPARE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE), S_OK);
    });
}

void ComTest::creationNeedsAnApartment()
{
    onFreshThread([] {
        int any = 0;
        void *object = &any;
        QCOMPARE(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_IMMDeviceEnumerator, &object),
                 CO_E_NOTINITIALIZED);
        QVERIFY(!object);
        QCOMPARE(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_IMMDeviceEnumerator, nullptr),
                 E_POINTER);
    });
}

void ComTest::anotherThreadsMultithreadedApartmentServesAll()
{
    const auto create = [] {
        void *object = nullptr;
        return CoCreateInstance(IID_IUnknown, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &object);
    };
    onFreshThread([create] {
        QCOMPARE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        onFreshThread([create] { QCOMPARE(create(), REGDB_E_CLASSNOTREG); });
    });
    // The multithreaded apartment ended with its last thread.
    onFreshThread([create] { QCOMPARE(create(), CO_E_NOTINITIALIZED); });
}

void ComTest::creationRefusesWhatIsNotThere()
{
    onFreshThread([] {
        QCOMPARE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
        void *object = nullptr;
        QCOMPARE(CoCreateInstance(IID_IAudioClient, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                  &object),
                 REGDB_E_CLASSNOTREG);
        QCOMPARE(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_LOCAL_SERVER,
                                  IID_IMMDeviceEnumerator, &object),
                 REGDB_E_CLASSNOTREG);
        QVERIFY(!object);
    });
}

void ComTest::taskMemoryIsWritableAndNullIsFreed()
{
    auto *const memory = static_cast<char *>(CoTaskMemAlloc(100));
    QVERIFY(memory);
    memset(memory, 1, 100);
    CoTaskMemFree(memory);
    void *const nothing = CoTaskMemAlloc(0);
    QVERIFY(nothing);
    CoTaskMemFree(nothing);
    CoTaskMemFree(nullptr);
}

void ComTest::clearingFreesAndEmpties()
{
    PROPVARIANT value;
    memset(&value, 0xFF, sizeof value);
    PropVariantInit(&value);
    QCOMPARE(static_cast<int>(value.vt), static_cast<int>(VT_EMPTY));
    QCOMPARE(PropVariantClear(&value), S_OK);

    value.vt = VT_LPWSTR;
    value.pwszVal = static_cast<LPWSTR>(CoTaskMemAlloc(4 * sizeof(WCHAR))); // freed, or a leak
    QCOMPARE(PropVariantClear(&value), S_OK);
    QCOMPARE(static_cast<int>(value.vt), static_cast<int>(VT_EMPTY));
    QVERIFY(!value.pwszVal);

    value.vt = VT_UI4;
    value.ulVal = 7;
    QCOMPARE(PropVariantClear(&value), S_OK);
    QCOMPARE(static_cast<int>(value.vt), static_cast<int>(VT_EMPTY));
    QCOMPARE(PropVariantClear(nullptr), S_OK);
}

void ComTest::clearingRefusesUnknownKinds()
{
    PROPVARIANT value;
    PropVariantInit(&value);
    value.vt = 4711;
    QCOMPARE(PropVariantClear(&value), DISP_E_BADVARTYPE);
}

void ComTest::identifiers_data()
{
    QTest::addColumn<QString>("actual");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const GUID &guid, const char *expected) {
        QTest::newRow(name) << text(guid) << QString::fromLatin1(expected);
    };
    row("IUnknown", IID_IUnknown, "00000000-0000-0000-C000-000000000046");
    row("MMDeviceEnumerator", CLSID_MMDeviceEnumerator, "BCDE0395-E52F-467C-8E3D-C4579291692E");
    row("IMMDeviceEnumerator", IID_IMMDeviceEnumerator, "A95664D2-9614-4F35-A746-DE8DB63617E6");
    row("IMMDevice", IID_IMMDevice, "D666063F-1587-4E43-81F1-B948E807363F");
    row("IMMDeviceCollection", IID_IMMDeviceCollection, "0BD7A1BE-7A1A-44DB-8397-CC5392387B5E");
    row("IMMNotificationClient", IID_IMMNotificationClient, "7991EEC9-7E89-4D85-8390-6C703CEC60C0");
    row("IPropertyStore", IID_IPropertyStore, "886D8EEB-8CF2-4446-8D02-CDBA1DBDCF99");
    row("IAudioClient", IID_IAudioClient, "1CB9AD4C-DBFA-4C32-B178-C2F568A703B2");
    row("IAudioCaptureClient", IID_IAudioCaptureClient, "C8ADBD64-E71E-48A0-A4DE-185C395CD317");
    row("float", KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, "00000003-0000-0010-8000-00AA00389B71");
}

void ComTest::identifiers()
{
    QFETCH(QString, actual);
    QFETCH(QString, expected);
    QCOMPARE(actual, expected);
}

void ComTest::propertyKeys()
{
    const QString endpoint = QStringLiteral("A45C254E-DF1C-4EFD-8020-67D146A850E0");
    QCOMPARE(text(PKEY_Device_FriendlyName.fmtid), endpoint);
    QCOMPARE(PKEY_Device_FriendlyName.pid, static_cast<DWORD>(14));
    QCOMPARE(text(PKEY_Device_DeviceDesc.fmtid), endpoint);
    QCOMPARE(PKEY_Device_DeviceDesc.pid, static_cast<DWORD>(2));
}

void ComTest::structureSizes()
{
    QCOMPARE(sizeof(HRESULT), static_cast<std::size_t>(4));
    QCOMPARE(sizeof(LONG), static_cast<std::size_t>(4));
    QCOMPARE(sizeof(GUID), static_cast<std::size_t>(16));
    QCOMPARE(sizeof(PROPERTYKEY), static_cast<std::size_t>(20));
    QCOMPARE(sizeof(WAVEFORMATEX), static_cast<std::size_t>(18));
    QCOMPARE(sizeof(WAVEFORMATEXTENSIBLE), static_cast<std::size_t>(40));
    QCOMPARE(offsetof(PROPVARIANT, pwszVal), static_cast<std::size_t>(8));
}

void ComTest::resultCodes()
{
    QCOMPARE(static_cast<std::uint32_t>(AUDCLNT_E_DEVICE_INVALIDATED), 0x88890004U);
    QCOMPARE(static_cast<std::uint32_t>(AUDCLNT_E_BUFFER_OPERATION_PENDING), 0x8889000BU);
    QCOMPARE(static_cast<std::uint32_t>(AUDCLNT_E_SERVICE_NOT_RUNNING), 0x88890010U);
    QCOMPARE(static_cast<std::uint32_t>(AUDCLNT_E_EVENTHANDLE_NOT_SET), 0x88890014U);
    QCOMPARE(static_cast<std::uint32_t>(AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED), 0x88890019U);
    QCOMPARE(static_cast<std::uint32_t>(AUDCLNT_S_BUFFER_EMPTY), 0x08890001U);
    QCOMPARE(static_cast<std::uint32_t>(E_NOTFOUND), 0x80070490U);
    QVERIFY(FAILED(AUDCLNT_E_DEVICE_INVALIDATED));
    QVERIFY(SUCCEEDED(AUDCLNT_S_BUFFER_EMPTY));
}

void ComTest::ticksAreMilliseconds()
{
    const ULONGLONG before = GetTickCount64();
    QTest::qSleep(100);
    const ULONGLONG passed = GetTickCount64() - before;
    QVERIFY2(passed >= 99 && passed < 60000, qPrintable(QString::number(passed)));
}

QTEST_GUILESS_MAIN(ComTest)
#include "tst_com.moc"
