// Fuzzes the JSON binding with documents parsed by RapidJSON's reader: reading into a tree, writing the
// tree back and printing it with RapidJSON's writer is repeated until the text settles.
//
// A read and a write are not inverses (values are written before containers, empty containers and nulls
// vanish, an object whose first key is empty is written as an array), so the first round may change the
// text, and a round may change it again only where its input still holds what a write does not keep:
// an empty container below the top, or an object whose first key is empty. A text without either must
// come back unchanged, with a tree that Equals the tree of the round before.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "options/json.h"
#include "options/node.h"
#include "options/rapidjson.h"

#include "tree_checks.h"

namespace {

using quorl::fuzz::HasDuplicateHashesInObjects;

using quorl::JsonValue;
using quorl::OptionNode;
using NodeRef = std::shared_ptr<OptionNode>;
using Document = rapidjson::GenericDocument<rapidjson::UTF8<>, quorl::JsonAllocator>;

// Reading, writing, equality and destruction recurse once per level with no limit of their own, so a
// deep enough document exhausts the stack by design; the fuzzer stays well above that depth.
constexpr std::size_t kMaxDepth = 64;

// The fuzzer's own text is parsed with the reader's default flags. The texts that the writer printed are
// parsed with full precision, so that the shortest text of a double reads back as that very double (the
// default parse can be a unit off, and a round would then change the text). RapidJSON 1.1.0's
// full-precision parse itself reads out of bounds and shifts by garbage on some numbers that the writer
// never prints (zero significands with exponents, more digits than 64 bits hold, exponents far outside
// the double range), which is why the fuzzer's texts don't go through it. Both parses are iterative, so
// that parsing doesn't recurse.
constexpr unsigned kInputParseFlags = rapidjson::kParseIterativeFlag;
constexpr unsigned kPrintedParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag;

[[noreturn]] void Fail(const char* what, const std::string& text) {
  std::fprintf(stderr, "json_fuzz: %s\ntext: %s\n", what, text.c_str());
  std::abort();
}

// The depth of the document, or a depth beyond the limit when it holds a number that isn't finite:
// RapidJSON's reader turns a number beyond the double range into an infinity, which its writer then
// refuses to print, so such documents are left out.
std::size_t Depth(const JsonValue& root) {
  std::size_t deepest = 0;
  std::vector<std::pair<const JsonValue*, std::size_t>> pending{{&root, 1}};
  while (!pending.empty()) {
    const auto [value, depth] = pending.back();
    pending.pop_back();
    deepest = std::max(deepest, depth);
    if (value->IsDouble() && !std::isfinite(value->GetDouble())) return kMaxDepth + 1;
    if (value->IsObject()) {
      for (auto m = value->MemberBegin(); m != value->MemberEnd(); ++m)
        pending.emplace_back(&m->value, depth + 1);
    } else if (value->IsArray()) {
      for (const JsonValue& element : value->GetArray())
        pending.emplace_back(&element, depth + 1);
    }
  }
  return deepest;
}

// Whether a read and a write would change this document (see the top of the file).
bool Unsettled(const JsonValue& root) {
  std::vector<std::pair<const JsonValue*, bool>> pending{{&root, true}};
  while (!pending.empty()) {
    const auto [value, top] = pending.back();
    pending.pop_back();
    if (value->IsObject()) {
      if (value->MemberCount() == 0) {
        if (!top) return true;
        continue;
      }
      // Keys are read up to their first NUL.
      if (value->MemberBegin()->name.GetString()[0] == '\0') return true;
      for (auto m = value->MemberBegin(); m != value->MemberEnd(); ++m)
        pending.emplace_back(&m->value, false);
    } else if (value->IsArray()) {
      if (value->Size() == 0 && !top) return true;
      for (const JsonValue& element : value->GetArray())
        pending.emplace_back(&element, false);
    }
  }
  return false;
}

// What ReadJson gives for a value: false for a null and an empty container, a container's last entry's
// result otherwise; every number that the reader makes fits one of the value types.
bool ExpectedReadResult(const JsonValue* value) {
  while (true) {
    if (value->IsNull()) return false;
    if (value->IsObject()) {
      if (value->MemberCount() == 0) return false;
      value = &(value->MemberEnd() - 1)->value;
    } else if (value->IsArray()) {
      if (value->Size() == 0) return false;
      value = &(*value)[value->Size() - 1];
    } else {
      return true;
    }
  }
}

struct Round {
  bool parsed = false;
  bool unsettled = false;
  NodeRef tree;
  std::string output;
};

// Parses `text`, reads it into a new tree, writes the tree into a new DOM and prints that.
Round RunRound(const std::string& text, bool printed) {
  Round round;
  Document input;
  if (printed) {
    input.Parse<kPrintedParseFlags>(text.data(), text.size());
  } else {
    input.Parse<kInputParseFlags>(text.data(), text.size());
  }
  if (input.HasParseError() || Depth(input) > kMaxDepth) return round;
  round.parsed = true;
  round.unsettled = Unsettled(input);

  round.tree = std::make_shared<OptionNode>();
  if (quorl::ReadJson(round.tree, input) != ExpectedReadResult(&input)) Fail("ReadJson's result", text);

  // The top level takes the tree's shape; a root without children keeps the kind of the document, so
  // that "[]" stays "[]".
  const bool asArray = round.tree->IsArray() || (!round.tree->IsObject() && input.IsArray());
  Document output(asArray ? rapidjson::kArrayType : rapidjson::kObjectType);
  const bool wrote = quorl::WriteJson(round.tree, output, output.GetAllocator());
  bool expectWrote = false;
  for (const NodeRef& child : round.tree->GetChildren())
    expectWrote = expectWrote || !child->GetValue().IsEmpty() || !child->GetChildren().empty();
  if (wrote != expectWrote) Fail("WriteJson's result", text);

  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  if (!output.Accept(writer)) Fail("the written DOM could not be printed", text);
  round.output.assign(buffer.GetString(), buffer.GetSize());
  return round;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const Round first = RunRound(text, false);
  if (!first.parsed) return 0;
  // Each further round removes one level of nested empty containers or turns objects into arrays, so
  // the text settles within a number of rounds bounded by the depth.
  std::string current = first.output;
  for (std::size_t rounds = 0;; ++rounds) {
    if (rounds > 2 * kMaxDepth + 4) Fail("the text does not settle", current);
    const Round round = RunRound(current, true);
    if (!round.parsed) Fail("the printed text does not parse", current);
    if (!round.unsettled) {
      if (round.output != current) Fail("a settled text changed in a round", current);
      const Round again = RunRound(round.output, true);
      if (!HasDuplicateHashesInObjects(*round.tree) &&
          (!round.tree->Equals(again.tree) || !again.tree->Equals(round.tree))) {
        Fail("the trees of two rounds of a settled text are not Equals", current);
      }
      return 0;
    }
    current = round.output;
  }
}
