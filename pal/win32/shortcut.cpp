// Shortcuts on Windows: shell links through the shell, links of the file system through the file layer.
#include "pal/shortcut.h"

#include <cwchar>

#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include "pal/win32/com.h"
#include "pal/win32/links.h"
#include "pal/win32/wide.h"

namespace pal {

namespace {

// The shell's answer in its own form: the target's path and its attributes.
bool ResolveShellLink(const wchar_t* path, wchar_t (&target)[MAX_PATH], DWORD* attributes) {
    ComApartment apartment;
    ComPointer<IShellLinkW> link;
    if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, link.Out())))
        return false;
    ComPointer<IPersistFile> file;
    if (FAILED(link->QueryInterface(IID_IPersistFile, file.Out()))) return false;
    if (FAILED(file->Load(path, STGM_READ))) return false;
    if (FAILED(link->Resolve(nullptr, SLR_NO_UI | SLR_ANY_MATCH))) return false;
    WIN32_FIND_DATAW data = {};
    if (link->GetPath(target, MAX_PATH, &data, 0) != S_OK || !target[0]) return false;
    // What the link noted of its target may be old, or never have been noted.
    *attributes = GetFileAttributesW(target);
    return *attributes != INVALID_FILE_ATTRIBUTES;
}

HANDLE OpenForQuery(const wchar_t* path) {
    return CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

// A symbolic link or junction: opening it opens the target.
bool ResolveFileLink(const wchar_t* path, wchar_t (&target)[MAX_PATH], DWORD* attributes) {
    WIN32_FIND_DATAW own;
    HANDLE find = FindFirstFileW(path, &own);
    if (find == INVALID_HANDLE_VALUE) return false;
    FindClose(find);
    if (!IsLink(own.dwFileAttributes, own.dwReserved0)) return false;
    HANDLE handle = OpenForQuery(path);
    if (handle == INVALID_HANDLE_VALUE) return false;
    BY_HANDLE_FILE_INFORMATION information;
    wchar_t full[MAX_PATH + 8];
    DWORD length = GetFinalPathNameByHandleW(handle, full, MAX_PATH + 8, FILE_NAME_NORMALIZED);
    bool known = length > 0 && length < MAX_PATH + 8 && GetFileInformationByHandle(handle, &information);
    CloseHandle(handle);
    if (!known) return false;
    const wchar_t* plain = PlainPath(full);
    if (std::wcslen(plain) >= MAX_PATH) return false;
    std::wcscpy(target, plain);
    *attributes = information.dwFileAttributes;
    return true;
}

}   // namespace

bool ShortcutResolve(const char* path, char* target, size_t size, bool* folder) {
    Wide wide(path);
    if (!wide) return false;
    wchar_t found[MAX_PATH];
    DWORD attributes = 0;
    if (!ResolveFileLink(wide.Get(), found, &attributes) && !ResolveShellLink(wide.Get(), found, &attributes))
        return false;
    *folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return Narrow(found, target, size);
}

bool FolderIdentify(const char* path, FolderIdentity* identity) {
    Wide wide(path);
    if (!wide) return false;
    HANDLE handle = OpenForQuery(wide.Get());
    if (handle == INVALID_HANDLE_VALUE) return false;
    BY_HANDLE_FILE_INFORMATION information;
    bool known = GetFileInformationByHandle(handle, &information);
    CloseHandle(handle);
    if (known)
        *identity = {information.dwVolumeSerialNumber,
                     u64(information.nFileIndexHigh) << 32 | information.nFileIndexLow};
    return known;
}

}   // namespace pal
