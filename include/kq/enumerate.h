// Walks over what the system stores: the files of folders.
//
// Paths may be as long as the host allows, up to 4095 bytes; an entry whose path would be longer, which the host could
// not open by that path either, is passed over.
#pragma once

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
// is none, is passed over. One that leads to a folder counts as a subfolder: it is entered once from each folder of
// the list, and not when it is one of the folders that the walk stands in, so that a loop of links ends.
//
// Any thread may call, as far as the callback copes.
KQ_API int EnumFilesKQ(char** folders, const u32* types, int (*callback)(const char* path, u32 typeCode, uptr user),
                       uptr user, int recursive);
