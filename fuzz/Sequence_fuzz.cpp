// Names and numbers of sequences: any bytes as a name, with a number and a skip in front.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Source/Sequence.h"
#include "fuzz/Files.h"
#include "kq/sequence.h"

namespace {

// Ends the run with the reason: a broken promise is a find like a crash.
void Must(bool kept, const char* promise) {
    if (kept) return;
    std::fprintf(stderr, "broken: %s\n", promise);
    std::abort();
}

i32 Word(const u8* data) { return i32(u32(data[0]) << 24 | u32(data[1]) << 16 | u32(data[2]) << 8 | data[3]); }

bool HasSeparator(const std::string& name) { return name.find_first_of("/\\:") != std::string::npos; }

// A file name turned into its sequence name, and back with its own number, is the name again as far as numbers of 32
// bits go.
void RoundTrip(const std::string& name) {
    std::string sequence = name + std::string(8, '\0');
    if (!FileName_to_SequenceName(sequence.data())) return;
    Must(Is_Sequence(sequence.c_str()), "a sequence name is recognised");
    Must(kq::SameSequence(sequence.c_str(), sequence.c_str()), "a name belongs to itself");
    kq::DigitRun run = kq::FindDigitRun(name.c_str());
    if (HasSeparator(name) || run.length > 9 || name.find('[') != std::string::npos) return;
    Must(Sequence_Digits(sequence.c_str()) == i32(run.length), "a place for each digit");
    Must(SequenceNumber_to_Name(sequence.data(), Name_to_SequenceNumber(name.c_str()), 0), "its number fits");
    Must(std::strcmp(sequence.c_str(), name.c_str()) == 0, "the name comes back");
}

// Looks for the file of a frame below a folder that is not there: nothing is found, and the name stays as it was, in a
// block of exactly its size.
void Validate(const std::string& name, i32 number) {
    std::string path = "kqfuzz-none/" + name;
    char* block = static_cast<char*>(std::malloc(path.size() + 1));
    std::memcpy(block, path.c_str(), path.size() + 1);
    Must(!SequenceNumber_to_Name_Validate(block, number), "no file is found where there is no folder");
    Must(path == block, "a name whose file is not found stays");
    std::free(block);
}

void Scan(const std::string& name) {
    kq::SequenceScan scan("shot[##].tga");
    scan.Add(name.c_str());
    Must(scan.Count() <= 1, "a file counts once");
}

}   // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    if (size < 5 || size > 4000) return 0;
    fuzz::StartLibrary();
    i32 number = Word(data), skip = i32(i8(data[4]));
    std::string text(reinterpret_cast<const char*>(data + 5), size - 5);
    text = text.c_str();
    // Blocks of exactly the size that the calls are promised, so that a byte too many is seen.
    for (i32 left : {0, skip}) {
        char* name = static_cast<char*>(std::malloc(text.size() + 6));
        std::memcpy(name, text.c_str(), text.size() + 1);
        SequenceNumber_to_Name(name, number, left);
        Must(std::strlen(name) <= text.size() + 5, "at most five more bytes");
        std::free(name);
    }
    char* name = static_cast<char*>(std::malloc(text.size() + 3));
    std::memcpy(name, text.c_str(), text.size() + 1);
    FileName_to_SequenceName(name);
    std::free(name);
    Is_Sequence(text.c_str());
    Sequence_Digits(text.c_str());
    Validate(text, number);
    RoundTrip(text);
    Scan(text);
    return 0;
}
