// SPDX-License-Identifier: MIT
// A guided tour of parameter lists: build one with every kind of value, read
// it back through the plain functions and through VX::ParamListHolder, and
// print it. Explanations go to standard output, list dumps to standard error.
#include <cinttypes>
#include <cstdint>
#include <cstdio>

#include "vxbus.h"

namespace {

void Say(const char* text) {
  std::printf("%s\n", text);
  std::fflush(stdout);  // keep the story in step with the dumps on stderr
}

// One line of an order, as a nested list.
HVXPARAMLIST NewOrderLine(const char* sku, std::uint32_t quantity) {
  HVXPARAMLIST line = VXCreateParamList();
  VXSetStringValue(line, "sku", sku);
  VXSetInt32Value(line, "quantity", quantity);
  return line;
}

const char* TypeName(int type) {
  switch (type & ~PT_ARRAY) {
    case PT_STRING:
      return "string";
    case PT_INT32:
      return "int32";
    case PT_INT64:
      return "int64";
    case PT_PARAMHANDLE:
      return "list";
    case PT_BINARY:
      return "binary";
    default:
      return "unknown";
  }
}

HVXPARAMLIST BuildOrder() {
  Say("A list is a set of named, typed values. We build an order with one of each kind.");
  HVXPARAMLIST order = VXCreateParamList();  // we own one reference

  VXSetStringValue(order, "customer", "Ada");
  VXSetInt32Value(order, "orderId", 4711);
  VXSetInt64Value(order, "createdAtMs", 1700000000123ull);
  const unsigned char signature[] = {0xDE, 0xAD, 0xBE, 0xEF};
  VXSetBinaryValue(order, "signature", signature, sizeof signature);

  Say("Every kind of value also comes as an array.");
  const char* tags[] = {"express", "gift"};
  VXSetStringArray(order, "tags", 2, tags);
  const std::uint32_t boxes[] = {1, 2, 3};
  VXSetInt32Array(order, "boxSizes", 3, boxes);
  const std::uint64_t scans[] = {1700000001000ull, 1700000002000ull};
  VXSetInt64Array(order, "scanTimesMs", 2, scans);
  const unsigned char photoA[] = {0x01, 0x02};
  const unsigned char photoB[] = {0x0A};
  const _tag_BINARYITEM photos[] = {{sizeof photoA, photoA}, {sizeof photoB, photoB}};
  VXSetBinaryItemArray(order, "photos", 2, photos);

  Say("A value may itself be a list: the parent takes its own reference, so we close ours.");
  HVXPARAMLIST address = VXCreateParamList();
  VXSetStringValue(address, "city", "Springfield");
  VXSetInt32Value(address, "zip", 12345);
  VXSetHandleValue(order, "shipTo", address);
  VXCloseHandle(address);

  HVXPARAMLIST lines[] = {NewOrderLine("PEN-01", 10), NewOrderLine("INK-07", 2)};
  VXSetHandleArray(order, "lines", 2, lines);
  for (HVXPARAMLIST line : lines)
    VXCloseHandle(line);
  return order;
}

void ReadWithFunctions(HVXPARAMLIST order) {
  Say("\nReading back with the plain functions. Pointers point into the list itself:");
  std::printf("  customer = %s, orderId = %u, createdAtMs = %" PRIu64 "\n",
              VXGetStringValue(order, "customer"), VXGetInt32Value(order, "orderId"),
              VXGetInt64Value(order, "createdAtMs"));
  const _tag_BINARYVALUE* signature = VXGetBinaryValue(order, "signature");
  std::printf("  signature has %u bytes, the first is 0x%02X\n", signature->length,
              signature->data[0]);

  const char* tags[4] = {};
  std::uint32_t tagCount = VXGetStringArray(order, "tags", tags, 4, 0);
  std::printf("  %u tags: %s, %s\n", tagCount, tags[0], tags[1]);
  _tag_VXDWORDARRAY boxes = VXGetInt32Array(order, "boxSizes");
  std::printf("  %u box sizes, the last is %u\n", boxes.count, boxes.data[boxes.count - 1]);

  Say("A missing name, or a value of another type, simply reads as 0 or null:");
  std::printf("  orderId read as int64 = %" PRIu64 ", 'nope' as int32 = %u\n",
              VXGetInt64Value(order, "orderId"), VXGetInt32Value(order, "nope"));

  HVXPARAMLIST shipTo = VXGetHandleValue(order, "shipTo");  // a new reference for us
  std::printf("  shipTo.city = %s\n", VXGetStringValue(shipTo, "city"));
  VXCloseHandle(shipTo);

  Say("A handle array gives ids; each id finds the nested list, lent by the parent:");
  _tag_VXDWORDARRAY ids = VXGetHandleArray(order, "lines");
  for (std::uint32_t i = 0; i < ids.count; ++i) {
    HVXPARAMLIST line = VXGetHandleById(order, ids.data[i]);  // borrowed: not closed
    std::printf("  line %u: %u x %s\n", i, VXGetInt32Value(line, "quantity"),
                VXGetStringValue(line, "sku"));
  }
}

void ReadWithHolder(HVXPARAMLIST order) {
  Say("\nVX::ParamListHolder owns a reference and closes it for you. FromHandle adds one,");
  Say("so our own handle stays ours. It also walks the list like a container:");
  VX::ParamListHolder holder = VX::ParamListHolder::FromHandle(order);
  for (auto it = holder.begin(); it != holder.end(); ++it) {
    if (it->IsArray()) {
      std::printf("  %-12s array of %u %s\n", it->name, it->GetArraySize(),
                  TypeName(it->GetType()));
    } else {
      std::printf("  %-12s %s\n", it->name, TypeName(it->GetType()));
    }
  }

  VX::ParamListHolder shipTo = holder.GetHandle("shipTo");
  std::printf("  shipTo.zip = %u (through a holder that owns the nested list)\n",
              shipTo.GetInt32("zip"));
  VX::ParamListHolder lines[2];
  std::uint32_t filled = holder.GetHandleArray("lines", lines, 2, 0);
  std::printf("  %u order lines; the second is %s\n", filled, lines[1].GetString("sku"));

  Say("Setting a name again replaces the value and moves it to the end of the list.");
  holder.SetInt32("orderId", 4712);
  std::printf("  orderId is now %u\n", holder.GetInt32("orderId"));
}

}  // namespace

int main() {
  HVXPARAMLIST order = BuildOrder();
  std::printf("The order holds %u parameters in an image of %u bytes.\n", VXGetParamCount(order),
              VXGetHandleSize(order));

  ReadWithFunctions(order);
  ReadWithHolder(order);

  Say("\nPrintHandleInfo dumps the whole tree to standard error, with types:");
  PrintHandleInfo(order, true);
  Say("Arrays print one element per line behind its index. Mind one habit of the dump: once a");
  Say("binary array has printed bytes, later numbers of the same dump stay in hexadecimal");
  Say("(zip 12345 shows as 3039) until the next plain binary value or the next dump.");

  VXCloseHandle(order);
  std::printf("\nAfter the last close, %u lists are alive: nested lists went with their parent.\n",
              DEBUG_VXObjectCount().paramLists);
  return 0;
}
