// The library's dynamic symbol table.

#include <gtest/gtest.h>
#include <link.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

/// Names that the shared object at `path` defines for others.
std::set<std::string> exportedNames(const char* path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (bytes.empty())
        return {};
    const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(bytes.data());
    const auto* sections = reinterpret_cast<const ElfW(Shdr)*>(bytes.data() + header->e_shoff);
    std::set<std::string> names;
    for (int i = 0; i < header->e_shnum; ++i) {
        if (sections[i].sh_type != SHT_DYNSYM)
            continue;
        const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(bytes.data() + sections[i].sh_offset);
        const char* text = bytes.data() + sections[sections[i].sh_link].sh_offset;
        for (size_t s = 0; s < sections[i].sh_size / sizeof(ElfW(Sym)); ++s) {
            const unsigned binding = symbols[s].st_info >> 4;
            if (symbols[s].st_shndx != SHN_UNDEF && (binding == STB_GLOBAL || binding == STB_WEAK))
                names.insert(text + symbols[s].st_name);
        }
    }
    return names;
}

TEST(ExportTest, TheLibraryExportsItsOneEntry) {
    EXPECT_EQ(exportedNames(KOV_LIBRARY), std::set<std::string>{"openKovCameraHardware"});
}

}  // namespace
