// SPDX-License-Identifier: MIT
#include "bus_info_table.h"

#include <algorithm>
#include <vector>

#include "list_text.h"
#include "vxbus.h"

namespace vxctl {
namespace {

using Row = std::vector<std::string>;

const Value* Field(const List& list, const char* name, int type) {
  for (const auto& p : list.params)
    if (p.first == name) return p.second.type == type ? &p.second : nullptr;
  return nullptr;
}

// A peer's text as it is when harmless, else quoted.
std::string Shown(const std::string& text) {
  for (unsigned char c : text)
    if (c < 0x20 || c == 0x7f) return QuoteText(text);
  return text.empty() ? "\"\"" : text;
}

std::string Text(const List& list, const char* name) {
  const Value* v = Field(list, name, PT_STRING);
  return v ? Shown(v->bytes) : "?";
}

// An int32 or int64 field, or null.
const Value* Number(const List& list, const char* name) {
  const Value* v = Field(list, name, PT_INT64);
  return v ? v : Field(list, name, PT_INT32);
}

std::string NumberText(const List& list, const char* name) {
  const Value* v = Number(list, name);
  return v ? std::to_string(v->number) : "?";
}

std::string Pair(const List& list, const char* first, const char* second) {
  return NumberText(list, first) + "/" + NumberText(list, second);
}

// Rows with every column but the last padded to its widest cell.
void AppendTable(const std::vector<Row>& rows, const std::string& indent, std::string& out) {
  std::vector<std::size_t> widths;
  for (const Row& row : rows)
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (widths.size() <= i) widths.push_back(0);
      widths[i] = std::max(widths[i], row[i].size());
    }
  for (const Row& row : rows) {
    std::string line = indent;
    for (std::size_t i = 0; i < row.size(); ++i)
      line +=
          i + 1 < row.size() ? row[i] + std::string(widths[i] - row[i].size() + 2, ' ') : row[i];
    out += line + "\n";
  }
}

std::string Slots(const List& info) {
  const Value* slots = Field(info, "slots", PT_ARRAY | PT_INT32);
  if (!slots) return "?";
  std::string out;
  for (std::uint64_t slot : slots->numbers)
    out += (out.empty() ? "" : " ") + std::to_string(slot);
  return out.empty() ? "none" : out;
}

std::string Subscribers(const List& signal) {
  const Value* names = Field(signal, "subscribers", PT_ARRAY | PT_STRING);
  const Value* slots = Field(signal, "slots", PT_ARRAY | PT_INT32);
  if (!names) return "?";
  std::string out;
  for (std::size_t i = 0; i < names->items.size(); ++i) {
    out += (i ? ", " : "") + Shown(names->items[i]);
    if (slots && i < slots->numbers.size())
      out += " (slot " + std::to_string(slots->numbers[i]) + ")";
  }
  return out.empty() ? "none" : out;
}

// The lists of a list[] field, null entries left out.
std::vector<const List*> Lists(const List& info, const char* name) {
  std::vector<const List*> out;
  if (const Value* v = Field(info, name, PT_ARRAY | PT_PARAMHANDLE))
    for (const ListPtr& l : v->lists)
      if (l) out.push_back(l.get());
  return out;
}

// "label" and the value, the values of all such lines in one column.
std::string Line(const std::string& label, const std::string& value) {
  return label + std::string(13 - label.size(), ' ') + value + "\n";
}

}  // namespace

std::string Duration(std::uint64_t ms) {
  if (ms < 1000) return std::to_string(ms) + " ms";
  if (ms < 60000) return std::to_string(ms / 1000) + "." + std::to_string(ms % 1000 / 100) + " s";
  const std::uint64_t s = ms / 1000;
  if (s < 3600) return std::to_string(s / 60) + " min " + std::to_string(s % 60) + " s";
  return std::to_string(s / 3600) + " h " + std::to_string(s % 3600 / 60) + " min";
}

std::string BusInfoTable(const List& info) {
  const std::vector<const List*> signals = Lists(info, "signals");
  const std::vector<const List*> sessions = Lists(info, "sessions");
  std::string out = Line("application", Text(info, "appId")) +
                    Line("version", Text(info, "version")) + Line("slots", Slots(info)) +
                    Line("signals", std::to_string(signals.size()));
  std::vector<Row> rows = {{"NAME", "SUBSCRIBERS"}};
  for (const List* signal : signals)
    rows.push_back({Text(*signal, "name"), Subscribers(*signal)});
  if (!signals.empty()) AppendTable(rows, "  ", out);

  out += Line("sessions", std::to_string(sessions.size()));
  rows = {{"PEER", "CHANNEL", "ADDRESS", "CONNECTED", "FRAMES OUT/IN", "BYTES OUT/IN", "QUEUED",
           "PENDING"}};
  for (const List* s : sessions) {
    const Value* connected = Number(*s, "connectedMs");
    rows.push_back({Text(*s, "appId"), Text(*s, "channel"), Text(*s, "address"),
                    connected ? Duration(connected->number) : "?",
                    Pair(*s, "framesSent", "framesReceived"),
                    Pair(*s, "bytesSent", "bytesReceived"), NumberText(*s, "queuedBytes"),
                    NumberText(*s, "pendingCalls")});
  }
  if (!sessions.empty()) AppendTable(rows, "  ", out);

  std::string counters;
  const Value* c = Field(info, "counters", PT_PARAMHANDLE);
  if (c && c->list)
    for (const auto& p : c->list->params)
      if (p.second.type == PT_INT32 || p.second.type == PT_INT64)
        counters +=
            (counters.empty() ? "" : ", ") + Shown(p.first) + " " + std::to_string(p.second.number);
  if (counters.empty()) counters = c && c->list ? "none" : "?";
  return out + Line("counters", counters);
}

}  // namespace vxctl
