// SPDX-License-Identifier: Apache-2.0
//
// See exports.h.
#include "tests/faults/exports.h"

#include <cstddef>
#include <cstring>
#include <elf.h>
#include <fstream>
#include <iterator>
#include <vector>

namespace faults {

std::set<std::string> exported_functions(const char *library) {
    std::ifstream file(library, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    const auto at = [&bytes]<typename value_t>(size_t offset, value_t value) {
        memcpy(&value, bytes.data() + offset, sizeof(value));
        return value;
    };
    std::set<std::string> names;
    if (bytes.size() < sizeof(Elf64_Ehdr))
        return names;
    const auto header = at(0, Elf64_Ehdr{});
    const auto section = [&](size_t number) {
        return at(header.e_shoff + number * sizeof(Elf64_Shdr), Elf64_Shdr{});
    };
    for (size_t number = 0; number < header.e_shnum; number++) {
        const Elf64_Shdr symbols = section(number);
        if (symbols.sh_type != SHT_DYNSYM)
            continue;
        const Elf64_Shdr texts = section(symbols.sh_link);
        for (size_t offset = 0; offset < symbols.sh_size; offset += sizeof(Elf64_Sym)) {
            const auto symbol = at(symbols.sh_offset + offset, Elf64_Sym{});
            if (symbol.st_shndx != SHN_UNDEF && ELF64_ST_TYPE(symbol.st_info) == STT_FUNC)
                names.insert(bytes.data() + texts.sh_offset + symbol.st_name);
        }
    }
    return names;
}

} // namespace faults
