// Loading of the string catalogue with its header of symbols, in time that is linear in both files.
//
// A symbol's number comes from the first place in the header where the symbol stands in front of white space, whatever
// stands before it: "FOO" is also found as the end of "BARFOO", and then has that line's number. So a symbol is looked
// for as an ending of the header's words. All symbols of the catalogue go into a hash first; one walk over the header
// then hashes each word from its end and gives every symbol that it meets for the first time the number of the line.
#define KQ_MODULE "Source/Locale"
#include <cstring>

#include "Source/Alloc.h"
#include "Source/ResourcePath.h"
#include "Source/Startup.h"
#include "Source/Text.h"
#include "kq/catalogue.h"
#include "kq/environment.h"
#include "kq/files.h"
#include "kq/filespec.h"

namespace {

constexpr size_t kHeaderNameSize = 1000;
constexpr i64 kMostText = 0x7FFFFFFF;   // offsets have 32 bits

// Bytes from `at` up to `end`.
struct Span {
    const char* at = nullptr;
    const char* end = nullptr;

    size_t Length() const { return size_t(end - at); }
};

// A file read as a whole.
struct FileText {
    char* bytes;
    size_t length;

    Span All() const { return {bytes, bytes + length}; }
};

bool IsLineEnd(char c) { return c == '\n' || c == '\r'; }

// The first place where `word` stands in front of white space; null for none.
const char* FindWord(const char* word, Span text) {
    size_t length = std::strlen(word);
    while (text.Length() > length) {
        text.at = static_cast<const char*>(std::memchr(text.at, word[0], text.Length() - length));
        if (!text.at) return nullptr;
        if (std::memcmp(text.at, word, length) == 0 && kq::IsSpace(u8(text.at[length]))) return text.at;
        ++text.at;
    }
    return nullptr;
}

// The next word as a string scan reads it, or an empty span. A zero byte ends the text.
Span ScanWord(Span text) {
    while (text.at < text.end && kq::IsSpace(u8(*text.at))) ++text.at;
    const char* end = text.at;
    while (end < text.end && *end && !kq::IsSpace(u8(*end))) ++end;
    return {text.at, end};
}

// The first quote of the line that no backslash precedes; null for none. `first` is where the catalogue begins.
const char* FindQuote(const char* first, Span text) {
    for (; text.at < text.end && !IsLineEnd(*text.at); ++text.at)
        if (*text.at == '"' && (text.at == first || text.at[-1] != '\\')) return text.at;
    return nullptr;
}

// Reads the quoted strings of a catalogue. Where several words of one line lead to the same string, its quotes are
// looked for once.
class QuoteReader {
public:
    explicit QuoteReader(Span text) : text_(text), from_(nullptr), open_(nullptr), close_(nullptr) {}

    // The bytes between the quotes behind `from`; false when the line has none.
    bool Find(const char* from, Span* between) {
        if (!open_ || from < from_ || from > open_) {
            from_ = from;
            open_ = FindQuote(text_.at, {from, text_.end});
            close_ = open_ ? FindQuote(text_.at, {open_ + 1, text_.end}) : nullptr;
        }
        if (!open_ || !close_) return false;
        *between = {open_ + 1, close_};
        return true;
    }

private:
    Span text_;
    const char* from_;
    const char* open_;
    const char* close_;
};

// Copies with `\n` made a line feed, and returns the count of bytes; only counts when `out` is null.
size_t CopyQuoted(Span from, char* out) {
    size_t count = 0;
    while (from.at < from.end) {
        bool lineFeed = from.Length() >= 2 && from.at[0] == '\\' && from.at[1] == 'n';
        if (out) out[count] = lineFeed ? '\n' : *from.at;
        from.at += lineFeed ? 2 : 1;
        ++count;
    }
    return count;
}

// The room of a string of `length` bytes: a zero, and one more when that makes the length even.
i64 PaddedLength(size_t length) { return i64(length) + (length % 2 ? 1 : 2); }

// One line `#define SYMBOL "text"` of the catalogue.
struct Definition {
    Span symbol;
    const char* behind;   // behind the word #define
};

// Walks the definitions; false at the end. The next one is looked for right behind the word.
bool NextDefinition(Span* rest, Definition* definition) {
    const char* found = FindWord("#define", *rest);
    if (!found) return false;
    definition->behind = rest->at = found + std::strlen("#define");
    definition->symbol = ScanWord(*rest);
    return true;
}

// The number of a header's line of the form `#define SYMBOL 123`; false when it is no such line.
bool LineNumber(Span line, u32* number) {
    Span define = ScanWord(line);
    if (define.Length() != 7 || std::memcmp(define.at, "#define", 7) != 0) return false;
    Span symbol = ScanWord({define.end, line.end});
    if (symbol.Length() == 0) return false;
    Span digits = ScanWord({symbol.end, line.end});
    bool negative = digits.Length() > 0 && *digits.at == '-';
    if (digits.Length() > 0 && (negative || *digits.at == '+')) ++digits.at;
    if (digits.Length() == 0 || *digits.at < '0' || *digits.at > '9') return false;
    u32 value = 0;
    for (; digits.at < digits.end && *digits.at >= '0' && *digits.at <= '9'; ++digits.at)
        value = value * 10 + u32(*digits.at - '0');
    *number = negative ? 0 - value : value;
    return true;
}

// The hash of a word, taken from its last byte to its first, so that a walk backwards has that of every ending.
constexpr u64 kHashStart = 0xCBF29CE484222325u, kHashFactor = 0x100000001B3u;

u64 HashOn(u64 hash, char c) { return (hash ^ u8(c)) * kHashFactor; }

u64 HashWord(Span word) {
    u64 hash = kHashStart;
    while (word.end > word.at) hash = HashOn(hash, *--word.end);
    return hash;
}

enum class Found : u32 { NotYet, Number, NoNumber };

struct Symbol {
    Span text;   // empty: the place is free
    u64 hash;
    u32 number;
    Found found;
};

// The catalogue's symbols, hashed with open addressing, at most half full.
class SymbolTable {
public:
    ~SymbolTable() { KQ_FREE(symbols_); }

    // Takes in the symbols of the catalogue; false when out of memory.
    bool Gather(Span catalogue);

    // Looks all symbols up in the header.
    void Resolve(Span header);

    // The number of a symbol that was gathered; false when the header has none for it.
    bool Number(Span symbol, u32* number) {
        Symbol* place = FindPlace(symbol, HashWord(symbol));
        *number = place->number;
        return place->found == Found::Number;
    }

private:
    static bool Same(Span a, Span b) { return a.Length() == b.Length() && std::memcmp(a.at, b.at, a.Length()) == 0; }

    u64 FirstPlace(u64 hash) const { return (hash >> 20) & mask_; }

    Symbol* FindPlace(Span symbol, u64 hash) {
        for (u64 at = FirstPlace(hash);; at = (at + 1) & mask_)
            if (symbols_[at].text.Length() == 0 || (symbols_[at].hash == hash && Same(symbols_[at].text, symbol)))
                return &symbols_[at];
    }

    static u64 LengthBit(size_t length) { return u64(1) << (length < 63 ? length : 63); }

    void Admit(Span symbol);
    void Meet(Span word, Span line);
    void MeetEnding(Span ending, u64 hash, Span line);
    void Note(Symbol* symbol, Span line);

    Symbol* symbols_ = nullptr;
    u64 mask_ = 0;
    size_t open_ = 0;              // symbols that the header has not shown yet
    size_t longest_ = 0;           // length of the longest one
    bool starts_[256] = {};        // first bytes of symbols
    u64 lengths_ = 0;              // bit n: some symbol has n bytes; bit 63: that many or more
    const char* line_ = nullptr;   // the line whose number is known
    u32 number_ = 0;
    bool numbered_ = false;
};

bool SymbolTable::Gather(Span catalogue) {
    size_t count = 0;
    Definition definition;
    for (Span rest = catalogue; NextDefinition(&rest, &definition);) ++count;
    size_t places = 2;
    while (places < 2 * count) places *= 2;
    symbols_ = static_cast<Symbol*>(KQ_ALLOC(places * sizeof(Symbol), KQMEM_Clear));
    if (!symbols_) return false;
    mask_ = places - 1;
    for (Span rest = catalogue; NextDefinition(&rest, &definition);) {
        if (definition.symbol.Length() == 0) break;
        u64 hash = HashWord(definition.symbol);
        Symbol* place = FindPlace(definition.symbol, hash);
        if (place->text.Length() > 0) continue;
        *place = {definition.symbol, hash, 0, Found::NotYet};
        ++open_;
        Admit(definition.symbol);
    }
    return true;
}

void SymbolTable::Admit(Span symbol) {
    if (symbol.Length() > longest_) longest_ = symbol.Length();
    starts_[u8(*symbol.at)] = true;
    lengths_ |= LengthBit(symbol.Length());
}

// A word counts when white space follows it, so one that ends the file does not.
void SymbolTable::Resolve(Span header) {
    const char* line = header.at;
    for (const char* at = header.at; at < header.end && open_ > 0;) {
        if (IsLineEnd(*at)) line = at + 1;
        if (kq::IsSpace(u8(*at))) {
            ++at;
            continue;
        }
        const char* start = at;
        while (at < header.end && !kq::IsSpace(u8(*at))) ++at;
        if (at < header.end) Meet({start, at}, {line, header.end});
    }
}

// Most endings are no symbol by their first byte or their length, which is cheaper to see than the hash.
void SymbolTable::Meet(Span word, Span line) {
    u64 hash = kHashStart;
    size_t most = word.Length() < longest_ ? word.Length() : longest_;
    for (const char* at = word.end; at > word.end - most;) {
        hash = HashOn(hash, *--at);
        if (starts_[u8(*at)] && (lengths_ & LengthBit(size_t(word.end - at)))) MeetEnding({at, word.end}, hash, line);
    }
}

// A symbol that was met before is not compared again: this keeps the walk linear.
void SymbolTable::MeetEnding(Span ending, u64 hash, Span line) {
    for (u64 at = FirstPlace(hash); symbols_[at].text.Length() > 0; at = (at + 1) & mask_) {
        Symbol* symbol = &symbols_[at];
        if (symbol->hash != hash || symbol->found != Found::NotYet || !Same(symbol->text, ending)) continue;
        Note(symbol, line);
        return;
    }
}

// Gives the symbol the number of the line, which begins at `line.at` and is parsed once for all its symbols.
void SymbolTable::Note(Symbol* symbol, Span line) {
    if (line_ != line.at) {
        line_ = line.at;
        const char* end = line.at;
        while (end < line.end && !IsLineEnd(*end)) ++end;
        numbered_ = LineNumber({line.at, end}, &number_);
    }
    symbol->found = numbered_ ? Found::Number : Found::NoNumber;
    symbol->number = number_;
    --open_;
}

int Shown(Span text) { return int(text.Length() < 500 ? text.Length() : 500); }

// The first pass: checks every definition and measures them.
bool Measure(Span catalogue, SymbolTable* symbols, i64* count, i64* textSize) {
    QuoteReader quotes(catalogue);
    Definition definition;
    *count = *textSize = 0;
    for (Span rest = catalogue; NextDefinition(&rest, &definition);) {
        Span symbol = definition.symbol, between;
        u32 number;
        if (symbol.Length() == 0) return DebugMessage("Error in ID field."), false;
        if (!symbols->Number(symbol, &number))
            return DebugMessage("Undefined Symbol '%.*s'.", Shown(symbol), symbol.at), false;
        if (!quotes.Find(definition.behind, &between))
            return DebugMessage("Invalid String for Symbol '%.*s'.", Shown(symbol), symbol.at), false;
        ++*count;
        *textSize += PaddedLength(CopyQuoted(between, nullptr));
        if (*textSize > kMostText) return false;
    }
    return true;
}

// The second pass: fills the table, whose block has room for all.
void Fill(Span catalogue, SymbolTable* symbols, KQStringTable* table) {
    QuoteReader quotes(catalogue);
    Definition definition;
    u32 offset = 0;
    i32 i = 0;
    for (Span rest = catalogue; NextDefinition(&rest, &definition); ++i) {
        Span between;
        quotes.Find(definition.behind, &between);
        symbols->Number(definition.symbol, &table->IDs[i]);
        table->Offsets[i] = offset;
        size_t length = CopyQuoted(between, table->Text + offset);
        size_t padded = size_t(PaddedLength(length));
        std::memset(table->Text + offset + length, 0, padded - length);
        offset += u32(padded);
    }
}

KQStringTable* MakeTable(i64 count, i64 textSize) {
    KQStringTable* table = KQ_NEW(KQStringTable);
    if (!table) return nullptr;
    table->IDs = static_cast<u32*>(KQ_ALLOC(size_t(textSize + count * 8), 0));
    if (!table->IDs) {
        KQ_FREE(table);
        return nullptr;
    }
    table->Count = i32(count);
    table->Offsets = table->IDs + count;
    table->Text = reinterpret_cast<char*>(table->Offsets + count);
    return table;
}

// Reads a whole file; false on failure, with `text` empty.
bool ReadText(const char* fileName, FileText* text) {
    char* spec = MakeFileSpecKQ(fileName);
    KQFileInfo* file = OpenFileKQ(spec, KQFILE_Read);
    FreeFileSpecKQ(spec);
    if (!file) return false;
    text->length = size_t(GetFileLengthKQ(file));
    KQEnv->Error = KQERR_NOMEM;
    text->bytes = static_cast<char*>(KQ_ALLOC(text->length, KQMEM_Clear));
    bool read = text->bytes && (text->length == 0 || ReadFileKQ(file, text->bytes, text->length));
    CloseFileKQ(file);
    return read;
}

// Reads the header that the catalogue names; `name` has kHeaderNameSize bytes for that.
bool ReadHeader(Span catalogue, char* name, FileText* header) {
    const char* include = FindWord("#include", catalogue);
    if (!include) return DebugMessage("No include file."), false;
    Span between;
    bool quoted = QuoteReader(catalogue).Find(include + std::strlen("#include"), &between);
    if (!quoted || between.Length() >= kHeaderNameSize) return DebugMessage("Invalid include file."), false;
    name[CopyQuoted(between, name)] = 0;
    return ReadText(name, header);
}

KQStringTable* BuildTable(Span catalogue, Span header) {
    SymbolTable symbols;
    i64 count, textSize;
    KQEnv->Error = KQERR_NOMEM;
    if (!symbols.Gather(catalogue)) return nullptr;
    symbols.Resolve(header);
    KQEnv->Error = KQERR_BADDATA;
    if (!Measure(catalogue, &symbols, &count, &textSize)) return nullptr;
    KQEnv->Error = KQERR_NOMEM;
    KQStringTable* table = MakeTable(count, textSize);
    if (!table) return nullptr;
    Fill(catalogue, &symbols, table);
    KQEnv->Error = KQERR_NONE;
    return table;
}

}   // namespace

KQStringTable* LoadStringTable(const char* fileName) {
    if (!fileName) return nullptr;
    FileText catalogue = {}, header = {};
    KQStringTable* table = nullptr;
    KQEnv->Error = KQERR_NOMEM;
    char* name = static_cast<char*>(KQ_ALLOC(kHeaderNameSize, 0));
    if (name && ReadText(fileName, &catalogue)) {
        KQEnv->Error = KQERR_BADDATA;
        if (ReadHeader(catalogue.All(), name, &header)) table = BuildTable(catalogue.All(), header.All());
    }
    KQ_FREE(header.bytes);
    KQ_FREE(catalogue.bytes);
    KQ_FREE(name);
    return table;
}

void FreeStringTable(KQStringTable* table) {
    if (!table) return;
    KQ_FREE(table->IDs);
    KQ_FREE(table);
}

namespace kq {

void LoadStringCatalogue() {
    if (char* path = ResourcePath(KQEnv->StringFileName)) KQEnv->Strings = LoadStringTable(path);
}

void FreeStringCatalogue() {
    KQ_FREE(KQEnv->StringIndex);
    KQEnv->StringIndex = nullptr;
    FreeStringTable(KQEnv->Strings);
    KQEnv->Strings = nullptr;
}

}   // namespace kq
