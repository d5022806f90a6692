// Builds module files byte by byte: PE and ELF, 32-bit and 64-bit, around one resource directory.
#pragma once

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "kq/types.h"

namespace kqtest {

using Bytes = std::vector<u8>;

inline void Put16(Bytes& out, size_t at, u32 value) {
    out[at] = u8(value);
    out[at + 1] = u8(value >> 8);
}

inline void Put32(Bytes& out, size_t at, u32 value) {
    Put16(out, at, value);
    Put16(out, at + 2, value >> 16);
}

inline void Put64(Bytes& out, size_t at, u64 value) {
    Put32(out, at, u32(value));
    Put32(out, at + 4, u32(value >> 32));
}

inline void Append(Bytes& out, const void* bytes, size_t count) {
    size_t at = out.size();
    out.resize(at + count);
    if (count) std::memcpy(out.data() + at, bytes, count);
}

// A key of the directory; texts sort in front of numbers.
struct ResourceKey {
    std::string text;   // empty: the number counts
    u32 number = 0;

    ResourceKey(const char* name) : text(name) {}
    ResourceKey(int id) : number(u32(id)) {}

    bool operator<(const ResourceKey& other) const {
        if (text.empty() != other.text.empty()) return other.text.empty();
        return text.empty() ? number < other.number : text < other.text;
    }
};

class ModuleBuilder {
public:
    ModuleBuilder& Add(ResourceKey type, ResourceKey name, int language, Bytes data) {
        resources_[type][name][u32(language)] = std::move(data);
        return *this;
    }

    ModuleBuilder& Add(ResourceKey type, ResourceKey name, const std::string& text) {
        return Add(type, name, 0, Bytes(text.begin(), text.end()));
    }

    // The resource section for data addresses that count from `base`.
    Bytes Section(u32 base) const {
        Directory section;
        size_t types = section.Folder(resources_);
        size_t index = 0;
        for (auto& [type, names] : resources_) {
            size_t nameFolder = section.Folder(names);
            section.Entry(types, index++, type, nameFolder | kHigh);
            size_t nameIndex = 0;
            for (auto& [name, languages] : names) {
                size_t languageFolder = section.Folder(languages);
                section.Entry(nameFolder, nameIndex++, name, languageFolder | kHigh);
                size_t languageIndex = 0;
                for (auto& [language, data] : languages)
                    section.Entry(languageFolder, languageIndex++, int(language), section.Leaf(base, data));
            }
        }
        return section.bytes;
    }

    // A PE file with one section, `.rsrc` at address 0x1000 and file position 0x400.
    Bytes PE(bool wide, u32 address = 0x1000) const {
        Bytes section = Section(address);
        Bytes file(0x400);
        file[0] = 'M';
        file[1] = 'Z';
        Put32(file, 0x3C, 0x80);
        std::memcpy(&file[0x80], "PE\0\0", 4);
        Put16(file, 0x84, wide ? 0x8664 : 0x14C);
        Put16(file, 0x86, 1);
        u32 optionalSize = wide ? 240 : 224;
        Put16(file, 0x94, optionalSize);
        Put16(file, 0x96, 0x2102);
        Put16(file, 0x98, wide ? 0x20B : 0x10B);
        size_t directories = 0x98 + (wide ? 112 : 96);
        Put32(file, directories - 4, 16);
        Put32(file, directories + 16, address);
        Put32(file, directories + 20, u32(section.size()));
        size_t head = 0x98 + optionalSize;
        std::memcpy(&file[head], ".rsrc\0\0", 8);
        Put32(file, head + 8, u32(section.size()));
        Put32(file, head + 12, address);
        Put32(file, head + 16, u32(section.size()));
        Put32(file, head + 20, 0x400);
        Append(file, section.data(), section.size());
        return file;
    }

    // An ELF file with the sections null, names, `.kqrsrc`.
    Bytes Elf(bool wide) const {
        static constexpr char kNames[] = "\0.shstrtab\0.kqrsrc";
        Bytes section = Section(0);
        Bytes file(64);
        std::memcpy(&file[0],
                    "\x7F"
                    "ELF",
                    4);
        file[4] = wide ? 2 : 1;
        file[5] = 1;
        file[6] = 1;
        Put16(file, 16, 3);
        size_t names = file.size();
        Append(file, kNames, sizeof kNames);
        size_t resources = file.size();
        Append(file, section.data(), section.size());
        file.resize((file.size() + 7) / 8 * 8);
        size_t table = file.size(), each = wide ? 64 : 40;
        file.resize(table + 3 * each);
        auto head = [&](size_t index, u32 name, u32 type, size_t at, size_t count) {
            size_t to = table + index * each;
            Put32(file, to, name);
            Put32(file, to + 4, type);
            if (wide) {
                Put64(file, to + 0x18, at);
                Put64(file, to + 0x20, count);
            } else {
                Put32(file, to + 0x10, u32(at));
                Put32(file, to + 0x14, u32(count));
            }
        };
        head(1, 1, 3, names, sizeof kNames);
        head(2, 11, 1, resources, section.size());
        if (wide)
            Put64(file, 0x28, table);
        else
            Put32(file, 0x20, u32(table));
        size_t tail = wide ? 0x3A : 0x2E;
        Put16(file, tail, u32(each));
        Put16(file, tail + 2, 3);
        Put16(file, tail + 4, 1);
        return file;
    }

private:
    static constexpr size_t kHigh = 0x80000000;

    struct Directory {
        Bytes bytes;

        template <class Map>
        size_t Folder(const Map& entries) {
            size_t at = bytes.size(), named = 0;
            for (auto& [key, value] : entries) named += !ResourceKey(AsKey(key)).text.empty();
            bytes.resize(at + 16 + entries.size() * 8);
            Put16(bytes, at + 12, u32(named));
            Put16(bytes, at + 14, u32(entries.size() - named));
            return at;
        }

        static const ResourceKey& AsKey(const ResourceKey& key) { return key; }
        static ResourceKey AsKey(u32 number) { return ResourceKey(int(number)); }

        void Entry(size_t folder, size_t index, const ResourceKey& key, size_t target) {
            u32 word = key.text.empty() ? key.number : u32(Text(key.text) | kHigh);
            Put32(bytes, folder + 16 + index * 8, word);
            Put32(bytes, folder + 20 + index * 8, u32(target));
        }

        size_t Text(const std::string& text) {
            size_t at = bytes.size();
            bytes.resize(at + 2 + text.size() * 2);
            Put16(bytes, at, u32(text.size()));
            for (size_t i = 0; i < text.size(); ++i) Put16(bytes, at + 2 + i * 2, u8(text[i]));
            return at;
        }

        size_t Leaf(u32 base, const Bytes& data) {
            size_t at = bytes.size();
            bytes.resize(at + 16);
            Put32(bytes, at, u32(base + bytes.size()));
            Put32(bytes, at + 4, u32(data.size()));
            Append(bytes, data.data(), data.size());
            return at;
        }
    };

    std::map<ResourceKey, std::map<ResourceKey, std::map<u32, Bytes>>> resources_;
};

}   // namespace kqtest
