// Walking folders beside readdir with stat, and the resources of a module beside reading its file.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bench/Bench.h"
#include "kq/enumerate.h"
#include "kq/environment.h"
#include "tests/support/Modules.h"

namespace fs = std::filesystem;

namespace {

constexpr int kFiles = 100000;

int CountFile(const char* path, u32, uptr user) {
    bench::Keep(path);
    ++*reinterpret_cast<size_t*>(user);
    return 1;
}

int CountResource(KQResource* resource, uptr user) {
    bench::Keep(resource->Data);
    *reinterpret_cast<size_t*>(user) += resource->Size;
    return 1;
}

void Expect(size_t got, size_t wanted) {
    if (got == wanted) return;
    std::fprintf(stderr, "%zu instead of %zu\n", got, wanted);
    std::exit(1);
}

size_t ReaddirAndStat(const std::string& folder, bool ask) {
    size_t files = 0;
    DIR* directory = opendir(folder.c_str());
    while (dirent* entry = readdir(directory)) {
        struct stat status = {};
        std::string path = folder + entry->d_name;
        if (ask && stat(path.c_str(), &status) != 0) continue;
        bench::Keep(path.c_str());
        files += ask ? S_ISREG(status.st_mode) : entry->d_type == DT_REG;
    }
    closedir(directory);
    return files;
}

void FolderRow(const std::string& folder) {
    char* folders[] = {const_cast<char*>(folder.c_str()), nullptr};
    auto ours = [&] {
        size_t files = 0;
        EnumFilesKQ(folders, nullptr, CountFile, reinterpret_cast<uptr>(&files), 0);
        Expect(files, kFiles);
    };
    bench::Row("EnumFilesKQ over a folder of 100,000 files", kFiles, "call",
               {{"EnumFilesKQ", ours},
                {"readdir and stat", [&] { Expect(ReaddirAndStat(folder, true), kFiles); }},
                {"readdir alone (limit)", [&] { Expect(ReaddirAndStat(folder, false), kFiles); }}},
               {{1, 1 / 1.3}});
}

// The whole file in one read: into memory that the C library keeps warm from run to run, or into fresh pages, as a
// program has them that reads one module.
size_t ReadOnce(const std::string& path, bool fresh) {
    int file = open(path.c_str(), O_RDONLY);
    struct stat status;
    fstat(file, &status);
    size_t size = size_t(status.st_size);
    void* bytes =
        fresh ? mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) : std::malloc(size);
    ssize_t got = read(file, bytes, size);
    bench::Keep(bytes);
    if (fresh)
        munmap(bytes, size);
    else
        std::free(bytes);
    close(file);
    return size_t(got);
}

void ModuleRow(const std::string& folder, const char* work, int resources, size_t bytes) {
    kqtest::ModuleBuilder builder;
    for (int id = 1; id <= resources; ++id) builder.Add("PIPL", id, std::string(bytes, char('a' + id % 26)));
    kqtest::Bytes module = builder.PE(true);
    std::string path = folder + "module.dll";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(module.data()), std::streamsize(module.size()));
    auto ours = [&] {
        size_t sum = 0;
        void* opened = BeginResourceAccessKQ(path.c_str());
        EnumResourceIDKQ(opened, "PiPL", CountResource, reinterpret_cast<uptr>(&sum), nullptr);
        EndResourceAccessKQ(opened);
        Expect(sum, size_t(resources) * bytes);
    };
    bench::Row(work, double(module.size()) / 1e6, "MB",
               {{"BeginResourceAccessKQ to EndResourceAccessKQ", ours},
                {"reading the file once", [&] { Expect(ReadOnce(path, false), module.size()); }},
                {"reading the file once into fresh pages", [&] { Expect(ReadOnce(path, true), module.size()); }}},
               {{1, 1 / 1.2}});
}

}   // namespace

int main() {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    std::string folder = (fs::temp_directory_path() / ("kqbench-" + std::to_string(getpid())) / "").string();
    fs::create_directories(folder + "files");
    for (int i = 0; i < kFiles; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "files/frame%06d.tga", i);
        std::ofstream(folder + name).put('x');
    }
    FolderRow(folder + "files/");
    ModuleRow(folder, "resources of a 10 MB module: 1000 of 10 kB", 1000, 10000);
    ModuleRow(folder, "resources of a 10 MB module: 10 of 1 MB", 10, 1000000);
    ModuleRow(folder, "resources of a 10 MB module: one", 1, 10000000);
    fs::remove_all(folder);
    CleanUpKQ();
}
