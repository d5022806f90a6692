// The key file: read as a whole, then parsed token by token in one pass into a table that is sized beforehand.
//
// Each line that is neither blank nor a comment writes at most one entry of three words, and five entries more stay
// zero behind the last: they end the last section, whatever its entries look like. Line ends are made alike first, a
// CR LF pair into one, so that the lines of messages are those of an editor; the end of the text ends a line too.
#define KQ_MODULE "Source/Keyfile"
#include "Source/Keyfile.h"

#include <cstring>
#include <iterator>

#include "Source/Alloc.h"
#include "Source/KeyTable.h"
#include "Source/ResourcePath.h"
#include "Source/Startup.h"
#include "Source/Text.h"
#include "kq/catalogue.h"
#include "kq/environment.h"
#include "kq/files.h"
#include "kq/filespec.h"
#include "kq/user.h"

namespace {

constexpr u16 kCommandKey = 0x1000;   // becomes Control at the end of a key
constexpr u16 kFirstNamedCode = KQKEY_F1;
constexpr size_t kSpareEntries = 5;
constexpr size_t kShownName = 40;
constexpr size_t kKeyWords = 0x1000;   // key words that the parser can make

constexpr const char* kKeyNames[] = {
    "F1",     "F2",        "F3",    "F4",   "F5",  "F6",        "F7",         "F8",       "F9",        "F10",
    "F11",    "F12",       "F13",   "F14",  "F15", "LEFTARROW", "RIGHTARROW", "UPARROW",  "DOWNARROW", "HELP",
    "DELETE", "BACKSPACE", "ENTER", "HOME", "END", "TAB",       "PAGEUP",     "PAGEDOWN", "ESC",       "RETURN"};

struct Token {
    const char* text;
    size_t length;
    bool endsLine;   // nothing stands between the token and the end of its line
};

// White space that does not end a line.
bool IsBlank(char c) { return c != '\n' && kq::IsSpace(u8(c)); }

bool EndsLine(char c) { return c == '\n' || c == 0; }

bool Is(const Token& token, const char* word) {
    return token.length == std::strlen(word) && kq::StartsFolded(token.text, word);
}

// A section of the chain as the parser sees it: which keys its entries have so far, from its start to its first zero
// triple. `next` is the first entry that is not counted yet.
struct SectionState {
    KQKeySection* section;
    const u16* next;
    bool ended;
    u64 keys[kKeyWords / 64];
};

bool HasKey(const SectionState& state, u16 key) { return (state.keys[key / 64] >> (key % 64)) & 1; }

// Counts the entries that are written as a whole.
void CountEntries(SectionState* state, const u16* written) {
    while (!state->ended && written - state->next >= kq::kKeyEntryWords) {
        u16 key = state->next[0];
        state->ended = kq::EndsSection(state->next);
        if (!state->ended && key < kKeyWords) state->keys[key / 64] |= u64(1) << (key % 64);
        state->next += kq::kKeyEntryWords;
    }
}

// Whether an entry so far has this key. The last entry may be there in part, the rest of it being zero still.
bool AlreadyBound(SectionState* state, u16 key, const u16* written) {
    CountEntries(state, written);
    if (HasKey(*state, key)) return true;
    return !state->ended && state->next < written && !kq::EndsSection(state->next) && state->next[0] == key;
}

class Parser {
public:
    Parser(const char* text, u16* table, SectionState* sections, size_t count)
        : at_(text), write_(table), sections_(sections), count_(count) {}

    void Run() {
        while (*at_) ParseLine();
    }

private:
    void ParseLine();
    void TakeKey(Token token);
    void TakeSection();
    void TakeBinding(const Token& key);
    u16 TakeCode(const Token& token);
    bool TakeModifier(const Token& token);
    Token ReadToken();
    i32 ReadNumber();
    void SkipBlanks();
    void SkipLine();
    bool FindCommand(const Token& name, u16* command) const;
    SectionState* FindSection(const Token& name) const;
    void SayError() const { UserMessageKQ("Error in key file at line %d", line_); }
    void EndSection();

    const char* at_;
    u16* write_;
    SectionState* sections_;
    size_t count_;
    SectionState* current_ = nullptr;
    i32 line_ = 1;
    bool skipping_ = false;
    u16 modifiers_ = 0;
    u16 code_ = 0;   // of the last good key
};

void Parser::SkipBlanks() {
    while (IsBlank(*at_)) ++at_;
}

void Parser::SkipLine() {
    while (!EndsLine(*at_)) ++at_;
    if (*at_ == 0) return;
    ++at_;
    ++line_;
}

// The next token of the line; empty when there is none.
Token Parser::ReadToken() {
    SkipBlanks();
    const char* start = at_;
    while (*at_ && !kq::IsSpace(u8(*at_))) ++at_;
    return {start, size_t(at_ - start), EndsLine(*at_)};
}

// A decimal number as the rest of the line begins with it; 0 for none. Held to 32 bits.
i32 Parser::ReadNumber() {
    SkipBlanks();
    bool negative = *at_ == '-';
    if (negative || *at_ == '+') ++at_;
    i64 number = 0;
    for (; *at_ >= '0' && *at_ <= '9'; ++at_)
        if (number <= 0x7FFFFFFF) number = number * 10 + (*at_ - '0');
    if (number > 0x7FFFFFFF) number = negative ? i64(0x80000000) : 0x7FFFFFFF;
    return i32(negative ? -number : number);
}

// From the present place to the end of a line that binds a key, names a section or is passed over. Blank lines and
// comments on the way keep the modifiers.
void Parser::ParseLine() {
    modifiers_ = 0;
    for (;;) {
        SkipBlanks();
        if (*at_ == 0) return;
        if (*at_ == '\n' || (at_[0] == '/' && at_[1] == '/')) {
            SkipLine();
            continue;
        }
        Token token = ReadToken();
        if (Is(token, "else")) {
            skipping_ = !skipping_;
            continue;
        }
        if (Is(token, "endif")) {
            skipping_ = false;
            return SkipLine();
        }
        if (skipping_) return SkipLine();
        if (token.endsLine) return TakeKey(token);
        if (token.length >= 2 && token.text[0] == 'i' && token.text[1] == 'f') {
            Token condition = ReadToken();
            skipping_ = condition.length < 7 || !kq::StartsFolded(condition.text, "Windows");
            continue;
        }
        if (!TakeModifier(token)) return TakeKey(token);
    }
}

bool Parser::TakeModifier(const Token& token) {
    if (Is(token, "COMMAND"))
        modifiers_ |= kCommandKey;
    else if (Is(token, "ALT") || Is(token, "OPTION"))
        modifiers_ |= KQKEY_Alt;
    else if (Is(token, "CONTROL"))
        modifiers_ |= KQKEY_Control;
    else if (Is(token, "SHIFT"))
        modifiers_ |= KQKEY_Shift;
    else
        return false;
    return true;
}

void Parser::TakeKey(Token token) {
    if (modifiers_ & kCommandKey) modifiers_ = u16((modifiers_ & ~kCommandKey) | KQKEY_Control);
    if (Is(token, "Section"))
        TakeSection();
    else
        TakeBinding(token);
    SkipLine();
}

// The code of the key; a capital letter adds Shift. A key that is unknown is the last good one.
u16 Parser::TakeCode(const Token& token) {
    if (token.length == 1) {
        u8 c = u8(token.text[0]);
        if (c >= 'A' && c <= 'Z') modifiers_ |= KQKEY_Shift;
        return code_ = kq::FoldLower(c);
    }
    if (Is(token, "space")) return code_ = ' ';
    for (size_t i = 0; i < std::size(kKeyNames); ++i)
        if (Is(token, kKeyNames[i])) return code_ = u16(kFirstNamedCode + i);
    SayError();
    return code_;
}

int ShownLength(const Token& token) { return int(token.length < kShownName ? token.length : kShownName); }

void Parser::EndSection() { write_ += kq::kKeyEntryWords; }

void Parser::TakeSection() {
    Token name = ReadToken();
    current_ = FindSection(name);
    if (!current_) UserMessageKQ("Unknown Section '%.*s' in KeyFile at line %d", ShownLength(name), name.text, line_);
    EndSection();
    if (!current_) return;
    if (current_->section->Keys) {
        UserMessageKQ("Section '%.*s' at line %d already defined in KeyFile", ShownLength(name), name.text, line_);
        return;
    }
    current_->section->Keys = write_;
    current_->next = write_;
}

SectionState* Parser::FindSection(const Token& name) const {
    for (size_t i = 0; i < count_; ++i) {
        const KQKeySection* section = sections_[i].section;
        const char* known = section->Name;
        if (!known && section->NameString) known = GetStringKQ(section->NameString);
        if (known && Is(name, known)) return &sections_[i];
    }
    return nullptr;
}

// Stores the number of the command; false when the name is none of the section's.
bool Parser::FindCommand(const Token& name, u16* command) const {
    const KQKeySection* section = current_->section;
    if (section->Commands) {
        for (const KQKeyCommand* known = section->Commands; known->Name; ++known)
            if (Is(name, known->Name)) return *command = known->Command, true;
        return false;
    }
    for (const KQKeyCommandString* known = section->CommandStrings; known->Name; ++known) {
        const char* text = GetStringKQ(known->Name);
        if (text && Is(name, text)) return *command = known->Command, true;
    }
    return false;
}

void Parser::TakeBinding(const Token& key) {
    u16 code = TakeCode(key);
    u16 word = u16(code | modifiers_);
    if (current_ && AlreadyBound(current_, word, write_))
        UserMessageKQ("Key '%.*s' already defined in KeyFile at line %d", ShownLength(key), key.text, line_);
    *write_++ = word;
    if (!current_) {
        UserMessageKQ("Section undefined at line: %d", line_);
        write_ += 2;
        return;
    }
    Token name = ReadToken();
    i32 value = ReadNumber();
    if (current_->section->Commands || current_->section->CommandStrings) {
        u16 command = 0;
        if (!FindCommand(name, &command)) SayError();
        *write_++ = command;
    }
    *write_++ = u16(value);
}

// Makes all line ends line feeds, a pair one.
void UnifyLineEnds(char* text) {
    char* to = text;
    for (const char* from = text; *from; ++from) {
        if (from[0] == '\r' && from[1] == '\n') continue;
        *to++ = *from == '\r' ? '\n' : *from;
    }
    *to = 0;
}

// Lines that are neither blank nor comments.
size_t CountLines(const char* text) {
    size_t count = 0;
    while (*text) {
        while (*text == ' ' || *text == '\t') ++text;
        bool comment = text[0] == '/' && text[1] == '/';
        if (!comment && !EndsLine(*text)) ++count;
        while (!EndsLine(*text)) ++text;
        if (*text) ++text;
    }
    return count;
}

// The text of the key file, ended by a zero, or null.
char* ReadKeyFile(const char* path) {
    char* spec = MakeFileSpecKQ(path);
    if (!spec) return nullptr;
    KQFileInfo* file = OpenFileKQ(spec, KQFILE_Read);
    FreeFileSpecKQ(spec);
    if (!file) {
        UserMessageKQ("Can't open key file");
        return nullptr;
    }
    i64 length = GetFileLengthKQ(file);
    char* text = length > 0 ? static_cast<char*>(KQ_ALLOC(size_t(length) + 1, KQMEM_Clear)) : nullptr;
    if (text && !ReadFileKQ(file, text, size_t(length))) text[0] = 0;
    CloseFileKQ(file);
    return text;
}

// One cleared state for each section of the chain.
SectionState* MakeStates(KQKeySection* sections, size_t* count) {
    *count = 0;
    for (KQKeySection* section = sections; section; section = section->Next) ++*count;
    SectionState* states = static_cast<SectionState*>(KQ_ALLOC(*count * sizeof(SectionState), KQMEM_Clear));
    if (!states) return nullptr;
    size_t i = 0;
    for (KQKeySection* section = sections; section; section = section->Next) states[i++].section = section;
    return states;
}

void ParseText(const char* text, KQKeySection* sections) {
    size_t lines = CountLines(text);
    if (lines == 0) return;
    size_t count;
    SectionState* states = MakeStates(sections, &count);
    if (!states) return;
    size_t words = (lines + kSpareEntries) * kq::kKeyEntryWords;
    u16* table = static_cast<u16*>(KQ_ALLOC(words * sizeof(u16), KQMEM_Clear));
    if (table) {
        KQEnv->KeyTable = table;
        Parser(text, table, states, count).Run();
        kq::IndexKeyTable(sections);
    }
    KQ_FREE(states);
}

}   // namespace

namespace kq {

void ParseKeyFile(const char* fileName, KQKeySection* sections) {
    // What an earlier start left there leads nowhere.
    for (KQKeySection* section = sections; section; section = section->Next) section->Keys = nullptr;
    char* path = ResourcePath(fileName);
    if (!path) return;
    char* text = ReadKeyFile(path);
    if (!text) return;
    UnifyLineEnds(text);
    ParseText(text, sections);
    KQ_FREE(text);
}

void ParseKeyFile() { ParseKeyFile(KQEnv->KeyFileName, KQEnv->KeySections); }

void FreeKeyTable() {
    FreeKeyIndex();
    KQ_FREE(KQEnv->KeyTable);
    KQEnv->KeyTable = nullptr;
}

}   // namespace kq
