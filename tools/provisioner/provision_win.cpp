#include "provisioner/provision_win.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>

#include "base/system_win.h"
#include "bridge/bridge_location.h"

namespace vextra {
namespace {

std::wstring errorText(const std::wstring& what, DWORD error) {
    switch (error) {
        case ERROR_ACCESS_DENIED: return what + L": acesso negado; execute como Administrador.";
        case ERROR_SHARING_VIOLATION:
        case ERROR_USER_MAPPED_FILE: return what + L": em uso; feche o broker e os programas com a câmera.";
        case ERROR_DISK_FULL: return what + L": disco cheio.";
        case ERROR_PATH_NOT_FOUND:
        case ERROR_FILE_NOT_FOUND: return what + L": não existe.";
        default: return what + L": erro " + std::to_wstring(error) + L" do Windows.";
    }
}

using UniqueKey = Unique<HKEY, &RegCloseKey>;

// --- Security descriptors ---

// The system's own spelling must be the text that was given, for the broker compares with the system's.
bool isSystemSpelling(const std::wstring& sidText) {
    UniqueLocalMemory sid;
    UniqueLocalMemory spelled;
    return ConvertStringSidToSidW(sidText.c_str(), sid.put()) &&
           ConvertSidToStringSidW(sid.get(), reinterpret_cast<LPWSTR*>(spelled.put())) &&
           sidText == static_cast<const wchar_t*>(spelled.get());
}

bool sameList(const ACL* a, const ACL* b) {
    if (a == nullptr || b == nullptr || a->AceCount != b->AceCount)
        return false;
    for (DWORD i = 0; i < a->AceCount; ++i) {
        void* first = nullptr;
        void* second = nullptr;
        if (!GetAce(const_cast<ACL*>(a), i, &first) || !GetAce(const_cast<ACL*>(b), i, &second))
            return false;
        const auto size = static_cast<const ACE_HEADER*>(first)->AceSize;
        if (static_cast<const ACE_HEADER*>(second)->AceSize != size ||
            !std::equal(static_cast<const BYTE*>(first), static_cast<const BYTE*>(first) + size,
                        static_cast<const BYTE*>(second)))
            return false;
    }
    return true;
}

struct AccessFindings {
    DWORD error = ERROR_SUCCESS;
    bool ownerTrusted = false;
    bool listRight = false;
};

// An owner can rewrite the access list whenever it likes: only the administrators and the system will do.
AccessFindings readAccess(HANDLE object, const std::wstring& wantedSddl) {
    AccessFindings findings;
    PSID owner = nullptr;
    PACL list = nullptr;
    UniqueLocalMemory descriptor;
    findings.error =
        GetSecurityInfo(object, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                        &owner, nullptr, &list, nullptr, descriptor.put());
    if (findings.error != ERROR_SUCCESS)
        return findings;
    findings.ownerTrusted =
        IsWellKnownSid(owner, WinBuiltinAdministratorsSid) || IsWellKnownSid(owner, WinLocalSystemSid);
    const UniqueLocalMemory wanted = descriptorFromSddl(wantedSddl);
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL wantedList = nullptr;
    if (wanted && GetSecurityDescriptorDacl(wanted.get(), &present, &wantedList, &defaulted))
        findings.listRight = sameList(list, wantedList);
    return findings;
}

// Of this object alone; what lies in a folder is not touched. False with GetLastError set.
bool writeAccessList(const std::wstring& path, const std::wstring& sddl) {
    const UniqueLocalMemory wanted = descriptorFromSddl(sddl);
    if (!wanted)
        return false;
    const UniqueFile object(
        CreateFileW(path.c_str(), WRITE_DAC, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return object &&
           SetKernelObjectSecurity(
               object.get(), DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, wanted.get());
}

// --- Folders and files ---

// Without following links. An open folder cannot be renamed or replaced until the handle is closed.
UniqueFile openObject(const SharedObject& object, DWORD extraAccess = 0) {
    const bool isFolder = object.kind == SharedObjectKind::kFolder;
    const DWORD access = FILE_READ_ATTRIBUTES | READ_CONTROL | (isFolder ? FILE_LIST_DIRECTORY : 0u);
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | (isFolder ? 0u : FILE_SHARE_DELETE);
    return UniqueFile(CreateFileW(object.path.c_str(), access | extraAccess, share, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

// The broker refuses such a way: a program that can turn the link could swap what it leads to.
std::wstring whatIsWrongAbove(const SharedObject& object) {
    if (parentChainIsPlain(object.path))
        return {};
    return object.path + L": falta uma pasta no caminho até aqui, ou uma delas é um link ou junção.";
}

// Why an open object is not the one that should be there; empty when it is.
std::wstring whatIsWrong(HANDLE opened, const SharedObject& object) {
    BY_HANDLE_FILE_INFORMATION information{};
    if (!GetFileInformationByHandle(opened, &information))
        return errorText(object.path, GetLastError());
    if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        return object.path + L": é um link ou junção; remova-o.";
    const bool isFolder = (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (object.kind == SharedObjectKind::kFolder)
        return isFolder ? L"" : object.path + L": é um arquivo, deveria ser uma pasta; remova-o.";
    if (isFolder)
        return object.path + L": é uma pasta, deveria ser um arquivo; remova-a.";
    if (information.nNumberOfLinks != 1)
        return object.path + L": o arquivo tem outro nome em outro lugar (hard link); remova-o.";
    const std::uint64_t sizeBytes =
        (std::uint64_t{information.nFileSizeHigh} << 32) | information.nFileSizeLow;
    if (sizeBytes != object.sizeBytes)
        return object.path + L": tem " + std::to_wstring(sizeBytes) + L" bytes, deveria ter " +
               std::to_wstring(object.sizeBytes) + L"; remova-o.";
    return {};
}

bool markDeleted(HANDLE opened) {
    FILE_DISPOSITION_INFO disposition{TRUE};
    return SetFileInformationByHandle(opened, FileDispositionInfo, &disposition, sizeof disposition) != FALSE;
}

// Those that make an object return what the system said: ERROR_SUCCESS, ERROR_ALREADY_EXISTS, or why it
// cannot be made.
DWORD createFolder(const std::wstring& path, SECURITY_ATTRIBUTES& security) {
    return CreateDirectoryW(path.c_str(), &security) ? ERROR_SUCCESS : GetLastError();
}

// Of zeros: an even sequence word and no header, which the broker's first update writes; no lease.
DWORD createFile(const SharedObject& object, SECURITY_ATTRIBUTES& security) {
    // "Temporary" keeps the system from writing the mapped pages to the disk 16 times a second.
    const UniqueFile file(CreateFileW(object.path.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ, &security,
                                      CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY, nullptr));
    if (!file) {
        // A folder of that name is "access denied" to some systems and "exists" to others.
        const DWORD error = GetLastError();
        const bool exists = GetFileAttributesW(object.path.c_str()) != INVALID_FILE_ATTRIBUTES;
        return exists ? ERROR_ALREADY_EXISTS : error;
    }
    FILE_END_OF_FILE_INFO end{};
    end.EndOfFile.QuadPart = object.sizeBytes;
    if (SetFileInformationByHandle(file.get(), FileEndOfFileInfo, &end, sizeof end))
        return ERROR_SUCCESS;
    const DWORD error = GetLastError();
    markDeleted(file.get());  // or the next run would find a file of a wrong size
    return error;
}

DWORD create(const SharedObject& object) {
    const UniqueLocalMemory descriptor = descriptorFromSddl(object.sddl);
    if (!descriptor)
        return GetLastError();
    SECURITY_ATTRIBUTES security{sizeof security, descriptor.get(), FALSE};
    return object.kind == SharedObjectKind::kFolder ? createFolder(object.path, security)
                                                    : createFile(object, security);
}

// Makes the object right and holds it in `held`; false with report.trouble.
bool ensureObject(const SharedObject& object, UniqueFile& held, ProvisionReport& report) {
    report.trouble = whatIsWrongAbove(object);
    if (!report.ok())
        return false;
    const DWORD created = create(object);
    if (created != ERROR_SUCCESS && created != ERROR_ALREADY_EXISTS) {
        report.trouble = errorText(object.path, created);
        return false;
    }
    held = openObject(object);
    if (!held) {
        report.trouble = errorText(object.path, GetLastError());
        return false;
    }
    report.trouble = whatIsWrong(held.get(), object);
    if (!report.ok())
        return false;
    if (created == ERROR_SUCCESS) {
        report.lines.push_back(L"criado: " + object.path);
        return true;
    }
    if (!accessListsAreKept())
        return true;
    const AccessFindings access = readAccess(held.get(), object.sddl);
    if (access.error != ERROR_SUCCESS)
        report.trouble = errorText(object.path, access.error);
    else if (!access.ownerTrusted)
        report.trouble = object.path + L": pertence a uma conta comum, que poderia trocá-lo; remova-o.";
    else if (access.listRight)
        return true;
    else if (!writeAccessList(object.path, object.sddl))
        report.trouble = errorText(object.path, GetLastError());
    else
        report.lines.push_back(L"permissões corrigidas: " + object.path);
    return report.ok();
}

// The bridge's path for this owner, when owner and program data folder will do; report.trouble otherwise.
std::wstring bridgePathFor(const std::wstring& ownerSid, ProvisionReport& report) {
    const std::wstring base = environmentVariable(L"ProgramData").value_or(L"");
    if (isEntraIdSid(ownerSid))
        report.trouble =
            L"O SID \"" + ownerSid +
            L"\" é de uma conta do Microsoft Entra ID (S-1-12-1-...), e a câmera não funciona com "
            L"ela. Use uma conta local do Windows ou de um domínio (S-1-5-21-...).";
    else if (!isOwnerSidText(ownerSid) || !isSystemSpelling(ownerSid))
        report.trouble = L"O SID \"" + ownerSid + L"\" não é de um usuário (S-1-5-21-...).";
    else if (!isPlainAbsoluteFolder(base))
        report.trouble = L"A variável ProgramData não contém um caminho absoluto: \"" + base + L"\".";
    return report.ok() ? deriveBridgePath(base, ownerSid) : std::wstring();
}

// --- Registry ---

struct WantedValue {
    const wchar_t* name;
    std::wstring text;
};

std::vector<WantedValue> wantedValues(const std::wstring& ownerSid, const std::wstring& bridgePath,
                                      const std::wstring& installDir) {
    return {{kOwnerSidValue, ownerSid},
            {kBridgePathValue, bridgePath},
            {kDemandPathValue, deriveDemandPath(bridgePath)},
            {kInstallDirValue, installDir}};
}

bool ensureValue(const WantedValue& value, ProvisionReport& report) {
    const std::wstring former = readBrokerRegistryValue(value.name);
    if (former == value.text)
        return true;
    UniqueKey key;
    LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kBrokerRegistryKey, 0, nullptr, 0,
                                     KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr, key.put(), nullptr);
    if (status == ERROR_SUCCESS)
        status = RegSetValueExW(key.get(), value.name, 0, REG_SZ,
                                reinterpret_cast<const BYTE*>(value.text.c_str()),
                                static_cast<DWORD>((value.text.size() + 1) * sizeof(wchar_t)));
    if (status != ERROR_SUCCESS) {
        report.trouble = errorText(L"Registro, " + std::wstring(value.name), static_cast<DWORD>(status));
        return false;
    }
    report.lines.push_back(L"registrado: " + std::wstring(value.name) + L" = " + value.text +
                           (former.empty() ? L"" : L" (antes: " + former + L")"));
    return true;
}

// A key without values and subkeys; a missing one is not an error.
bool deleteKeyIfEmpty(const std::wstring& path, ProvisionReport& report) {
    DWORD subkeys = 0;
    DWORD values = 0;
    {
        UniqueKey key;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY,
                          key.put()) != ERROR_SUCCESS ||
            RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values,
                             nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            return false;
    }
    if (subkeys != 0 || values != 0 ||
        RegDeleteKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), KEY_WOW64_64KEY, 0) != ERROR_SUCCESS)
        return false;
    report.lines.push_back(L"removido: HKLM\\" + path);
    return true;
}

void removeValues(const std::wstring& ownerSid, ProvisionReport& report) {
    const std::wstring registered = readBrokerRegistryValue(kOwnerSidValue);
    if (!registered.empty() && registered != ownerSid) {
        report.lines.push_back(L"mantido: o registro é de outro usuário (" + registered + L")");
        return;
    }
    UniqueKey key;
    const LSTATUS opened =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, kBrokerRegistryKey, 0, KEY_SET_VALUE | KEY_WOW64_64KEY, key.put());
    if (opened == ERROR_FILE_NOT_FOUND)
        return;
    if (opened != ERROR_SUCCESS) {
        report.trouble = errorText(L"Registro", static_cast<DWORD>(opened));
        return;
    }
    // The owner last: were this cut short, a second run would still know whose values they are.
    for (const wchar_t* name : {kInstallDirValue, kDemandPathValue, kBridgePathValue, kOwnerSidValue}) {
        const LSTATUS deleted = RegDeleteValueW(key.get(), name);
        if (deleted == ERROR_SUCCESS)
            report.lines.push_back(L"removido: " + std::wstring(name));
        else if (deleted != ERROR_FILE_NOT_FOUND)
            report.trouble = errorText(L"Registro, " + std::wstring(name), static_cast<DWORD>(deleted));
    }
    key.reset();
    const std::wstring path = kBrokerRegistryKey;
    if (report.ok() && deleteKeyIfEmpty(path, report))
        deleteKeyIfEmpty(path.substr(0, path.rfind(L'\\')), report);
}

// --- Removal of files and folders ---

bool isMissing(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

// Both files are opened and looked at before either is deleted.
bool removeFiles(const std::vector<SharedObject>& objects, ProvisionReport& report) {
    struct Doomed {
        std::wstring path;
        UniqueFile handle;
    };
    std::vector<Doomed> doomed;
    for (const SharedObject& object : objects) {
        if (object.kind != SharedObjectKind::kFile)
            continue;
        UniqueFile handle = openObject(object, DELETE);
        const DWORD error = GetLastError();
        if (!handle && isMissing(error))
            continue;
        report.trouble = handle ? whatIsWrongAbove(object) : errorText(object.path, error);
        if (report.ok())
            report.trouble = whatIsWrong(handle.get(), object);
        if (!report.ok())
            return false;
        doomed.push_back({object.path, std::move(handle)});
    }
    for (const Doomed& file : doomed) {
        if (!markDeleted(file.handle.get())) {
            report.trouble = errorText(file.path, GetLastError());
            return false;
        }
        report.lines.push_back(L"removido: " + file.path);
    }
    return true;
}

// From the inside out; ends at the first that still holds something.
void removeEmptyFolders(const std::vector<SharedObject>& objects, ProvisionReport& report) {
    for (auto object = objects.rbegin(); object != objects.rend(); ++object) {
        if (object->kind != SharedObjectKind::kFolder)
            continue;
        const UniqueFile handle = openObject(*object, DELETE);
        if (!handle && isMissing(GetLastError()))
            continue;
        const bool isOurs =
            handle && whatIsWrongAbove(*object).empty() && whatIsWrong(handle.get(), *object).empty();
        if (isOurs && markDeleted(handle.get())) {
            report.lines.push_back(L"removido: " + object->path);
            continue;
        }
        report.lines.push_back(L"mantido: " + object->path + L" (não está vazia ou está em uso)");
        return;
    }
}

// --- Status ---

constexpr wchar_t kRight[] = L"[certo]  ";
constexpr wchar_t kWrong[] = L"[errado] ";
constexpr wchar_t kMissing[] = L"[falta]  ";

// True when the object is as it should be, or as it should be for trials.
bool describeObject(const SharedObject& object, const SharedObject& forTrials, ProvisionReport& report) {
    const UniqueFile handle = openObject(object);
    if (!handle) {
        const DWORD error = GetLastError();
        report.lines.push_back(isMissing(error) ? kMissing + object.path
                                                : kWrong + errorText(object.path, error));
        return false;
    }
    std::wstring trouble = whatIsWrongAbove(object);
    if (trouble.empty())
        trouble = whatIsWrong(handle.get(), object);
    if (!trouble.empty()) {
        report.lines.push_back(kWrong + trouble);
        return false;
    }
    if (!accessListsAreKept()) {
        report.lines.push_back(kRight + object.path);
        return true;
    }
    const AccessFindings access = readAccess(handle.get(), object.sddl);
    if (access.error != ERROR_SUCCESS || !access.ownerTrusted) {
        report.lines.push_back(kWrong + object.path + L": pertence a uma conta comum");
        return false;
    }
    if (access.listRight) {
        report.lines.push_back(kRight + object.path);
        return true;
    }
    if (readAccess(handle.get(), forTrials.sddl).listRight) {
        report.lines.push_back(kRight + object.path + L", mas aberto ao usuário: só para testes");
        return true;
    }
    report.lines.push_back(kWrong + object.path + L": permissões diferentes");
    return false;
}

bool describeValue(const WantedValue& wanted, ProvisionReport& report) {
    const std::wstring found = readBrokerRegistryValue(wanted.name);
    const std::wstring shown = std::wstring(wanted.name) + L" = " + found;
    if (found.empty()) {
        report.lines.push_back(kMissing + std::wstring(wanted.name));
        return false;
    }
    // The broker takes paths without regard to case; which folder it is installed in is not for us to say.
    const bool right = wanted.text.empty() || equalsIgnoringCase(found, wanted.text);
    report.lines.push_back((right ? kRight : kWrong) + shown);
    return right;
}

}  // namespace

ProvisionReport provision(const ProvisionPlan& plan) {
    ProvisionReport report;
    const std::wstring bridgePath = bridgePathFor(plan.ownerSid, report);
    if (!report.ok())
        return report;
    if (!isPlainAbsoluteFolder(plan.installDir)) {
        report.trouble = L"A pasta de instalação não é um caminho absoluto: \"" + plan.installDir + L"\".";
        return report;
    }
    std::vector<UniqueFile> held;  // until all is done, so that no folder is swapped under what lies in it
    for (const SharedObject& object : sharedObjects(bridgePath, plan.ownerSid, plan.demandWriters)) {
        UniqueFile handle;
        if (!ensureObject(object, handle, report))
            return report;
        if (object.kind == SharedObjectKind::kFolder)
            held.push_back(std::move(handle));
    }
    // Last, for they are what makes the broker look for the files.
    for (const WantedValue& value : wantedValues(plan.ownerSid, bridgePath, plan.installDir)) {
        if (!ensureValue(value, report))
            return report;
    }
    return report;
}

ProvisionReport removeProvision(const std::wstring& ownerSid) {
    ProvisionReport report;
    const std::wstring bridgePath = bridgePathFor(ownerSid, report);
    if (!report.ok())
        return report;
    const auto objects = sharedObjects(bridgePath, ownerSid, DemandWriters::kServicesOnly);
    if (removeFiles(objects, report))
        removeEmptyFolders(objects, report);
    if (report.ok())
        removeValues(ownerSid, report);
    return report;
}

ProvisionReport describeProvision(const std::wstring& ownerSid) {
    ProvisionReport report;
    const std::wstring bridgePath = bridgePathFor(ownerSid, report);
    if (!report.ok())
        return report;
    bool right = true;
    const auto objects = sharedObjects(bridgePath, ownerSid, DemandWriters::kServicesOnly);
    const auto forTrials = sharedObjects(bridgePath, ownerSid, DemandWriters::kServicesAndOwner);
    for (std::size_t i = 0; i < objects.size(); ++i)
        right = describeObject(objects[i], forTrials[i], report) && right;
    for (const WantedValue& value : wantedValues(ownerSid, bridgePath, {}))
        right = describeValue(value, report) && right;
    if (!right)
        report.trouble = L"Algo falta ou está errado.";
    return report;
}

bool accessListsAreKept() {
    static const bool isWine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    return !isWine;
}

}  // namespace vextra
