// Machine-level structures: exceptions and thread contexts.
#pragma once

#include <windef.h>
