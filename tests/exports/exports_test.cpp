// SPDX-License-Identifier: MIT
// Holds the library's exported symbols, as the build dumps them next to this
// test, against vxbus.h and exported_symbols.txt, the list a reader can check.
#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string ReadFile(const char* path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

std::string Demangle(const std::string& raw) {
  int status = 0;
  char* text = abi::__cxa_demangle(raw.c_str(), nullptr, nullptr, &status);
  std::string result = status == 0 ? text : raw;
  std::free(text);
  return result;
}

struct LibrarySymbol {
  char type;  // nm's letter: T text, R read-only data, V weak object...
  std::string demangled;
};
using SymbolTable = std::map<std::string, LibrarySymbol>;  // by raw name

// "<address> <type> <name>" lines of `nm -D --defined-only`.
void ReadNmDump(const std::string& dump, SymbolTable* table) {
  std::istringstream lines(dump);
  std::string address, name;
  char type;
  while (lines >> address >> type >> name)
    (*table)[name] = {type, Demangle(name)};
}

// The export table of `objdump -p`: each name's index leads to its address,
// and an address inside the code is a function (T), any other one data (D).
// The list spells the types as on Linux, where std::uint64_t is unsigned
// long; here it is unsigned long long.
void ReadPeDump(const std::string& dump, SymbolTable* table) {
  std::istringstream lines(dump);
  unsigned long long codeBase = 0, codeSize = 0;
  std::map<unsigned, unsigned long long> addresses;  // by index
  std::map<std::string, unsigned> names;
  const std::regex header(R"((BaseOfCode|SizeOfCode)\s+([0-9a-fA-F]+))");
  const std::regex address(R"(\[\s*(\d+)\] \+base\[\s*\d+\] ([0-9a-fA-F]+) Export RVA)");
  const std::regex name(R"(\[\s*(\d+)\] (\S+))");
  bool inNames = false;
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_search(line, match, header)) {
      (match[1] == "BaseOfCode" ? codeBase : codeSize) = std::stoull(match[2], nullptr, 16);
    } else if (std::regex_search(line, match, address)) {
      addresses[std::stoul(match[1])] = std::stoull(match[2], nullptr, 16);
    } else if (line.find("[Ordinal/Name Pointer] Table") != std::string::npos) {
      inNames = true;
    } else if (inNames && std::regex_search(line, match, name)) {
      names[match[2]] = std::stoul(match[1]);
    } else if (inNames && line.empty()) {
      inNames = false;
    }
  }
  const std::regex wide("unsigned long long");
  for (const auto& [raw, index] : names) {
    const unsigned long long at = addresses.at(index);
    const char type = at >= codeBase && at < codeBase + codeSize ? 'T' : 'D';
    (*table)[raw] = {type, std::regex_replace(Demangle(raw), wide, "unsigned long")};
  }
}

class ExportsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::istringstream list(ReadFile(VXBUS_EXPORTS_LIST));
    for (std::string line; std::getline(list, line);) {
      if (line.empty() || line[0] == '#') continue;
      const std::size_t space = line.find(' ');
      ASSERT_NE(space, std::string::npos) << line;
      listed_.emplace(line.substr(space + 1), line.substr(0, space));
    }
    const std::string dump = ReadFile(VXBUS_SYMBOL_DUMP);
    if (std::string(VXBUS_SYMBOL_DUMP_FORMAT) == "pe")
      ReadPeDump(dump, &library_);
    else
      ReadNmDump(dump, &library_);
    ASSERT_GT(library_.size(), 70u) << VXBUS_SYMBOL_DUMP;
  }

  std::map<std::string, std::string> listed_;  // name -> "c", "c-data" or "c++"
  SymbolTable library_;
};

// Every function and object vxbus.h marks VXBUS_API is listed with the linkage
// its place in the header gives it, and the list names no free function the
// header lacks. Class members are checked against the library only.
TEST_F(ExportsTest, ListMatchesTheHeaderDeclarations) {
  const std::string header = ReadFile(VXBUS_HEADER);
  const std::size_t cBegin = header.find("extern \"C\" {");
  const std::size_t cEnd = header.find("}  // extern \"C\"");
  ASSERT_LT(cBegin, cEnd);
  ASSERT_NE(cEnd, std::string::npos);

  std::map<std::string, std::string> declared;
  const std::regex declaration(R"((extern "C" )?VXBUS_API\s+[^;{}()]*?\b(\w+)\s*([(;]))");
  for (std::sregex_iterator it(header.begin(), header.end(), declaration), end; it != end; ++it) {
    const std::size_t at = static_cast<std::size_t>(it->position(0));
    const bool c = (*it)[1].matched || (at > cBegin && at < cEnd);
    if ((*it)[3] == ";")
      declared[(*it)[2]] = "c-data";
    else if (!StartsWith((*it)[2], "__"))  // not the macro's own definition
      declared[(*it)[2]] = c ? "c" : "c++";
  }

  std::map<std::string, std::string> listedFree;
  for (const auto& [name, linkage] : listed_) {
    const std::string head = name.substr(0, name.find('('));
    if (linkage != "c++")
      listedFree[name] = linkage;
    else if (head != name && head.find_first_of(": ") == std::string::npos)
      listedFree[head] = linkage;
  }
  for (const auto& [name, linkage] : declared)
    EXPECT_EQ(listedFree[name], linkage) << name << ": linkage listed vs. declared";
  for (const auto& [name, linkage] : listedFree)
    EXPECT_EQ(declared.count(name), 1u) << name << " (" << linkage << ") is listed, not declared";
}

// Each listed name is defined in the dynamic symbol table with its linkage: C
// names unmangled, C++ names mangled and demangling to the listed text.
TEST_F(ExportsTest, EveryListedSymbolIsExportedWithItsLinkage) {
  std::set<std::string> cxx;
  for (const auto& [raw, symbol] : library_)
    if (StartsWith(raw, "_Z")) cxx.insert(symbol.demangled);
  for (const auto& [name, linkage] : listed_) {
    // MinGW emits type info wherever it is used and compares it by name, so
    // a DLL exports only that of classes with virtual functions.
    if (std::string(VXBUS_SYMBOL_DUMP_FORMAT) == "pe" && StartsWith(name, "typeinfo")) continue;
    if (linkage == "c++") {
      EXPECT_TRUE(cxx.count(name)) << "no exported C++ symbol demangles to " << name;
      continue;
    }
    const auto found = library_.find(name);
    const char type = found == library_.end() ? '-' : found->second.type;  // '-': missing
    EXPECT_NE(std::string(linkage == "c" ? "T" : "RDB").find(type), std::string::npos)
        << name << " (" << linkage << ") has type " << type;
  }
}

// Nothing leaves the library but the list and the further members, type info
// and tables of the classes vxbus.h exports whole: no name of namespace vxbus,
// no instance of a standard template (those stay local in src/vxbus.map).
TEST_F(ExportsTest, NothingInternalIsExported) {
  const std::regex exportedClass(
      R"(((typeinfo|typeinfo name|vtable) for )?(VX::ParamListHolder|VX::VXApplicationHolder|)"
      R"(MTObjects::MTReferencedTypeBase|NoDataExeption|_tag_VXPARAMVALUE::DataDamaged)(::.*)?)");
  for (const auto& [raw, symbol] : library_) {
    const auto found = listed_.find(StartsWith(raw, "_Z") ? symbol.demangled : raw);
    if (found != listed_.end() && (found->second == "c++") == StartsWith(raw, "_Z")) continue;
    if (std::regex_match(symbol.demangled, exportedClass)) continue;
#if VXBUS_SANITIZER_BUILD
    if (std::regex_search(raw, std::regex("^__(odr_asan|asan|tsan|ubsan|sanitizer)"))) continue;
#endif
    ADD_FAILURE() << "exported but not listed: " << symbol.type << " " << symbol.demangled << " ("
                  << raw << ")";
  }
}

}  // namespace
