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

// Pcwin.cpp: everything that faces the host's desktop, up and down. Each of its steps stands below.
int StartNativeLayer(TagItem* tags);   // 0: an instance with the same title runs, or there is no top window
void StopNativeLayer();

// DisplayPalette.cpp: the drawing service, the palette of an 8-bit display, and the one given to the other.
void OpenDrawing();
void UseDisplayPalette();
void CloseDrawing();
void DeleteDisplayPalette();

// The steps of the native layer that need the desktop. Those that make are in the order of the start, those that
// undo in the order of the clean-up.
bool RaiseRunningInstance(const char* title);   // true: a window with this title was there, and is on top now
void StartComponentModel();
void RegisterWindowClasses();
void StartMovieFiles();
void CreateInterfaceFonts();
void CreateBrushes();
int CreateMainFrame();    // the frame of many documents, with accelerators and client
int CreateMainWindow();   // the one window of single-window mode
void StartTimer();
void ShowTopWindow();

void ShutDownBinTransfer();
void DestroyMainFrame();
void StopTimer();
void StopMovieFiles();
void DeleteInterfaceFonts();
void DeleteBrushes();
void UnloadLibraries();
void StopComponentModel();

void ShowCursor();   // shows the pointer that Cursor names
void CloseHelpSystem();
void CloseAllWindows();
void ClearMenuBar();

// Pseudos.cpp
void FreePseudoWindows();

// Pcevent.cpp: the platform's quit message, with its code; whether pointer or button messages are queued.
void PostQuitMessage(u32 code);
bool InputWaits();

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
