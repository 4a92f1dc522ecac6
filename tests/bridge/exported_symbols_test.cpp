// Reads the dynamic symbol table of the built libQuorlBridge.so straight from its ELF file and checks
// that it defines exactly the 35 exported functions and no other function.
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

// The one list of the exported names, shared with the engine-host simulator.
#include "../../tools/host/export_names.h"

namespace {

std::set<std::string> DefinedDynamicFunctions(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> image((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  EXPECT_GT(image.size(), sizeof(Elf64_Ehdr)) << "cannot read " << path;
  if (image.size() <= sizeof(Elf64_Ehdr)) return {};

  Elf64_Ehdr header;
  std::memcpy(&header, image.data(), sizeof header);
  EXPECT_EQ(std::memcmp(header.e_ident, ELFMAG, SELFMAG), 0);
  EXPECT_EQ(header.e_ident[EI_CLASS], ELFCLASS64);

  auto section = [&](std::size_t index) {
    Elf64_Shdr s;
    std::memcpy(&s, image.data() + header.e_shoff + index * header.e_shentsize, sizeof s);
    return s;
  };
  std::set<std::string> functions;
  for (std::size_t i = 0; i < header.e_shnum; ++i) {
    const Elf64_Shdr symbols = section(i);
    if (symbols.sh_type != SHT_DYNSYM) continue;
    const Elf64_Shdr names = section(symbols.sh_link);
    for (std::size_t offset = 0; offset + sizeof(Elf64_Sym) <= symbols.sh_size; offset += sizeof(Elf64_Sym)) {
      Elf64_Sym symbol;
      std::memcpy(&symbol, image.data() + symbols.sh_offset + offset, sizeof symbol);
      if (symbol.st_shndx == SHN_UNDEF || ELF64_ST_TYPE(symbol.st_info) != STT_FUNC) continue;
      functions.insert(image.data() + names.sh_offset + symbol.st_name);
    }
  }
  return functions;
}

TEST(ExportedSymbols, TheLibraryDefinesExactlyTheThirtyFiveExports) {
  const std::set<std::string> expected{
#define QUORL_EXPECTED_EXPORT(name) #name,
      QUORL_HOST_FOR_EACH_EXPORT(QUORL_EXPECTED_EXPORT)
#undef QUORL_EXPECTED_EXPORT
  };
  ASSERT_EQ(expected.size(), 35u);
  const std::set<std::string> defined = DefinedDynamicFunctions(QUORL_SHARED_LIBRARY_PATH);
  std::vector<std::string> missing;
  std::vector<std::string> extra;
  std::set_difference(expected.begin(), expected.end(), defined.begin(), defined.end(),
                      std::back_inserter(missing));
  std::set_difference(defined.begin(), defined.end(), expected.begin(), expected.end(),
                      std::back_inserter(extra));
  EXPECT_TRUE(missing.empty()) << "missing: " << ::testing::PrintToString(missing);
  EXPECT_TRUE(extra.empty()) << "not ours to export: " << ::testing::PrintToString(extra);
}

}  // namespace
