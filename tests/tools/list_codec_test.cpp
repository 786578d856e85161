// The parts of vxctl that read input from outside: JSON, the typed argument
// syntax, and list images and streams, which must refuse damage, not crash.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "image_decoder.h"
#include "json.h"
#include "list_bridge.h"
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

TEST(VxctlJson, ReadsEscapesAndRefusesWhatAListCannotHold) {
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

TEST(VxctlTypedValue, IntegersTakeTheNarrowestTypeAndRangesHold) {
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
  List in;
  std::string error;
  Json json;
  ASSERT_TRUE(ParseJson(R"({"a":1,"s":{"t":"x","u":{"v":[1,2]}},"n:list":null,
                            "l":[{"w":"y"},null,{}],"b:hex[]":["00",""],"e:int64":5})",
                        json, error));
  ASSERT_TRUE(ListFromJson(json, 0, in, error)) << error;
  HVXPARAMLIST handle = ToHandle(in);
  const std::string stream = SerializeStream(handle);
  VXCloseHandle(handle);
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
