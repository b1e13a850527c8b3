// Stack walking and module look-up. Programs load these functions from "dbghelp.dll" at run time.
#pragma once

#include <winbase.h>

enum ADDRESS_MODE : std::int32_t { AddrModeFlat = 3 };

struct ADDRESS64 {
    DWORD64 Offset;
    WORD Segment;
    ADDRESS_MODE Mode;
};
static_assert(sizeof(ADDRESS64) == 16, "size");

struct KDHELP64 {
    DWORD64 Thread;
    DWORD ThCallbackStack;
    DWORD ThCallbackBStore;
    DWORD NextCallback;
    DWORD FramePointer;
    DWORD64 KiCallUserMode;
    DWORD64 KeUserCallbackDispatcher;
    DWORD64 SystemRangeStart;
    DWORD64 KiUserExceptionDispatcher;
    DWORD64 StackBase;
    DWORD64 StackLimit;
    DWORD64 Reserved[5];
};

struct STACKFRAME64 {
    ADDRESS64 AddrPC;
    ADDRESS64 AddrReturn;
    ADDRESS64 AddrFrame;
    ADDRESS64 AddrStack;
    ADDRESS64 AddrBStore;
    PVOID FuncTableEntry;
    DWORD64 Params[4];
    BOOL Far;
    BOOL Virtual;
    DWORD64 Reserved[3];
    KDHELP64 KdHelp;
};
static_assert(sizeof(STACKFRAME64) == 264 && offsetof(STACKFRAME64, Reserved) == 128,
              "size and layout on x86-64");

enum SYM_TYPE : std::int32_t { SymExport = 4 };

struct IMAGEHLP_MODULE64 {
    DWORD SizeOfStruct;
    DWORD64 BaseOfImage;
    DWORD ImageSize;
    DWORD TimeDateStamp;
    DWORD CheckSum;
    DWORD NumSyms;
    SYM_TYPE SymType;
    CHAR ModuleName[32];
    CHAR ImageName[256];
    CHAR LoadedImageName[256];
    CHAR LoadedPdbName[256];
    DWORD CVSig;
    CHAR CVData[780];
    DWORD PdbSig;
    std::uint8_t PdbSig70[16];
    DWORD PdbAge;
    BOOL PdbUnmatched;
    BOOL DbgUnmatched;
    BOOL LineNumbers;
    BOOL GlobalSymbols;
    BOOL TypeInfo;
    BOOL SourceIndexed;
    BOOL Publics;
    DWORD MachineType;
    DWORD Reserved;
};
static_assert(sizeof(IMAGEHLP_MODULE64) == 1680 && offsetof(IMAGEHLP_MODULE64, ModuleName) == 36
                  && offsetof(IMAGEHLP_MODULE64, CVData) == 840,
              "size and layout on x86-64");

using PREAD_PROCESS_MEMORY_ROUTINE64 = BOOL(CALLBACK *)(HANDLE, DWORD64, PVOID, DWORD, DWORD *);
using PFUNCTION_TABLE_ACCESS_ROUTINE64 = PVOID(CALLBACK *)(HANDLE, DWORD64);
using PGET_MODULE_BASE_ROUTINE64 = DWORD64(CALLBACK *)(HANDLE, DWORD64);
using PTRANSLATE_ADDRESS_ROUTINE64 = DWORD64(CALLBACK *)(HANDLE, HANDLE, ADDRESS64 *);

extern "C" {

/// Starts the symbol handler of this process (no other can be opened). The search path is unused:
/// each look-up asks the loader for its modules.
BOOL SymInitializeW(HANDLE process, LPCWSTR searchPath, BOOL invadeProcess);

/// The loaded module that holds the address: base, size, image path and, as the module name, the
/// file's base name cut to 31 bytes. SizeOfStruct must be 1680. ERROR_MOD_NOT_FOUND when no
/// module holds the address.
BOOL SymGetModuleInfo64(HANDLE process, DWORD64 address, IMAGEHLP_MODULE64 *module);

/// One step of a walk along the calling process's own stacks: the first call (Virtual is 0) gives
/// the frame that the context describes, each later one its caller, and leaves the caller's
/// registers in the context. False at the end of the stack. The routines are not used.
BOOL StackWalk64(DWORD machine, HANDLE process, HANDLE thread, STACKFRAME64 *frame, PVOID context,
                 PREAD_PROCESS_MEMORY_ROUTINE64 readMemory,
                 PFUNCTION_TABLE_ACCESS_ROUTINE64 functionTableAccess,
                 PGET_MODULE_BASE_ROUTINE64 getModuleBase,
                 PTRANSLATE_ADDRESS_ROUTINE64 translateAddress);

} // extern "C"
