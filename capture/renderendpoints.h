// Render endpoints: their names, the catalogue of them, the default one.
//
// Free functions over an enumerator, which may be null where it is a parameter. They may be called
// on any thread that has initialised COM, and take no lock.
#pragma once

#include "capture/deviceentry.h"

#include <mmdeviceapi.h>
#include <QList>
#include <QString>

/// Display text of the catalogue's first entry ("default output device"). As the wanted device it
/// means: follow the default. It is compared, shown and logged, so it stays as it is, untranslated;
/// so do all log texts.
QString followDefaultName();

/// Friendly name of an endpoint of either direction; "未知设备" for a null id, "已移除的设备" when
/// it cannot be read.
QString endpointName(IMMDeviceEnumerator *enumerator, LPCWSTR id);

/// Id of the default render endpoint of the console role; empty when there is none.
QString defaultEndpointId(IMMDeviceEnumerator *enumerator);

/// followDefaultName() with an empty id, then the active render endpoints in the system's order.
/// An endpoint that cannot be read is left out; without an enumeration the first entry is alone.
QList<DeviceEntry> renderEndpoints(IMMDeviceEnumerator *enumerator);

/// First entry with exactly this display text, or null. It points into the list.
const DeviceEntry *findByName(const QList<DeviceEntry> &entries, const QString &name);

/// Opens the endpoint with this id into *out, which the caller releases. On failure *out stays as
/// it is; success with a null device counts as E_POINTER, as does a null enumerator.
HRESULT openEndpoint(IMMDeviceEnumerator *enumerator, const QString &id, IMMDevice **out);

/// Opens the default render endpoint by an enumerator of its own: of the console role, else of
/// multimedia. *out is null on failure; success with a null object counts as E_POINTER.
HRESULT openDefaultEndpoint(IMMDevice **out);
