// The part of the host API that the product calls, for a host without it.
#pragma once

#include <guiddef.h>
#include <winbase.h>
#include <windef.h>
#include <winerror.h>
#include <wingdi.h>
#include <winnt.h>
#include <winuser.h>
