// What the tests of the audio API start from: a real sound server; which one, the build says
// (TONEWELL_TEST_SERVER).
#pragma once

#include "platform/deviceenumerator.h"
#include "tests/platform/loopbackrecorder.h"
#include "tests/platform/notificationlog.h"
#include "tests/support/linux/soundserver.h"

#include <functiondiscoverykeys_devpkey.h>
#include <objbase.h>
#include <QElapsedTimer>
#include <QtTest>

/// The endpoint's friendly name, or what else its property store has; a text in brackets without
/// one.
QString friendlyName(IMMDevice *device, const PROPERTYKEY &key = PKEY_Device_FriendlyName);

/// The endpoint's id; a text in brackets without one.
QString idOf(IMMDevice *device);

/// Each test finds the server running with the sinks "a" (Speakers A, the default) and "b"
/// (Speakers B, 44.1 kHz), an enumerator, and an empty log that is registered with it.
class AudioSystemTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

protected:
    QString defaultId();
    bool waitForDefault(const QString &id);
    bool waitUntilKnown(const QString &id, bool present = true);
    QStringList enumerate(EDataFlow flow, DWORD mask = DEVICE_STATE_ACTIVE);
    IMMDevice *device(const QString &id);

    /// Waits for a third of a second in which every channel has just that tone. On a loaded machine
    /// the player is late at times, so the first third of a second need not be good.
    bool hears(LoopbackRecorder *recorder, double frequency, const std::vector<double> &amplitudes);

    QString m_heard; ///< the last that hears() did
    SoundServer m_server {TONEWELL_TEST_SERVER};
    IMMDeviceEnumerator *m_enumerator = nullptr;
    NotificationLog m_log;

private:
    void tidyUp();
};
