// Property keys that name an audio endpoint.
#pragma once

#include <propsys.h>

/// {A45C254E-DF1C-4EFD-8020-67D146A850E0} 14: the name shown to a person, VT_LPWSTR.
extern const PROPERTYKEY PKEY_Device_FriendlyName;
/// {A45C254E-DF1C-4EFD-8020-67D146A850E0} 2: the description of the device, VT_LPWSTR.
extern const PROPERTYKEY PKEY_Device_DeviceDesc;
