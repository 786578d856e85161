// SPDX-License-Identifier: MIT
// The parts of vxctl that read input from outside: JSON, the typed argument
// syntax, and list images and streams, which must refuse damage, not crash.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "bus_info_table.h"
#include "image_decoder.h"
#include "json.h"
#include "list_bridge.h"
#include "list_text.h"
#include "stream_file.h"
#include "typed_value.h"

namespace vxctl {
namespace {

std::string Error(const std::string& json) {
  Json out;
  std::string error;
  EXPECT_FALSE(ParseJson(json, out, error)) << json;
  return error;
}

List FromJsonText(const char* text) {
  Json json;
  List list;
  std::string error;
  EXPECT_TRUE(ParseJson(text, json, error) && ListFromJson(json, 0, list, error)) << error;
  return list;
}

TEST(VxctlJson, AcceptsExactlyWhatAListCanHold) {
  Json j;
  std::string error;
  ASSERT_TRUE(ParseJson(
      R"( {"a\n\u00e9\ud83d\ude00":[-9223372036854775808,18446744073709551615]} )", j, error))
      << error;
  ASSERT_EQ(j.members.size(), 1u);
  EXPECT_EQ(j.members[0].first, "a\n\xc3\xa9\xf0\x9f\x98\x80");
  EXPECT_TRUE(j.members[0].second.items[0].negative);
  EXPECT_EQ(j.members[0].second.items[1].magnitude, UINT64_MAX);

  EXPECT_EQ(Error("18446744073709551616"), "JSON at byte 19: integer out of range");
  EXPECT_EQ(Error("1.5"), "JSON at byte 1: only integers can go into a list");
  EXPECT_EQ(Error(R"("\u0000")"), "JSON at byte 7: a NUL cannot go into a list's text");
  EXPECT_EQ(Error(R"("\ud83d")"), "JSON at byte 7: a lone surrogate in a \\u escape");
  EXPECT_EQ(Error("[1,]"), "JSON at byte 3: not a JSON value");
  EXPECT_EQ(Error("{} {}"), "JSON at byte 3: unexpected text after the value");
  EXPECT_EQ(Error("\"a\tb\""), "JSON at byte 3: a control byte in a string");
  EXPECT_EQ(JsonQuote("q\"\\\x01"), "\"q\\\"\\\\\\u0001\"");
}

// The bound that keeps a document of a few megabytes from taking gigabytes.
TEST(VxctlJson, ValuesAreCountedAtEveryDepthUpToTheBound) {
  std::string array = "[";
  for (std::size_t i = 0; i < kMaxJsonValues; ++i)
    array += i ? ",0" : "0";
  Json j;
  std::string error;
  ASSERT_TRUE(ParseJson(array + "]", j, error)) << error;
  EXPECT_EQ(j.items.size(), kMaxJsonValues);
  EXPECT_EQ(Error(array + ",0]"),
            "JSON at byte " + std::to_string(array.size() + 1) + ": more than 1048576 values");
  // A member counts as well: one member and one element fewer is the bound.
  const std::string shorter = array.substr(0, array.size() - 2);
  ASSERT_TRUE(ParseJson("{\"a\":" + shorter + "]}", j, error)) << error;
  EXPECT_NE(Error("{\"a\":" + array + "]}").find("more than 1048576 values"), std::string::npos);
}

// Setting a name again moves it to the end, also for names already in the
// list, however many members an object has.
TEST(VxctlJson, MembersSetAgainMoveToTheEnd) {
  List list;
  list.Set("b", Value());
  list.Set("c", Value());
  Json j;
  std::string error;
  ASSERT_TRUE(ParseJson(R"({"a":1,"b":2,"a":3})", j, error)) << error;
  ASSERT_TRUE(ListFromJson(j, 0, list, error)) << error;
  ASSERT_EQ(list.params.size(), 3u);
  EXPECT_EQ(list.params[0].first + list.params[1].first + list.params[2].first, "cba");
  EXPECT_EQ(list.params[1].second.number + list.params[2].second.number, 5u);
}

TEST(VxctlTypedValue, ArgumentsTakeTheirTypeFromTheKeyOrTheValue) {
  struct Case {
    const char* argument;
    int type;
    std::uint64_t number;
  } cases[] = {
      {"0", PT_INT32, 0},
      {"-2147483648", PT_INT32, 0x80000000u},
      {"4294967295", PT_INT32, 0xFFFFFFFFu},
      {"4294967296", PT_INT64, 0x100000000ull},
      {"-2147483649", PT_INT64, 0xFFFFFFFF7FFFFFFFull},
      {"12a", PT_STRING, 0},
      {"-", PT_STRING, 0},
  };
  for (const Case& c : cases) {
    Value v;
    std::string error;
    ASSERT_TRUE(ValueFromText(SplitKey("n"), c.argument, v, error)) << c.argument << error;
    EXPECT_EQ(v.type, c.type) << c.argument;
    EXPECT_EQ(v.number, c.number) << c.argument;
  }
  Value v;
  std::string error;
  EXPECT_FALSE(ValueFromText(SplitKey("n:int32"), "-2147483649", v, error));
  EXPECT_EQ(error, "out of range for a 32-bit integer");
  EXPECT_FALSE(ValueFromText(SplitKey("n:hex"), "0g", v, error));
  EXPECT_EQ(error, "'0g' is not a hex byte");
  // A ':' that does not start a type stays part of the name.
  EXPECT_EQ(SplitKey("a:b").name, "a:b");
  EXPECT_EQ(SplitKey("a:b:int64[]").name, "a:b");
  EXPECT_TRUE(SplitKey("a:b:int64[]").array);
  // From outside, a ':' must start a type: a mistyped one is never a name.
  TypedKey key;
  for (const char* typo : {"id:int33", "a:b", "x:json[]", "x:"}) {
    EXPECT_FALSE(SplitTypedKey(typo, key, error)) << typo;
    EXPECT_EQ(error.rfind("unknown type '" + std::string(std::strchr(typo, ':') + 1) + "'", 0), 0u)
        << error;
  }
  ASSERT_TRUE(SplitTypedKey("a:b:int64[]", key, error));
  EXPECT_EQ(key.name, "a:b");
  List list;
  Json json;
  ASSERT_TRUE(ParseJson(R"({"id:int33":5})", json, error));
  EXPECT_FALSE(ListFromJson(json, 0, list, error));
}

// The library's printer shows 0x0a as " a" and leaves the stream in hex
// after a binary array; vxctl's own form must do neither.
TEST(VxctlListText, PrintsEachTypeInItsOwnForm) {
  const List list = FromJsonText(R"({"raw:hex":"000102ff0a","blobs:hex[]":["0a",""],"n":255,
      "big:int64":1099511627776,"empty:hex":"","s":"a\"\u001b[2J\u007f",
      "sub":{"t":"x","m":[16],"l":[{"a":10},null]},"none:list":null,"noWords:string[]":[],
      "odd name\n":1})");
  EXPECT_EQ(ListToText(list),
            "raw:hex = 000102ff0a\n"
            "blobs:hex[] (2)\n"
            "  [0] = 0a\n"
            "  [1] =\n"
            "n:int32 = 255\n"
            "big:int64 = 1099511627776\n"
            "empty:hex =\n"
            "s:string = \"a\\\"\\u001b[2J\\u007f\"\n"
            "sub:list\n"
            "  t:string = \"x\"\n"
            "  m:int32[] (1)\n"
            "    [0] = 16\n"
            "  l:list[] (2)\n"
            "    [0]\n"
            "      a:int32 = 10\n"
            "    [1] = null\n"
            "none:list = null\n"
            "noWords:string[] (0)\n"
            "\"odd name\\n\":int32 = 1\n");
  EXPECT_EQ(ListToText(List()), "");
}

// What a peer answers as its bus info is read field by field: a field that
// is missing or of another type shows as "?", and a peer's text cannot
// steer the terminal.
TEST(VxctlBusInfoTable, ShowsWhatItCanReadOfAnAnswer) {
  const List info = FromJsonText(R"({"appId":"h:1/shop","version":"0.1.0",
      "slots":[1,65535,4294967295],
      "signals":[{"name":"shipped","subscribers":["h:0/a","h:0/b"],"slots":[1000,7]}],
      "sessions":[{"appId":"h:0/a","channel":"tcp","address":"127.0.0.1:5",
                   "connectedMs:int64":61500,"framesSent:int64":3,"framesReceived:int64":4,
                   "bytesSent:int64":48,"bytesReceived:int64":64,"queuedBytes:int64":0,
                   "pendingCalls":1}],
      "counters":{"applications":1,"paramLists":4}})");
  EXPECT_EQ(
      BusInfoTable(info),
      "application  h:1/shop\n"
      "version      0.1.0\n"
      "slots        1 65535 4294967295\n"
      "signals      1\n"
      "  NAME     SUBSCRIBERS\n"
      "  shipped  h:0/a (slot 1000), h:0/b (slot 7)\n"
      "sessions     1\n"
      "  PEER   CHANNEL  ADDRESS      CONNECTED  FRAMES OUT/IN  BYTES OUT/IN  QUEUED  PENDING\n"
      "  h:0/a  tcp      127.0.0.1:5  1 min 1 s  3/4            48/64         0       1\n"
      "counters     applications 1, paramLists 4\n");
  const List hostile = FromJsonText(R"({"appId":"\u001b]0;owned\u0007","slots":"no",
      "sessions":[{"appId":7},null],"counters:list":null})");
  EXPECT_EQ(BusInfoTable(hostile),
            "application  \"\\u001b]0;owned\\u0007\"\n"
            "version      ?\n"
            "slots        ?\n"
            "signals      0\n"
            "sessions     1\n"
            "  PEER  CHANNEL  ADDRESS  CONNECTED  FRAMES OUT/IN  BYTES OUT/IN  QUEUED  PENDING\n"
            "  ?     ?        ?        ?          ?/?            ?/?           ?       ?\n"
            "counters     ?\n");
  EXPECT_EQ(Duration(999), "999 ms");
  EXPECT_EQ(Duration(59999), "59.9 s");
  EXPECT_EQ(Duration(7500000), "2 h 5 min");
}

// Image bytes: the records of one list, as a list holds them.
std::string Bytes(std::initializer_list<int> bytes) {
  std::string s;
  for (int b : bytes)
    s += static_cast<char>(b);
  return s;
}

bool Decode(const std::string& image, std::string& error) {
  List list;
  ChildResolver none = [](std::uint32_t, std::string&) -> ListPtr { return nullptr; };
  return DecodeImage(reinterpret_cast<const unsigned char*>(image.data()), image.size(), none, list,
                     error);
}

TEST(VxctlImageDecoder, RefusesEveryValueThatRunsPastTheImage) {
  const std::string header = Bytes({3, 'v', 0});
  const char* past = "its value runs past the image";
  struct Case {
    const char* what;
    std::string value;  // from the type byte on
    const char* reason;
  } cases[] = {
      {"string without NUL", Bytes({PT_STRING, 'a', 'b', 'c'}), past},
      {"int64 cut short", Bytes({PT_INT64, 1, 2, 3, 4}), past},
      {"binary longer than the image", Bytes({PT_BINARY, 9, 0, 0, 0, 1, 2, 3, 4}), past},
      {"int32 array of 2^30 items", Bytes({0x82, 0, 0, 0, 0x40}), past},
      {"string array offset beyond", Bytes({0x81, 1, 0, 0, 0, 0xF0, 0, 0, 0, 'a', 0, 0, 0}), past},
      {"binary array item too long", Bytes({0x85, 1, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0, 0, 1}), past},
      {"type 0x86", Bytes({0x86, 0, 0, 0, 0}), "unknown type byte 134"},
      {"type 0", Bytes({0, 0, 0, 0, 0}), "unknown type byte 0"},
  };
  for (const Case& c : cases) {
    std::string error;
    EXPECT_FALSE(Decode(header + c.value, error)) << c.what;
    EXPECT_EQ(error, std::string("record at byte 0 ('v'): ") + c.reason) << c.what;
  }
  std::string error;
  EXPECT_FALSE(Decode(Bytes({200, 'v', 0, 0}), error));
  EXPECT_EQ(error, "record at byte 0: its header runs past the image");
  EXPECT_FALSE(Decode(Bytes({3, 'v', 'w', PT_INT32, 0, 0, 0, 0}), error));  // no NUL after the name
}

// That a whole stream reads back as the same list, vxctl's dump of a saved
// reply shows; here, that no cut of one is taken for a list.
TEST(VxctlStreamFile, EveryCutOfASavedStreamIsRefused) {
  HVXPARAMLIST handle = ToHandle(FromJsonText(R"({"a":1,"s":{"t":"x","u":{"v":[1,2]}},
      "n:list":null,"l":[{"w":"y"},null,{}],"b:hex[]":["00",""],"e:int64":5})"));
  const std::string stream = SerializeStream(handle);
  VXCloseHandle(handle);
  std::string error;
  ASSERT_TRUE(ParseStream(stream, error)) << error;
  for (std::size_t cut = 0; cut < stream.size(); ++cut)
    EXPECT_FALSE(ParseStream(stream.substr(0, cut), error)) << cut;
}

TEST(VxctlStreamFile, AListThatHoldsItselfIsRefusedNotFollowed) {
  HVXPARAMLIST loop = VXCreateParamList();
  VXSetHandleValue(loop, "self", loop);
  std::string error;
  EXPECT_FALSE(FromHandle(loop, error));
  EXPECT_EQ(error, "lists nested deeper than 64");
  EXPECT_FALSE(ParseStream(SerializeStream(loop), error));
  VXRemoveValue(loop, "self");  // breaks the cycle, so that the list can go
  VXCloseHandle(loop);
}

}  // namespace
}  // namespace vxctl
