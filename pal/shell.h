// The namespace of the host's shell: folders that list items, and items that have names. On Windows it is the shell's
// own; on Linux the desktop folder of the XDG user directories and the tree of files.
//
// An item lives no longer than its folder, and both stay on the thread that made them.
#pragma once

#include "kq/types.h"

namespace pal {

// An open folder and one item in it; opaque.
struct ShellFolder;
struct ShellItem;

// Opens the root of the namespace with a walk over its items. `owner` is the native window on whose behalf the shell
// may ask, or null. Null on failure.
ShellFolder* ShellOpenDesktop(void* owner);

// The same for the folder at `path`.
ShellFolder* ShellOpenPath(const char* path, void* owner);

// The same for the folder that an item of `parent` is.
ShellFolder* ShellOpenItem(ShellFolder* parent, ShellItem* item, void* owner);

// Ends the walk and closes; null is ignored.
void ShellCloseFolder(ShellFolder* folder);

// The next item, hidden ones included; null at the end.
ShellItem* ShellNext(ShellFolder* folder);

// Frees an item; null is ignored.
void ShellFreeItem(ShellItem* item);

// What an item is.
struct ShellAttributes {
    bool folder;
    bool fileSystem;   // stands in the file system
};

// Asks what an item is; false when the shell does not tell.
bool ShellQuery(ShellFolder* folder, ShellItem* item, ShellAttributes* attributes);

// Which of an item's names is asked for.
enum class ShellName { Display, Parsing };   // as the user sees it; as a path

// Writes a name, zero-ended; false, with `name` as it was, when the item has none or it does not fit `size` bytes.
bool ShellGetName(ShellFolder* folder, ShellItem* item, ShellName kind, char* name, size_t size);

}   // namespace pal
