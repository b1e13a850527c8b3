#include "platform/linux/process/machinecontext.h"
#include "platform/linux/process/memory.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <dbghelp.h>
#include <libunwind.h>
#include <link.h>
#include <unistd.h>

namespace {

std::atomic<bool> s_initialized {false};

// ---- modules -------------------------------------------------------------------------------

struct ModuleSearch {
    DWORD64 address;
    DWORD64 base;
    DWORD64 end;
    char path[256];
};

int visitModule(dl_phdr_info *info, std::size_t, void *data)
{
    auto *search = static_cast<ModuleSearch *>(data);
    bool holds = false;
    DWORD64 base = ~DWORD64 {0};
    DWORD64 end = 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto &header = info->dlpi_phdr[i];
        if (header.p_type != PT_LOAD)
            continue;
        const DWORD64 first = info->dlpi_addr + header.p_vaddr;
        const DWORD64 last = first + header.p_memsz;
        holds = holds || (search->address >= first && search->address < last);
        base = first < base ? first : base;
        end = last > end ? last : end;
    }
    if (!holds)
        return 0;
    search->base = base;
    search->end = end;
    std::snprintf(search->path, sizeof(search->path), "%s", info->dlpi_name);
    return 1;
}

bool findModule(ModuleSearch *search)
{
    if (!dl_iterate_phdr(visitModule, search))
        return false;
    if (search->path[0] == '\0') { // the loader does not name the program itself
        const ssize_t length = readlink("/proc/self/exe", search->path, sizeof(search->path) - 1);
        search->path[length > 0 ? length : 0] = '\0';
    }
    return true;
}

// ---- unwinding -----------------------------------------------------------------------------

// What Reserved[0] of a frame says: whether its program counter is the next instruction to run,
// as after an interruption, or the return address of a call.
enum FrameKind : DWORD64 { Called, Interrupted };

bool isCode(DWORD64 address)
{
    ModuleSearch search {};
    search.address = address;
    return findModule(&search);
}

// After the call of a pointer that points nowhere there is no function to unwind, only the return
// address that the call has pushed. The kernel reads it, since the stack may be unreadable too.
bool returnFromNowhere(CONTEXT *context)
{
    DWORD64 address = 0;
    if (readMemory(context->Rsp, &address, sizeof(address)) != sizeof(address) || !isCode(address))
        return false;
    context->Rip = address;
    context->Rsp += sizeof(address);
    return true;
}

bool stepToCaller(CONTEXT *context, DWORD64 *kind)
{
    if (*kind == Interrupted && !isCode(context->Rip)) {
        *kind = Called;
        return returnFromNowhere(context);
    }
    ucontext_t machine {};
    fromContext(*context, &machine);
    unw_cursor_t cursor;
    if (unw_init_local2(&cursor, &machine, *kind == Interrupted ? UNW_INIT_SIGNAL_FRAME : 0) != 0)
        return false;
    const bool interruptsCaller = unw_is_signal_frame(&cursor) > 0;
    if (unw_step(&cursor) <= 0)
        return false;

    // A function keeps these for its caller; the others are not known any more.
    const struct {
        int number;
        DWORD64 *value;
    } registers[] = {
        {UNW_X86_64_RIP, &context->Rip}, {UNW_X86_64_RSP, &context->Rsp},
        {UNW_X86_64_RBP, &context->Rbp}, {UNW_X86_64_RBX, &context->Rbx},
        {UNW_X86_64_R12, &context->R12}, {UNW_X86_64_R13, &context->R13},
        {UNW_X86_64_R14, &context->R14}, {UNW_X86_64_R15, &context->R15},
    };
    const DWORD64 oldProgramCounter = context->Rip;
    const DWORD64 oldStackPointer = context->Rsp;
    for (const auto &item : registers) {
        unw_word_t value = 0;
        if (unw_get_reg(&cursor, item.number, &value) != 0)
            return false;
        *item.value = value;
    }
    *kind = interruptsCaller ? Interrupted : Called;
    return context->Rip != oldProgramCounter || context->Rsp != oldStackPointer;
}

void setFlat(ADDRESS64 *address, DWORD64 offset)
{
    *address = ADDRESS64 {};
    address->Offset = offset;
    address->Mode = AddrModeFlat;
}

} // namespace

BOOL SymInitializeW(HANDLE process, LPCWSTR, BOOL)
{
    if (process != GetCurrentProcess()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    s_initialized = true;
    return TRUE;
}

BOOL SymGetModuleInfo64(HANDLE process, DWORD64 address, IMAGEHLP_MODULE64 *module)
{
    if (process != GetCurrentProcess() || !s_initialized) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (!module || module->SizeOfStruct != sizeof(IMAGEHLP_MODULE64)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    ModuleSearch search {};
    search.address = address;
    if (!findModule(&search)) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return FALSE;
    }
    *module = IMAGEHLP_MODULE64 {};
    module->SizeOfStruct = sizeof(IMAGEHLP_MODULE64);
    module->BaseOfImage = search.base;
    module->ImageSize = static_cast<DWORD>(search.end - search.base);
    module->SymType = SymExport;
    module->MachineType = IMAGE_FILE_MACHINE_AMD64;
    const char *slash = std::strrchr(search.path, '/');
    const char *name = slash ? slash + 1 : search.path;
    const std::size_t length = strnlen(name, sizeof(module->ModuleName) - 1);
    std::memcpy(module->ModuleName, name, length);
    std::memcpy(module->ImageName, search.path, sizeof(module->ImageName));
    std::memcpy(module->LoadedImageName, search.path, sizeof(module->LoadedImageName));
    return TRUE;
}

BOOL StackWalk64(DWORD machine, HANDLE process, HANDLE thread, STACKFRAME64 *frame, PVOID context,
                 PREAD_PROCESS_MEMORY_ROUTINE64, PFUNCTION_TABLE_ACCESS_ROUTINE64,
                 PGET_MODULE_BASE_ROUTINE64, PTRANSLATE_ADDRESS_ROUTINE64)
{
    if (machine != IMAGE_FILE_MACHINE_AMD64 || process != GetCurrentProcess()
        || thread != GetCurrentThread() || !frame || !context) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    auto *record = static_cast<CONTEXT *>(context);
    if (!frame->Virtual) {
        frame->Virtual = TRUE;
        frame->Reserved[0] = Interrupted;
    } else if (!stepToCaller(record, &frame->Reserved[0])) {
        return FALSE;
    }
    setFlat(&frame->AddrPC, record->Rip);
    setFlat(&frame->AddrStack, record->Rsp);
    setFlat(&frame->AddrFrame, record->Rbp);
    return TRUE;
}

[[gnu::noinline]] void RtlCaptureContext(CONTEXT *context)
{
    ucontext_t machine {};
    getcontext(&machine);
    toContext(machine, context);
    DWORD64 kind = Called;
    stepToCaller(context, &kind);
}
