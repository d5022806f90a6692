// Fuzzes the string catalogue: the input is the catalogue up to the first zero byte and its header behind that. The
// catalogue names the header in a line that is put in front of it. Every string that loads must be found.
#include <cstdlib>
#include <cstring>
#include <string>

#include "Source/Startup.h"
#include "fuzz/Files.h"
#include "kq/catalogue.h"
#include "kq/environment.h"

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    fuzz::StartLibrary();
    const void* zero = size > 0 ? std::memchr(data, 0, size) : nullptr;
    size_t length = zero ? size_t(static_cast<const u8*>(zero) - data) : size;
    size_t behind = zero ? length + 1 : size;
    std::string header = fuzz::WriteInput("header", data + behind, size - behind);
    for (char& c : header)
        if (c == '\\') c = '/';
    std::string catalogue = "#include \"" + header + "\"\n" + std::string(reinterpret_cast<const char*>(data), length);
    std::string path = fuzz::WriteInput("strings", catalogue.data(), catalogue.size());
    KQEnv->Strings = LoadStringTable(path.c_str());
    kq::IndexStrings();
    if (KQStringTable* table = KQEnv->Strings)
        for (i32 i = 0; i < table->Count; ++i) {
            const char* text = GetStringKQ(table->IDs[i]);
            if (!text || text > table->Text + table->Offsets[i] || table->Offsets[i] % 2) std::abort();
        }
    kq::FreeStringCatalogue();
    fuzz::CheckLeaks();
    return 0;
}
