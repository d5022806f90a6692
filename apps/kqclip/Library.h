// The library's life within a run of the tool, and the format modules that it has then.
#pragma once

#include <string>
#include <vector>

#include <KQLib.h>

namespace kqclip {

// The library from construction to destruction, without a window, with the format modules of `folders` and of the
// places where they are looked for by themselves behind the built-in ones: the folders of KQCLIP_MODULES, or else the
// one where they lie beside the program in a build, and the one where `make install` puts them. What the
// library and its modules say is noted (Outcome.h).
class Library {
public:
    // `showScan` shows the modules that are found, on standard error.
    Library(const std::vector<std::string>& folders, bool showScan);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

// The modules in the order in which they are asked.
std::vector<KQFormatDesc*> Modules();

// The codes of the extensions that a module writes: those that it names for it, else all that it reads.
std::vector<u32> WrittenBy(KQFormatDesc* module);

// The code that CheckFile takes for an extension of up to four letters; 0 for a longer one.
u32 ExtensionCode(const std::string& extension);

}   // namespace kqclip
