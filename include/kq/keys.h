// Key equivalents: what an application says of its commands, so that the key file can bind keys to them.
//
// InitKQ reads the key file once, when KQTAG_InitKeySections gives it the first of a chain of sections. The file is
// text; each line binds one key:
//
//     Section Main              the following lines belong to this section
//     CONTROL s     Save        COMMAND and CONTROL, ALT and OPTION, SHIFT; then the key; then the command
//     SHIFT F5      Step 10     a number behind the command is its value, of 16 bits
//     A             All         a capital letter is Shift and the letter
//     if Windows                lines up to else or endif count; with any other word they do not
//     // a comment
//
// Words are parted by white space; a line ends with a line feed, a carriage return or both, the last one also with the
// file. A key is a character, "space", or one of F1 to F15, LEFTARROW, RIGHTARROW, UPARROW, DOWNARROW, HELP, DELETE,
// BACKSPACE, ENTER, HOME, END, TAB, PAGEUP, PAGEDOWN, ESC and RETURN. An unknown key stands for that of the last good
// line. All words but "if" are taken in any case of letters. Of two lines with the same key in one section the first
// counts, and a section that is named twice keeps its first start.
//
// Any word that begins with a small "if" is a condition, true when the word behind it begins with "Windows". Conditions
// do not nest: each "if" sets whether lines count, "else" turns it over, "endif" lets them count. A comment may stand
// behind the words of a line that is not complete; its modifiers then hold for the next line.
//
// Faults are shown to the user one by one, with the number of the line, and parsing goes on; a missing key file is one
// of them. A key that nobody consumed becomes the command that the active palette's own section, or else the first
// section of the chain, binds to it; a modal dialog keeps the application's section out.
#pragma once

#include "kq/types.h"

// Key codes. A printable key is its lower-case ASCII code.
enum : u16 {
    KQKEY_F1 = 288,   // up to F15 = 302
    KQKEY_Left = 303,
    KQKEY_Right = 304,
    KQKEY_Up = 305,
    KQKEY_Down = 306,
    KQKEY_Help = 307,
    KQKEY_Delete = 308,
    KQKEY_Backspace = 309,
    KQKEY_Return = 310,   // "ENTER" in the key file
    KQKEY_Home = 311,
    KQKEY_End = 312,
    KQKEY_Tab = 313,
    KQKEY_PageUp = 314,
    KQKEY_PageDown = 315,
    KQKEY_Escape = 316,
    KQKEY_Enter = 317,   // "RETURN" in the key file
};

// The bits that a key word has above the 9 bits of its key code.
enum : u16 {
    KQKEY_Control = 0x0200,
    KQKEY_Shift = 0x0400,
    KQKEY_Alt = 0x0800,
};

// A command by its name in the key file. A null name ends a table.
struct KQKeyCommand {
    const char* Name;
    u16 Command;
};

// A command by the number of its name in the string catalogue. A 0 ends a table.
struct KQKeyCommandString {
    u32 Name;
    u16 Command;
};

// One section of the key file. The records belong to the application and must stay until CleanUpKQ. A section needs
// one of the two tables: without one its entries in the parsed table are cut short and name the wrong commands.
struct KQKeySection {
    KQKeySection* Next;                         // next section, or null
    const char* Name;                           // the section's name in the file, or null
    u32 NameString;                             // when Name is null: number of the name in the string catalogue, or 0
    const KQKeyCommand* Commands;               // by name, or null
    const KQKeyCommandString* CommandStrings;   // by string number, used when Commands is null; or null
    u16* Keys;   // filled by InitKQ: the first entry, as three words: key, command, value; valid until CleanUpKQ. Null
                 // for a section that the file does not name
};
