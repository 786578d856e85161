// Holds the exported surface of libvxbus.so against vxbus.h, with
// exported_symbols.txt as the list that a reader checks by eye against the
// header. The library's dynamic symbol table is read with nm.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

enum class Linkage { kC, kCData, kCxx };

struct ExpectedSymbol {
  Linkage linkage;
  std::string name;  // plain for C, demangled for C++
  int line;
};

struct LibrarySymbol {
  char type;              // nm's letter: T text, R read-only data, V weak object...
  std::string raw;        // as the dynamic symbol table holds it
  std::string demangled;  // as nm -C prints it
};

std::string ReadFile(const char* path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<ExpectedSymbol> ReadExpected() {
  std::vector<ExpectedSymbol> symbols;
  std::istringstream in(ReadFile(VXBUS_EXPORTS_LIST));
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (line.empty() || line[0] == '#') continue;
    std::size_t space = line.find(' ');
    std::string kind = line.substr(0, space);
    std::string name = space == std::string::npos ? "" : line.substr(space + 1);
    if (kind == "c")
      symbols.push_back({Linkage::kC, name, number});
    else if (kind == "c-data")
      symbols.push_back({Linkage::kCData, name, number});
    else if (kind == "c++")
      symbols.push_back({Linkage::kCxx, name, number});
    else
      ADD_FAILURE() << "exported_symbols.txt:" << number << ": unknown linkage '" << kind << "'";
  }
  return symbols;
}

std::vector<std::string> RunLines(const std::string& command) {
  std::vector<std::string> lines;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return lines;
  std::string current;
  for (int c; (c = std::fgetc(pipe)) != EOF;) {
    if (c == '\n') {
      lines.push_back(current);
      current.clear();
    } else {
      current.push_back(static_cast<char>(c));
    }
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return lines;
}

// Lines of nm: "<address> <type> <name>", where a demangled name may hold spaces.
bool SplitNmLine(const std::string& line, char& type, std::string& name) {
  std::size_t first = line.find(' ');
  if (first == std::string::npos || first + 3 > line.size()) return false;
  type = line[first + 1];
  name = line.substr(first + 3);
  return true;
}

std::vector<LibrarySymbol> ReadLibrary() {
  const std::string base = std::string("'") + VXBUS_NM + "' -D --defined-only ";
  const std::string library = std::string("'") + VXBUS_LIBRARY_PATH + "'";
  std::vector<std::string> raw = RunLines(base + library);
  std::vector<std::string> demangled = RunLines(base + "-C " + library);
  std::vector<LibrarySymbol> symbols;
  if (raw.size() != demangled.size()) {
    ADD_FAILURE() << "nm gave " << raw.size() << " raw and " << demangled.size()
                  << " demangled lines";
    return symbols;
  }
  for (std::size_t i = 0; i < raw.size(); ++i) {
    LibrarySymbol symbol;
    char demangledType = 0;
    if (!SplitNmLine(raw[i], symbol.type, symbol.raw) ||
        !SplitNmLine(demangled[i], demangledType, symbol.demangled) ||
        demangledType != symbol.type) {
      ADD_FAILURE() << "unexpected nm output: '" << raw[i] << "' / '" << demangled[i] << "'";
      continue;
    }
    symbols.push_back(symbol);
  }
  return symbols;
}

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// The classes vxbus.h exports whole: their further members, type info and
// tables may leave the library without a line of their own in the list.
bool BelongsToExportedClass(const std::string& demangled) {
  static const char* const kClasses[] = {"VX::ParamListHolder", "VX::VXApplicationHolder",
                                         "MTObjects::MTReferencedTypeBase", "NoDataExeption",
                                         "_tag_VXPARAMVALUE::DataDamaged"};
  for (const char* c : kClasses) {
    const std::string cls = c;
    if (StartsWith(demangled, cls + "::") || demangled == "typeinfo for " + cls ||
        demangled == "typeinfo name for " + cls || demangled == "vtable for " + cls)
      return true;
  }
  return false;
}

// What a sanitizer build adds for its own bookkeeping of our globals.
bool IsSanitizerGlue(const std::string& raw) {
#if VXBUS_SANITIZER_BUILD
  for (const char* prefix : {"__odr_asan", "__asan", "__tsan", "__ubsan", "__sanitizer"})
    if (StartsWith(raw, prefix)) return true;
#else
  (void)raw;
#endif
  return false;
}

class ExportsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    expected_ = ReadExpected();
    library_ = ReadLibrary();
    ASSERT_FALSE(expected_.empty()) << "cannot read " << VXBUS_EXPORTS_LIST;
    ASSERT_FALSE(library_.empty()) << "nm read no symbols from " << VXBUS_LIBRARY_PATH;
  }

  std::vector<ExpectedSymbol> expected_;
  std::vector<LibrarySymbol> library_;
};

// Every function that vxbus.h marks VXBUS_API is in the list with the linkage
// that its place in the header gives it, and the list names no free function
// that the header lacks. Class members are checked against the library only.
TEST_F(ExportsTest, ListMatchesTheHeaderDeclarations) {
  const std::string header = ReadFile(VXBUS_HEADER);
  ASSERT_FALSE(header.empty());
  const std::size_t cBlockBegin = header.find("extern \"C\" {");
  const std::size_t cBlockEnd = header.find("}  // extern \"C\"");
  ASSERT_NE(cBlockBegin, std::string::npos);
  ASSERT_NE(cBlockEnd, std::string::npos);

  std::map<std::string, Linkage> declared;  // free functions and objects by name
  const std::regex function(R"(VXBUS_API\s+[^;{}()]*?\b(\w+)\s*\()");
  const std::regex object(R"(extern "C" VXBUS_API [^;()]*?\b(\w+)\s*;)");
  for (std::sregex_iterator it(header.begin(), header.end(), function), end; it != end; ++it) {
    const std::size_t at = static_cast<std::size_t>(it->position(0));
    const bool inCBlock = at > cBlockBegin && at < cBlockEnd;
    const bool cLine = at >= 11 && header.compare(at - 11, 11, "extern \"C\" ") == 0;
    if (StartsWith((*it)[1], "__")) continue;  // the definition of the macro itself
    declared[(*it)[1]] = inCBlock || cLine ? Linkage::kC : Linkage::kCxx;
  }
  for (std::sregex_iterator it(header.begin(), header.end(), object), end; it != end; ++it)
    declared[(*it)[1]] = Linkage::kCData;
  ASSERT_GT(declared.size(), 70u) << "the header scan found too few declarations";

  std::map<std::string, Linkage> listed;
  for (const ExpectedSymbol& s : expected_) {
    if (s.linkage != Linkage::kCxx) {
      listed[s.name] = s.linkage;
      continue;
    }
    // A free C++ function: its name runs up to its parameter list, with no scope.
    const std::size_t paren = s.name.find('(');
    const std::string head = s.name.substr(0, paren);
    if (paren != std::string::npos && head.find("::") == std::string::npos &&
        head.find(' ') == std::string::npos)
      listed[head] = Linkage::kCxx;
  }

  for (const auto& d : declared) {
    auto found = listed.find(d.first);
    if (found == listed.end())
      ADD_FAILURE() << d.first << " is exported by vxbus.h but missing from exported_symbols.txt";
    else
      EXPECT_EQ(static_cast<int>(found->second), static_cast<int>(d.second))
          << d.first << " has another linkage in exported_symbols.txt than in vxbus.h";
  }
  for (const auto& l : listed)
    EXPECT_TRUE(declared.count(l.first))
        << l.first << " is in exported_symbols.txt but vxbus.h does not export it";
}

// Each listed name is in the library's dynamic symbol table, defined, with its
// linkage: C names unmangled, C++ names mangled and demangling to the text.
TEST_F(ExportsTest, EveryListedSymbolIsExportedWithItsLinkage) {
  std::map<std::string, const LibrarySymbol*> byRaw;
  std::multimap<std::string, const LibrarySymbol*> byDemangled;
  for (const LibrarySymbol& s : library_) {
    byRaw[s.raw] = &s;
    byDemangled.emplace(s.demangled, &s);
  }
  for (const ExpectedSymbol& e : expected_) {
    SCOPED_TRACE("exported_symbols.txt:" + std::to_string(e.line) + ": " + e.name);
    if (e.linkage == Linkage::kCxx) {
      auto range = byDemangled.equal_range(e.name);
      bool mangled = false;
      for (auto it = range.first; it != range.second; ++it)
        mangled = mangled || StartsWith(it->second->raw, "_Z");
      EXPECT_TRUE(mangled) << "no exported C++ symbol demangles to this name";
      continue;
    }
    auto found = byRaw.find(e.name);
    if (found == byRaw.end()) {
      ADD_FAILURE() << "not exported under its plain name";
      continue;
    }
    const char type = found->second->type;
    if (e.linkage == Linkage::kC)
      EXPECT_EQ(type, 'T') << "a C function should be global text";
    else
      EXPECT_TRUE(type == 'R' || type == 'D' || type == 'B') << "a C object, not '" << type << "'";
  }
}

// Nothing leaves the library but the list and the exported classes: no
// internal name of namespace vxbus, no instance of a standard template.
TEST_F(ExportsTest, NothingInternalIsExported) {
  std::set<std::string> plain, demangled;
  for (const ExpectedSymbol& e : expected_)
    (e.linkage == Linkage::kCxx ? demangled : plain).insert(e.name);
  for (const LibrarySymbol& s : library_) {
    if (plain.count(s.raw) || (StartsWith(s.raw, "_Z") && demangled.count(s.demangled)) ||
        BelongsToExportedClass(s.demangled) || IsSanitizerGlue(s.raw))
      continue;
    // Whichever namespace comes first names the owner: std::thread<vxbus::X>
    // is a standard template, vxbus::F(std::string) one of ours.
    const std::size_t ours = s.demangled.find("vxbus::");
    const std::size_t standard = s.demangled.find("std::");
    std::string why = "not in exported_symbols.txt";
    if (standard < ours)
      why = "an instance of a standard template: keep it local in src/vxbus.map";
    else if (ours != std::string::npos)
      why = "an internal name of namespace vxbus: give it hidden visibility";
    ADD_FAILURE() << "exported: " << s.type << " " << s.demangled << " (" << s.raw << "), " << why;
  }
}

}  // namespace
