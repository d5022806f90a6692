// The steps of start-up and clean-up that belong to other modules, in the order in which Init.cpp calls them.
//
// Each is one visible call. A step that can fail returns 0; the steps of services that this build does not have yet
// are empty here and are filled where their module lands.
#pragma once

#include "kq/tags.h"
#include "kq/types.h"

namespace kq {

// Mouse.cpp: the ring of pointer messages.
int CreateMouseQueue();
void FreeMouseQueue();

// Prefs.cpp: reads the preferences file named by PrefsName; a missing one is no error. Stores window places.
void ReadWindowPreferences();
void StoreWindowPreferences();

// DisplayPalette.cpp: the drawing service and the palette of an 8-bit display.
void StartDisplay();
void StopDisplay();

// Pcwin.cpp: component model, window classes, fonts, brushes, top window, timer. Without a screen: the command line
// and the metrics alone.
int StartNativeLayer(TagItem* tags);
void StopNativeLayer();
void ShowCursor();   // shows the pointer that Cursor names
void CloseAllWindows();
void CloseHelpSystem();
void ClearMenuBar();

// Pseudos.cpp
void FreePseudoWindows();

// Pcevent.cpp: the platform's quit message, with its code.
void PostQuitMessage(u32 code);

// Threads.cpp
void StartTaskPool();
void StopTaskPool();
void CreateMemoryLock();
void FreeMemoryLock();

// QuickTime.cpp: loads the movie layer; sets QuickTimePresent when it starts.
void StartMovieLayer();
void StopMovieLayer();

// Locale.cpp: loads StringFileName into Strings.
void LoadStringCatalogue();
void IndexStrings();   // makes the look-ups in Strings fast, wherever they came from
void FreeStringCatalogue();

// Keyfile.cpp: parses KeyFileName into KeyTable.
void ParseKeyFile();
void FreeKeyTable();

// Clip.cpp
void CloseAllClips();
void RemoveScratchFolder();
void FreeFormatModules();

// Memory.cpp: the leak report; the chunks in it go back to the platform.
void ReportLeaks();

// Memory.cpp: gives back, without a word, the chunks that a failed start leaves.
void ReleaseMemoryChunks();

}   // namespace kq
