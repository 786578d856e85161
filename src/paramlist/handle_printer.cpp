// SPDX-License-Identifier: MIT
// Readable dumps of a list and its nested lists, for an application's
// diagnostics. The library never calls these itself.
#include <algorithm>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>
#include <unordered_set>

#include "runtime/little_endian.h"
#include "vxbus.h"

namespace {

// One dump's walk. Each nested list is printed at most once per dump: a list
// built by the store refers to each child once, so only a damaged or hostile
// image repeats an id (or refers back up the tree), and printing it again
// could multiply the output without bound. The walk also stops as soon as
// the stream refuses output, as a full destination buffer does.
struct Walk {
  std::ostream& out;
  bool printTypes;
  std::unordered_set<const void*> printed;
};

void PrintList(Walk& walk, HVXPARAMLIST list, std::int32_t depth);

// Keeps at most `limit` characters and then refuses, which sets the stream's
// badbit and so ends the walk.
class BoundedText : public std::streambuf {
 public:
  explicit BoundedText(std::size_t limit) : limit_(limit) {}
  const std::string& Text() const { return text_; }

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    if (text_.size() >= limit_) return traits_type::eof();
    text_.push_back(traits_type::to_char_type(c));
    return c;
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    std::size_t take = std::min(static_cast<std::size_t>(n), limit_ - text_.size());
    text_.append(s, take);
    return static_cast<std::streamsize>(take);
  }

 private:
  std::size_t limit_;
  std::string text_;
};

// Guards only the standard error stream, so that the dumps of two threads do
// not interleave.
std::recursive_mutex& StderrDumpMutex() {
  static std::recursive_mutex mutex;
  return mutex;
}

void Indent(std::ostream& out, std::int32_t depth) {
  for (std::int32_t i = 0; i < depth; ++i)
    out << "  ";
}

const char* TypeLabel(int type) {
  switch (type) {
    case PT_UNKNOWN:
      return "[PT_UNKNOWN]=";
    case PT_STRING:
      return "[PT_STRING]=";
    case PT_INT32:
      return "[PT_INT32]=";
    case PT_INT64:
      return "[PT_INT64]=";
    case PT_PARAMHANDLE:
      return "[PT_PARAMHANDLE]=";
    case PT_BINARY:
      return "[PT_BINARY]=";
    default:
      return "";
  }
}

// Each byte as two lower-case hex digits, padded with the stream's fill. The
// base is left hexadecimal on purpose: callers decide whether to reset it.
// The value may lie at any offset, so it is read as bytes, never through the
// record's struct.
void PrintBytes(std::ostream& out, const void* value) {
  const auto* bytes = static_cast<const unsigned char*>(value);
  const std::uint32_t length = vxbus::Load32(bytes);
  for (std::uint32_t i = 0; i < length && out; ++i) {
    out << std::hex << std::setw(2) << static_cast<unsigned>(bytes[4 + i]);
  }
}

// One line per element, each behind its index in the stream's current base.
void PrintArray(Walk& walk, HVXPARAMLIST list, const VXPARAMVALUE* value, std::int32_t depth) {
  std::ostream& out = walk.out;
  const unsigned char* elements = value->Bytes() + 5;
  const std::uint32_t count = value->Count();
  for (std::uint32_t i = 0; i < count && out; ++i) {
    Indent(out, depth + 1);
    out << "[" << i << "]=";
    switch (value->GetArrayType()) {
      case PT_STRING:
        out << value->GetString(i) << std::endl;
        break;
      case PT_INT32:
        out << value->GetInt32(i) << std::endl;
        break;
      case PT_INT64:
        out << vxbus::Load64(elements + 8 * i) << std::endl;
        break;
      case PT_PARAMHANDLE:
        // The nested list's first record continues the index line.
        PrintList(walk, value->GetHandle(list, i), depth + 2);
        break;
      case PT_BINARY:
        PrintBytes(out, value->GetBinary(i));
        break;
      default:
        break;
    }
    out << std::endl;
  }
}

void PrintValue(Walk& walk, HVXPARAMLIST list, const VXPARAMVALUE* value, std::int32_t depth) {
  std::ostream& out = walk.out;
  const bool printTypes = walk.printTypes;
  const int type = value->GetType();
  const int elementType = type & ~PT_ARRAY;
  if (value->IsArray() && elementType >= PT_STRING && elementType <= PT_BINARY) {
    out << "=ARRAY" << std::endl;
    PrintArray(walk, list, value, depth);
    return;
  }
  const unsigned char* payload = value->Bytes() + 1;
  switch (type) {
    case PT_UNKNOWN:
    case PT_STRING:
    case PT_INT32:
    case PT_INT64:
    case PT_PARAMHANDLE:
    case PT_BINARY:
      out << (printTypes ? TypeLabel(type) : "=");
      break;
    default:
      // A damaged type byte: nothing for the value, and the walk ends there.
      return;
  }
  switch (type) {
    case PT_UNKNOWN:
      out << "?" << std::endl;
      break;
    case PT_STRING:
      out << reinterpret_cast<const char*>(payload) << std::endl;
      break;
    case PT_INT32:
      out << vxbus::Load32(payload) << std::endl;
      break;
    case PT_INT64:
      out << vxbus::Load64(payload) << std::endl;
      break;
    case PT_PARAMHANDLE:
      out << std::endl;
      PrintList(walk, VXGetHandleById(list, vxbus::Load32(payload)), depth + 1);
      break;
    case PT_BINARY:
      PrintBytes(out, payload);
      out << std::dec << std::endl;
      break;
  }
}

void PrintList(Walk& walk, HVXPARAMLIST list, std::int32_t depth) {
  if (list.value == nullptr || !walk.printed.insert(list.value).second) return;
  for (const VXPARAMINFO* info = VXGetFirstParam(list); info != nullptr && walk.out;
       info = VXGetNextParam(list, info)) {
    Indent(walk.out, depth);
    walk.out << info->name;
    PrintValue(walk, list, info->GetValue(), depth);
  }
}

// The same frame for both destinations: head line, records, foot line.
void PrintFramed(std::ostream& out, HVXPARAMLIST list, bool printTypes) {
  out << "=====[" << static_cast<const void*>(list.value) << "]" << std::dec << std::endl;
  PrintHandleInfoRecurse(out, list, printTypes, 0);
  out << "=================================" << std::endl;
}

}  // namespace

void PrintHandleInfoRecurse(std::ostream& out, HVXPARAMLIST list, bool printTypes,
                            std::int32_t depth) {
  Walk walk{out, printTypes, {}};
  PrintList(walk, list, depth);
}

// A damaged list ends the walk early; nothing is thrown, so the mutex is
// always let go.
void PrintHandleInfo(HVXPARAMLIST list, bool printTypes) {
  std::recursive_mutex& mutex = StderrDumpMutex();
  mutex.lock();
  PrintFramed(std::cerr, list, printTypes);
  mutex.unlock();
}

// Cut silently to size - 1 bytes, zero-filled behind a shorter text, and
// always terminated. The walk stops once the text fills the buffer, so a large
// list costs no more than the buffer holds. A zero size or a null destination
// leaves nothing to fill.
void PrintHandleInfoToBuffer(HVXPARAMLIST list, bool printTypes, char* destination,
                             std::uint32_t size) {
  if (destination == nullptr || size == 0) return;
  BoundedText text(size - 1);
  std::ostream out(&text);
  PrintFramed(out, list, printTypes);
  std::strncpy(destination, text.Text().c_str(), size - 1);
  destination[size - 1] = '\0';
}
