// Readable dumps of a list and its nested lists, for an application's
// diagnostics. The library never calls these itself.
#include <cstring>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>

#include "vxbus.h"

namespace {

// Guards only the standard error stream, so that the dumps of two threads do
// not interleave.
std::recursive_mutex& StderrDumpMutex() {
  static std::recursive_mutex mutex;
  return mutex;
}

std::uint64_t LoadU64(const unsigned char* p) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
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
void PrintBytes(std::ostream& out, const _tag_BINARYVALUE* value) {
  for (std::uint32_t i = 0; i < value->length; ++i) {
    out << std::hex << std::setw(2) << static_cast<unsigned>(value->data[i]);
  }
}

// One line per element, each behind its index in the stream's current base.
void PrintArray(std::ostream& out, HVXPARAMLIST list, const _tag_VXPARAMVALUE* value,
                bool printTypes, std::int32_t depth) {
  const unsigned char* elements = value->Bytes() + 5;
  const std::uint32_t count = value->Count();
  for (std::uint32_t i = 0; i < count; ++i) {
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
        out << LoadU64(elements + 8 * i) << std::endl;
        break;
      case PT_PARAMHANDLE:
        // The nested list's first record continues the index line.
        PrintHandleInfoRecurse(out, value->GetHandle(list, i), printTypes, depth + 2);
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

void PrintValue(std::ostream& out, HVXPARAMLIST list, const _tag_VXPARAMVALUE* value,
                bool printTypes, std::int32_t depth) {
  const int type = value->GetType();
  const int elementType = type & ~PT_ARRAY;
  if (value->IsArray() && elementType >= PT_STRING && elementType <= PT_BINARY) {
    out << "=ARRAY" << std::endl;
    PrintArray(out, list, value, printTypes, depth);
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
      // A damaged type byte: nothing for the value; the step to the next
      // record reports the damage.
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
      out << vxbus_detail::LoadU32(payload) << std::endl;
      break;
    case PT_INT64:
      out << LoadU64(payload) << std::endl;
      break;
    case PT_PARAMHANDLE:
      out << std::endl;
      PrintHandleInfoRecurse(out, VXGetHandleById(list, vxbus_detail::LoadU32(payload)), printTypes,
                             depth + 1);
      break;
    case PT_BINARY:
      PrintBytes(out, reinterpret_cast<const _tag_BINARYVALUE*>(payload));
      out << std::dec << std::endl;
      break;
  }
}

// The same frame for both destinations: head line, records, foot line.
void PrintFramed(std::ostream& out, HVXPARAMLIST list, bool printTypes) {
  out << "=====[" << static_cast<const void*>(list.value) << "]" << std::dec << std::endl;
  PrintHandleInfoRecurse(out, list, printTypes, 0);
  out << "=================================" << std::endl;
}

}  // namespace

void PrintHandleInfoRecurse(std::ostream& out, _tag_HVXPARAMLIST list, bool printTypes,
                            std::int32_t depth) {
  if (list.value == nullptr) return;
  for (const _tag_VXPARAMINFO* info = VXGetFirstParam(list); info != nullptr;
       info = VXGetNextParam(list, info)) {
    Indent(out, depth);
    out << info->name;
    PrintValue(out, list, info->GetValue(), printTypes, depth);
  }
}

// A damaged list throws out of the walk with the mutex still held: there is
// no clean-up on that path, and later dumps from other threads then wait.
void PrintHandleInfo(HVXPARAMLIST list, bool printTypes) {
  std::recursive_mutex& mutex = StderrDumpMutex();
  mutex.lock();
  PrintFramed(std::cerr, list, printTypes);
  mutex.unlock();
}

// Cut silently to size - 1 bytes, zero-filled behind a shorter text, and
// always terminated. A zero size or a null destination leaves nothing to fill.
void PrintHandleInfoToBuffer(HVXPARAMLIST list, bool printTypes, char* destination,
                             std::uint32_t size) {
  std::ostringstream out;
  PrintFramed(out, list, printTypes);
  if (destination == nullptr || size == 0) return;
  const std::string text = out.str();
  std::strncpy(destination, text.c_str(), size - 1);
  destination[size - 1] = '\0';
}
