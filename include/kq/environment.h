// The one process-wide record, start-up and clean-up, the error word and the sinks for diagnostics.
//
// One application uses the library in a process. InitKQ makes the record, KQEnv points at it until CleanUpKQ, and every
// other call reaches its state through it. Nothing but GetErrorKQ may be called before InitKQ. The fields belong to
// the thread that called InitKQ.
#pragma once

#include "kq/lists.h"
#include "kq/tags.h"
#include "kq/types.h"

struct KQEvent;
struct KQWindow;
struct KQPalette;
struct KQMenu;
struct KQItem;
struct KQStringTable;
struct KQKeySection;
struct KQCriticalRegion;

// Tags of InitKQ.
inline constexpr u32 KQTAG_InitNoMDI = 2560;         // presence: single-window mode
inline constexpr u32 KQTAG_InitKeySections = 2561;   // KQKeySection*: stored, and the key file is loaded at once
inline constexpr u32 KQTAG_InitTitle = 2563;         // const char*: title of the main window, single-instance key
inline constexpr u32 KQTAG_InitStrings = 2564;       // KQStringTable*: used when no catalogue file gave one; not freed
inline constexpr u32 KQTAG_InitCommandLine = 2565;   // const char*: copied to CommandLine
inline constexpr u32 KQTAG_InitNoWindow = 2566;      // presence: no main window at all

// Interface metrics in pixels and colours as 0x00RRGGBB, filled by InitKQ.
struct KQGUIInfo {
    i16 GroupSpacingX, GroupSpacingY;
    i16 MarginLeft, MarginTop, MarginRight, MarginBottom;
    i16 ItemSpacingX, ItemSpacingY;
    i16 Reserved0, Reserved1;
    i16 PaletteInset;    // subtracted twice from the width in the grid computation
    i16 TabHeight;       // height of the tab strip of a tabbed window, also of a title
    i16 GridWidths[5];   // widths of a gadget that takes a third, half, third, quarter, sixth of a row
    i16 RowHeight;
    u32 ColorHighlight;    // shine edge
    u32 ColorShadow;       // shadow edge
    u32 ColorSelected;
    u32 ColorBackground;   // edit-like gadgets
    u32 ColorPanel;        // palettes
    u32 ColorAccent1;
    u32 ColorFill;         // text gadgets
    u32 ColorAccent2;
    u32 ColorAccent3;
    u32 ColorWarning;
    u32 ColorText;
    u32 ColorTabStrip;     // strip behind tabs
    u32 ColorWhite;
    u32 ShineBorders;      // non-zero: draw shaded gadget borders
    void* BrushBackground;
    void* BrushBackgroundOff;
    void* BrushPanel;
    void* BrushFill;
    void* BrushFillOff;
};

// The environment. Allocated by InitKQ, released by CleanUpKQ; counts and codes are 32 bits, pointers one word.
struct KQEnvironment {
    List SpareList;           // created, never filled
    List WindowList;          // KQWindow records
    List PseudoWindowList;    // each node owns one memory block
    List MemoryChunks;        // the chunks of the memory manager
    List JobList;             // KQJob records
    List TaskPool;            // idle worker threads
    TagItem* Tags;            // clone of the tags given to InitKQ
    KQKeySection* KeySections;   // first section given by KQTAG_InitKeySections
    char* PrefsName;          // owned copies of the three names given to InitKQ
    char* KeyFileName;
    char* StringFileName;
    List PrefsSections;       // one node per window line of the preferences file
    i32 ScreenWidth, ScreenHeight;   // pixels
    char* AppDir;             // folder of the executable, with its separator
    char* ScratchDir;         // set by SetScratchDirKQ; null: the scratch folder lies under AppDir
    KQStringTable* Strings;   // the catalogue
    void (*Callback)(KQEvent*);   // the application's event callback
    KQWindow* MainWindow;
    KQPalette* CurrentPalette;
    KQMenu* MenuBuild;        // menu under construction
    KQMenu* MenuParent;
    KQGUIInfo* GUI;           // colours and metrics
    KQPalette* MousePalette;
    i32 MouseX, MouseY;       // in the coordinates of MousePalette
    i32 MouseDX, MouseDY;
    u32 Qualifier;            // held buttons and keys
    u32 Ticks;                // timer ticks of 100 milliseconds
    i16 Cursor;               // current cursor number
    u32 Error;                // see GetErrorKQ
    char* CommandLine;        // owned, or null
    char ScratchPath[256];    // shared path buffer: no value survives a call
    char ScratchPath2[256];
    KQItem* HotItem;
    KQItem* CaptureItem;
    KQItem* FocusItem;
    f64 ByteToUnit[256];      // i * 0.00392156862745098
    f64 ByteToDouble[256];    // i
    i32 InfiniteMouse;
    i32 MouseQueued;
    struct {
        void* Read;
        void* Write;
        void* End;
        void* Base;
    } MouseQueue;
    i32 RawCharMode;
    i32 NoMDI;                // 1 when KQTAG_InitNoMDI was given
    i32 EraseDocuments, EraseTools;
    i32 QuitPump;             // non-zero makes the innermost HandleGUIKQ return
    i32 ModalResult;
    i16 ModalDepth[2];
    i32 PumpDepth, AdvanceDepth;
    i32 BusyCount;
    List ClipList;            // open clips
    void* KeyTable;           // storage of the key file's parsed table
    u16 TabletPressure;       // 0 to 65535
    u32 AllocCount, FreeCount;   // calls of the memory manager that succeeded
    KQPalette* ActivePalette;
    KQPalette* ActiveDocument;
    KQPalette* ActiveTool;
    KQPalette* PendingActivation;
    i32 ClickActivated;
    u32 FillToggle;           // rolling fill pattern of the memory manager
    i32 QuickTimePresent;     // 1 when the movie layer came up
    i32 Processors;           // as the platform reports them
    KQCriticalRegion* MemoryLock;   // guards the memory manager; null early and late, and then without effect
    void* FrameWindow;
    void* ClientWindow;
    void* TopWindow;
    void* ParentWindow;
    void* Accelerators;
    void* MenuBar;
    void* MainFont;
    void* SmallFont;
    void* DisplayPalette;     // native palette for 8-bit displays, else null
    void* DrawDib;
    KQItem* PopupItem;
    KQItem* CreatingItem;
    KQWindow* CreatingWindow;
    u32 ExitCode;
    i32 DragX, DragY;
    i32 DragDistance;
    void* Instance;           // the module instance given to InitKQ
    uptr TimerId;
    i32 InMove;
    i32 MDI;                  // 1 in MDI mode, 0 in single-window mode
    i32 WindowsDisabled;
    u32 KeyRaw, KeyChar, KeyValid;
    i32 AppWindowX, AppWindowY, AppWindowW, AppWindowH;
    i32 AppWindowMaximised;
    i32 KeyFromChar;
    List formatModules;       // KQFormatDesc records in the order of registration
    void* KeyIndex;           // sorted form of KeyTable
    void* StringIndex;        // hashed form of Strings
    i32 nextClipId;           // serial number of the next clip
    u32 nextJobSerial;        // serial number of the last job
};

// The environment from InitKQ to CleanUpKQ, else null.
extern KQ_API KQEnvironment* KQEnv;

// Brings every service up in a fixed order. `callback` (may be null) is the default target of events. `prefs`, `keys`
// and `strings` name the window preferences file, the key file (read only with KQTAG_InitKeySections) and the string
// catalogue, in the executable's folder; null: none. `instance` is the application's module instance. `tags` are
// cloned. Returns the environment, or null on failure and
// while there is one already.
KQ_API KQEnvironment* InitKQ(void (*callback)(KQEvent*), const char* prefs, const char* keys, const char* strings,
                             void* instance, TagItem* tags);

// Takes every service down, reports leaks to the leak report file, releases the environment and leaves KQEnv null.
// Harmless when KQEnv is null.
KQ_API void CleanUpKQ();

// Asks the event pump to end, with code 0.
KQ_API void ExitKQ();

// The code of the last failure (KQERR_...), never reset by success alone; 1 while there is no environment.
KQ_API u32 GetErrorKQ();

// Closes all windows, as CleanUpKQ does.
KQ_API void CleanUpWindowsKQ();

// Diagnostics. The text goes to the sink of SetDebugSinkKQ, and is dropped when there is none.
KQ_API void DebugMessage(const char* format, ...) KQ_PRINTF(1, 2);

// Sets the function that receives each line of DebugMessage, null for none. The text is valid during the call only;
// the sink may be called from any thread that calls the library and must not call it back.
KQ_API void SetDebugSinkKQ(void (*sink)(const char* text));

// Debug text on the screen, reduced to its line counter: set to 60, then advanced by 18. Nothing is drawn.
KQ_API void HdcMessage(const char* format, ...) KQ_PRINTF(1, 2);

// Advances the line counter by 18; past 730 it wraps to 50.
KQ_API void HdcMessageRun(const char* format, ...) KQ_PRINTF(1, 2);

// Leaves the line counter alone.
KQ_API void HdcMessagePos(i32 x, i32 y, const char* format, ...) KQ_PRINTF(3, 4);

// Notes the platform's memory status for the next call and, when `report` is non-zero, passes a report with the
// changes since the last call to DebugMessage.
KQ_API void ShowFreeMemory(int report);

// Reports the display's support of device-independent bitmaps of 20 x 20 pixels at `bits` a pixel to DebugMessage.
KQ_API void ShowDibSupport(u16 bits);
