// Puts a function of the test's own in the place of a system function, for the calls that this program makes:
// the way to look at the arguments of a call, and to let one fail that never does. One thread.
#pragma once

#include <windows.h>

#include <cstring>
#include <type_traits>

#include "broker_fixture_win.h"

namespace vextra::test {

// The function itself, for replacements that pass the call on: by its plain name they would reach themselves.
template <typename Function>
Function* realFunction(const char* name) {
    for (const wchar_t* library : {L"kernel32.dll", L"user32.dll", L"crypt32.dll", L"advapi32.dll"}) {
        if (void* const address = reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(library), name)))
            return reinterpret_cast<Function*>(address);
    }
    failSetUp(name, ERROR_PROC_NOT_FOUND);
}

template <typename Function>
class ImportSwap {
public:
    // `name` as exported, for example "FlushFileBuffers"; this program has to import it.
    ImportSwap(const char* name, Function* replacement) : slot_(findSlot(name)), original_(*slot_) {
        set(replacement);
    }
    ~ImportSwap() { set(original_); }
    ImportSwap(const ImportSwap&) = delete;
    ImportSwap& operator=(const ImportSwap&) = delete;

private:
    static Function** findSlot(const char* name) {
        auto* const base = reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr));
        const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
        const auto& headers = *reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos.e_lfanew);
        const auto& directory = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
        for (; library->Name != 0; ++library) {
            auto* wanted = reinterpret_cast<const IMAGE_THUNK_DATA64*>(base + library->OriginalFirstThunk);
            auto* slot = reinterpret_cast<Function**>(base + library->FirstThunk);
            for (; wanted->u1.AddressOfData != 0; ++wanted, ++slot) {
                if (IMAGE_SNAP_BY_ORDINAL64(wanted->u1.Ordinal))
                    continue;
                const auto& byName =
                    *reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + wanted->u1.AddressOfData);
                if (std::strcmp(reinterpret_cast<const char*>(byName.Name), name) == 0)
                    return slot;
            }
        }
        failSetUp(name, ERROR_PROC_NOT_FOUND);
    }
    void set(Function* function) {
        DWORD old = 0;
        if (!VirtualProtect(slot_, sizeof *slot_, PAGE_READWRITE, &old))
            failSetUp("import table");
        *slot_ = function;
        VirtualProtect(slot_, sizeof *slot_, old, &old);
    }

    Function** const slot_;
    Function* const original_;
};

// What a refused call leaves as the thread's last error.
inline constexpr DWORD kRefusedError = ERROR_NOT_SUPPORTED;
inline constexpr long kRefusedStatus = static_cast<long>(0xC00000BB);  // the same as an NTSTATUS
inline constexpr long kRefusedResult = static_cast<long>(0x80070032);  // and as an HRESULT

// Every call of the function is refused while this lives; it answers `kAnswer`, for most functions 0 or null.
template <typename Function, long kAnswer = 0>
class RefusedImport;
template <typename Result, typename... Arguments, long kAnswer>
class RefusedImport<Result WINAPI(Arguments...), kAnswer> {
public:
    explicit RefusedImport(const char* name) : swap_(name, refuse) {}

private:
    static Result WINAPI refuse(Arguments...) {
        SetLastError(kRefusedError);
        if constexpr (std::is_pointer_v<Result>)
            return nullptr;
        else
            return static_cast<Result>(kAnswer);
    }
    const ImportSwap<Result WINAPI(Arguments...)> swap_;
};

}  // namespace vextra::test
