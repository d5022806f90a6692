// Links of the file system: which entries are links, and the plain form of the paths that the system answers with.
#pragma once

#include <windows.h>

namespace pal {

// Whether an entry with these attributes and this reparse tag is a symbolic link or a junction. Other reparse points
// (files of a cloud store, compressed or deduplicated files) are what they look like. A tag of 0 is a host that does
// not tell, where a link must not be taken for a folder.
bool IsLink(DWORD attributes, DWORD tag);

// Takes `\\?\` and `\\?\UNC\` off a path, in place. Returns where the path begins then.
wchar_t* PlainPath(wchar_t* full);

}   // namespace pal
