// Walks over what the system stores: the files of folders, the resources of module files, and the objects of the
// shell's namespace.
//
// Paths may be as long as the host allows, up to 4095 bytes; an entry whose path would be longer, which the host could
// not open by that path either, is passed over.
#pragma once

#include <cstddef>

#include "kq/tags.h"
#include "kq/types.h"

// Calls `callback` for each file of each folder of the null-terminated list `folders`, in the host's order, with its
// path (valid during the call), its type code and `user`. The callback's result is ignored. A null callback, a null
// list and an empty one do nothing. `types` is not used. Returns 1 in every case: a folder that cannot be read yields
// no files. With a non-zero `recursive` subfolders are walked too, but not those whose name begins with `{`. A folder's
// name may end in a separator or not; an empty name is the root.
//
// The type code holds four bytes in memory order: up to three of the extension in upper case, then blanks; `clip.Mov`
// has "MOV ". The extension begins behind the first `.` of the name and ends in front of a second one, so `a.b.tga` has
// "B   "; an extension that ends the name with fewer than three letters is filled with NULs to the third: `a.ei` has
// 'E', 'I', 0, ' '.
//
// An entry with ".lnk" in its name, in any case of letters, and a symbolic link of any name are shortcuts: the
// callback gets the target's path, with the type code of the shortcut's own name. A shortcut that leads nowhere, or
// is none, is passed over. One that leads to a folder counts as a subfolder: the folder is entered through shortcuts
// once for each folder of the list, and never while the walk stands in it, so that a loop of shortcuts ends.
//
// Each level of a walk keeps its folder open: a tree deeper than the host lets a program open files ends there.
//
// Any thread may call, as far as the callback copes.
KQ_API int EnumFilesKQ(char** folders, const u32* types, int (*callback)(const char* path, u32 typeCode, uptr user),
                       uptr user, int recursive);

// One resource of a module, valid during the callback that it is given to.
struct KQResource {
    const u8* Data;     // its bytes, behind the head when that was stripped
    const char* Name;   // the name in the head, or null
    i32 ID;             // its number; 0 for a resource that has a text in its place
    u32 Size;           // its size in bytes, the head included
};

// Tags of EnumResourceIDKQ.
inline constexpr u32 KQTAG_ResourceStripHead = 0x10000;   // presence: parse the head of each resource
inline constexpr u32 KQTAG_ResourceFirstID = 0x10001;     // i32: lowest ID to report; default: no limit
inline constexpr u32 KQTAG_ResourceLastID = 0x10002;      // i32: highest ID to report; default: no limit

// Opens the module `file` for its resources; it is neither loaded nor run. A module is a PE file, or an ELF file that
// holds the same resource directory in a section named `.kqrsrc`, where the addresses of data count from the section's
// start; 32-bit and 64-bit, whatever the host. The file stays open until EndResourceAccessKQ. Null with the reason in
// `Error` when the file is none or cannot be read; null, with `Error` left alone, for a null name.
KQ_API void* BeginResourceAccessKQ(const char* file);

// Ends the access; null is ignored.
KQ_API void EndResourceAccessKQ(void* module);

// Calls `callback` for each resource of `type`, in the order of the directory, with `user`. Its result is ignored.
// Names of types compare without case, and one that begins with a digit is looked up with an underscore in front;
// "#24" asks for the type of that number. Of several languages the first counts; a resource whose data lie outside
// the file is passed over. Resources that share bytes so often that four times the module's length would be read end
// the enumeration. With KQTAG_ResourceStripHead the first word of each resource tells its head, little
// end first: 1, no name, the data begin 2 bytes on; 3, a zero-ended name at offset 2, the data begin behind its zero;
// anything else is no head. Either ID tag turns the range on, in which a resource without a number never is. Returns 1
// in every case. For the library's own thread.
KQ_API int EnumResourceIDKQ(void* module, const char* type, int (*callback)(KQResource* resource, uptr user), uptr user,
                            TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
int EnumResourceIDKQ(void* module, const char* type, int (*callback)(KQResource* resource, uptr user), uptr user,
                     Tag tag, Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return EnumResourceIDKQ(module, type, callback, user, tags.data());
}

// How many resources of `type`, taken as EnumResourceIDKQ takes it, the module's directory lists: all of them, those
// without a number and those whose data cannot be had included, so that an enumeration may report fewer. 0 for a null
// module, a null or an unknown type. For the library's own thread.
KQ_API int NumResourceIDKQ(void* module, const char* type);

// An open folder of the shell's namespace, and one object in it. The objects are used on the thread that made them.
struct KQShellFolderS;
struct KQEnumObjectS;

// Opens a folder of the namespace: the one that `object` is, or for null the desktop, the root. On Linux the root is
// the desktop folder of the user's directories, or the home folder when there is none. Null when it cannot be opened.
// The caller frees it with FreeShellFolderKQ.
KQ_API KQShellFolderS* EnumFileObjectsKQ(KQEnumObjectS* object);

// The same by path; a null path is the desktop.
KQ_API KQShellFolderS* EnumFileObjectsKQ(const char* path);

// The desktop.
inline KQShellFolderS* EnumFileObjectsKQ(std::nullptr_t) {
    return EnumFileObjectsKQ(static_cast<const char*>(nullptr));
}

// The next object that is a folder or a file, hidden ones included; null at the end, or for a null folder. `isFolder`
// (may be null) is set to 1 or 0. The caller frees the object with FreeEnumObjectKQ, before its folder.
KQ_API KQEnumObjectS* GetNextFileObjectKQ(KQShellFolderS* folder, u32* isFolder);

// The object's path as a new file specification, freed by the caller; "Error" for an object that has none. Null for a
// null object, or with `Error` 1 when out of memory.
KQ_API char* GetFileSpecKQ(KQEnumObjectS* object);

// Writes the name under which the object is shown to `name`, which holds at least 1024 bytes: the bare file name when
// the object has a path, so that no extension is hidden, else the shell's name for it; where the two differ in case
// alone, the shell's. Returns 1, or 0 for a null object.
KQ_API int GetDisplayNameKQ(KQEnumObjectS* object, char* name);

// Frees a folder; null is ignored.
KQ_API void FreeShellFolderKQ(KQShellFolderS* folder);

// Frees an object; null is ignored.
KQ_API void FreeEnumObjectKQ(KQEnumObjectS* object);
