// The shell's namespace on Windows, through COM.
#include "pal/shell.h"

#include <cstring>
#include <new>

#include <windows.h>

#include <shlobj.h>
#include <shlwapi.h>

#include "pal/allocate.h"
#include "pal/win32/com.h"
#include "pal/win32/wide.h"

namespace pal {

struct ShellFolder {
    ComApartment apartment;
    ComPointer<IShellFolder> folder;
    ComPointer<IEnumIDList> items;
};

// An item is its identifier list; this name stands for it outside.
struct ShellItem {
    ITEMIDLIST list;
};

namespace {

constexpr SHCONTF kAllItems = SHCONTF_FOLDERS | SHCONTF_NONFOLDERS | SHCONTF_INCLUDEHIDDEN;

PCUITEMID_CHILD ListOf(ShellItem* item) { return reinterpret_cast<PCUITEMID_CHILD>(item); }

ShellFolder* NewFolder() {
    void* memory = Allocate(sizeof(ShellFolder));
    return memory ? new (memory) ShellFolder : nullptr;
}

void FreeFolder(ShellFolder* folder) {
    if (folder) folder->~ShellFolder();
    Free(folder);
}

// Begins the walk of an opened folder; a folder that was not opened, or lists nothing, is freed.
ShellFolder* Listed(ShellFolder* folder, HRESULT opened, void* owner) {
    if (SUCCEEDED(opened) && folder->folder.Get() &&
        folder->folder->EnumObjects(static_cast<HWND>(owner), kAllItems,
                                    reinterpret_cast<IEnumIDList**>(folder->items.Out())) == S_OK)
        return folder;
    FreeFolder(folder);
    return nullptr;
}

HRESULT OpenByPath(ShellFolder* folder, const wchar_t* path, void* owner) {
    ComPointer<IShellFolder> desktop;
    HRESULT result = SHGetDesktopFolder(reinterpret_cast<IShellFolder**>(desktop.Out()));
    if (FAILED(result)) return result;
    PIDLIST_RELATIVE list = nullptr;
    result = desktop->ParseDisplayName(static_cast<HWND>(owner), nullptr, const_cast<wchar_t*>(path), nullptr, &list,
                                       nullptr);
    if (FAILED(result)) return result;
    result = desktop->BindToObject(list, nullptr, IID_IShellFolder, folder->folder.Out());
    CoTaskMemFree(list);
    return result;
}

}   // namespace

ShellFolder* ShellOpenDesktop(void* owner) {
    auto* folder = NewFolder();
    if (!folder) return nullptr;
    return Listed(folder, SHGetDesktopFolder(reinterpret_cast<IShellFolder**>(folder->folder.Out())), owner);
}

ShellFolder* ShellOpenPath(const char* path, void* owner) {
    Wide wide(path);
    if (!wide) return nullptr;
    auto* folder = NewFolder();
    if (!folder) return nullptr;
    return Listed(folder, OpenByPath(folder, wide.Get(), owner), owner);
}

ShellFolder* ShellOpenItem(ShellFolder* parent, ShellItem* item, void* owner) {
    auto* folder = NewFolder();
    if (!folder) return nullptr;
    return Listed(folder, parent->folder->BindToObject(ListOf(item), nullptr, IID_IShellFolder, folder->folder.Out()),
                  owner);
}

void ShellCloseFolder(ShellFolder* folder) { FreeFolder(folder); }

ShellItem* ShellNext(ShellFolder* folder) {
    PITEMID_CHILD item = nullptr;
    if (folder->items->Next(1, &item, nullptr) != S_OK) return nullptr;
    return reinterpret_cast<ShellItem*>(item);
}

void ShellFreeItem(ShellItem* item) { CoTaskMemFree(item); }

bool ShellQuery(ShellFolder* folder, ShellItem* item, ShellAttributes* attributes) {
    PCUITEMID_CHILD list = ListOf(item);
    SFGAOF flags = SFGAO_FOLDER | SFGAO_FILESYSTEM;
    if (FAILED(folder->folder->GetAttributesOf(1, &list, &flags))) return false;
    *attributes = {(flags & SFGAO_FOLDER) != 0, (flags & SFGAO_FILESYSTEM) != 0};
    return true;
}

bool ShellGetName(ShellFolder* folder, ShellItem* item, ShellName kind, char* name, size_t size) {
    STRRET reply;
    SHGDNF form = kind == ShellName::Parsing ? SHGDN_FORPARSING : SHGDN_NORMAL;
    if (FAILED(folder->folder->GetDisplayNameOf(ListOf(item), form, &reply))) return false;
    wchar_t* wide = nullptr;
    if (FAILED(StrRetToStrW(&reply, ListOf(item), &wide))) return false;
    int needed = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    bool fits = needed > 0 && size_t(needed) <= size && Narrow(wide, name, size);
    CoTaskMemFree(wide);
    return fits;
}

}   // namespace pal
