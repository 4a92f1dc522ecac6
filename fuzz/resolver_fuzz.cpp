// Fuzzes the configuration resolver: fuzzed JSON documents, read into a configuration, are validated
// against a fixed schema with conditions, completed with defaults, completed again and validated again.
//
// Checked: Validate gives false exactly when it logged something, and logs only its two messages;
// ApplyDefaults only appends nodes and touches no existing one; a second ApplyDefaults changes nothing;
// and no node that ApplyDefaults added is reported as unknown by the Validate that follows.
//
// The schema keeps the fuzzer away from what is specified to end the process or to recurse without end:
// - no option is of HashedNameType, whose fromText raises the trap signal by design, and a document can
//   give any option a value of another type, which Validate then converts through fromText;
// - every option has a default, since an option with an empty default has no type for Validate to
//   convert a document's value to;
// - the root group carries no condition, since a comparison needs the group above the record that it is
//   evaluated for, and the root has none;
// - no condition depends on itself through other options, which evaluation would follow without end.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/logger.h"
#include "options/condition.h"
#include "options/json.h"
#include "options/rapidjson.h"
#include "options/resolver.h"
#include "options/schema.h"

#include "tree_checks.h"

namespace {

using quorl::fuzz::HasDuplicateHashesInObjects;

using namespace quorl;  // NOLINT(google-build-using-namespace): a fuzz program of the options layer
using GroupRef = std::shared_ptr<OptionGroup>;
using NodeRef = std::shared_ptr<OptionNode>;
using Document = rapidjson::GenericDocument<rapidjson::UTF8<>, JsonAllocator>;

// Reading, copying, walking and destruction recurse once per level with no limit of their own.
constexpr std::size_t kMaxDepth = 32;

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "resolver_fuzz: %s\n", what);
  std::abort();
}

template <class T>
OptionValue Of(const typename T::Payload& value) {
  return OptionValue::Of<T>(value);
}

DescriptorRef Declare(const GroupRef& group, const char* name, const OptionValue& value,
                      ConditionRef condition = nullptr) {
  return group->AddOption(
      std::make_shared<OptionDescriptor>(group, name, 0, value, "", std::move(condition)));
}

// A player's settings. Conditions read options of their own group, of the root and of groups above, and
// chain (frames depends on hdr, which depends on codec and level); a root option shares its name with a
// group, so that one node can match both.
GroupRef BuildSchema() {
  auto root = std::make_shared<OptionGroup>();
  const DescriptorRef enabled = Declare(root, "enabled", Of<BoolType>(1));
  const DescriptorRef mode = Declare(root, "mode", Of<StringType>("auto"));
  const DescriptorRef level = Declare(root, "level", Of<Int32Type>(3));
  Declare(root, "video", Of<Int32Type>(0));

  const GroupRef video = root->AddGroup("video", MakeEqual(enabled, Of<BoolType>(1)));
  const DescriptorRef fps = Declare(video, "fps", Of<Int32Type>(30));
  Declare(video, "scale", Of<FloatType>(1.0f));
  const DescriptorRef codec = Declare(video, "codec", Of<StringType>("h264"));
  Declare(video, "bitrate", Of<UInt32Type>(5000000u), MakeGreaterEqual(fps, Of<Int32Type>(24)));
  const DescriptorRef hdr =
      Declare(video, "hdr", Of<BoolType>(0),
              MakeOr(MakeContains(codec, Of<StringType>("265")), MakeGreater(level, Of<Int32Type>(5))));
  Declare(video, "frames", Of<Int64Type>(0), MakeNot(MakeEqual(hdr, Of<BoolType>(1))));

  const GroupRef advanced = video->AddGroup(
      "advanced", MakeAnd(MakeNotEqual(mode, Of<StringType>("simple")), MakeGreater(fps, Of<Int32Type>(0))));
  const DescriptorRef gain = Declare(advanced, "gain", Of<DoubleType>(0.5));
  const DescriptorRef big =
      Declare(advanced, "big", Of<UInt64Type>(uint64_t{1} << 40), MakeLessEqual(gain, Of<DoubleType>(1.0)));
  Declare(advanced, "label", Of<StringType>(""), MakeContains(mode, Of<StringType>("")));
  const GroupRef deeper = advanced->AddGroup("deeper", MakeLess(big, Of<UInt64Type>(uint64_t{1} << 50)));
  Declare(deeper, "tag", Of<Int32Type>(7));

  const GroupRef audio = root->AddGroup("audio");
  const DescriptorRef volume = Declare(audio, "volume", Of<DoubleType>(1.0));
  const DescriptorRef muted = Declare(
      audio, "muted", Of<BoolType>(0),
      MakeOr(MakeLessEqual(volume, Of<DoubleType>(0.0)), MakeNot(MakeEqual(enabled, Of<BoolType>(1)))));
  Declare(audio, "channels", Of<Int32Type>(2), MakeNot(MakeEqual(muted, Of<BoolType>(1))));
  return root;
}

// Lines delivered by the logger during one input; cleared before each call that is checked.
std::vector<std::string>& Lines() {
  static std::vector<std::string> lines;
  return lines;
}

std::size_t Depth(const JsonValue& value) {
  std::size_t deepest = 0;
  if (value.IsObject()) {
    for (auto m = value.MemberBegin(); m != value.MemberEnd(); ++m)
      deepest = std::max(deepest, Depth(m->value));
  } else if (value.IsArray()) {
    for (const JsonValue& element : value.GetArray())
      deepest = std::max(deepest, Depth(element));
  }
  return deepest + 1;
}

bool HasKeyWithDot(const JsonValue& value) {
  if (value.IsObject()) {
    for (auto m = value.MemberBegin(); m != value.MemberEnd(); ++m) {
      if (std::string(m->name.GetString()).find('.') != std::string::npos || HasKeyWithDot(m->value))
        return true;
    }
  } else if (value.IsArray()) {
    for (const JsonValue& element : value.GetArray()) {
      if (HasKeyWithDot(element)) return true;
    }
  }
  return false;
}

bool SameValue(const OptionValue& a, const OptionValue& b) {
  if (a.TypeId() != b.TypeId()) return false;
  return a.IsEmpty() || a.GetTable()->compare(a.GetPayload(), b.GetPayload()) == 0;
}

void AddSubtree(const NodeRef& node, std::vector<NodeRef>& out) {
  out.push_back(node);
  for (const NodeRef& child : node->GetChildren())
    AddSubtree(child, out);
}

// True when `now` holds `before` unchanged, position by position, with possibly more children appended
// at any level; the appended ones go to `added`. With `exact`, nothing may have been appended.
bool KeepsTree(const OptionNode& before, const NodeRef& now, bool exact, std::vector<NodeRef>& added) {
  if (before.GetName().name != now->GetName().name || before.GetName().hash != now->GetName().hash ||
      !SameValue(before.GetValue(), now->GetValue())) {
    return false;
  }
  const auto& old = before.GetChildren();
  const auto& current = now->GetChildren();
  if (current.size() < old.size() || (exact && current.size() != old.size())) return false;
  for (std::size_t i = 0; i < old.size(); ++i) {
    if (!KeepsTree(*old[i], current[i], exact, added)) return false;
  }
  for (std::size_t i = old.size(); i < current.size(); ++i)
    AddSubtree(current[i], added);
  return true;
}

NodeRef CopyOf(const NodeRef& tree) {
  auto copy = std::make_shared<OptionNode>();
  copy->CopyFrom(tree);
  return copy;
}

// The path text that Validate gives a node: the names of the nodes above it below the root, then ".",
// then its own name (so a top-level node's text starts with a dot).
std::string PathTextOf(const NodeRef& node) {
  std::vector<std::string> above;
  for (NodeRef up = node->GetParent(); up && up->GetParent(); up = up->GetParent())
    above.insert(above.begin(), up->GetName().name);
  std::string text;
  for (std::size_t i = 0; i < above.size(); ++i)
    text += (i == 0 ? "" : ".") + above[i];
  return text + "." + node->GetName().name;
}

const std::string kNotFoundHead = "Option not found '";
const std::string kUnavailableTail = " not available in this configuration";

// Runs Validate and checks that its result and its messages agree.
bool ValidateChecked(OptionGroup& schema, const NodeRef& tree) {
  Lines().clear();
  const bool valid = schema.Validate(tree);
  if (valid != Lines().empty()) Fail("Validate's result disagrees with what it logged");
  for (const std::string& line : Lines()) {
    const bool notFound = line.compare(0, kNotFoundHead.size(), kNotFoundHead) == 0 && line.back() == '\'';
    const bool unavailable =
        line.compare(0, 7, "Option ") == 0 && line.size() > kUnavailableTail.size() &&
        line.compare(line.size() - kUnavailableTail.size(), std::string::npos, kUnavailableTail) == 0;
    if (!notFound && !unavailable) Fail("Validate logged a line of its own making");
  }
  return valid;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The callback keeps the lines off standard output; it must not log itself.
  Logger::SetCallback([](Logger::LOG_TYPE type, const char* text) {
    if (type != kOptionProblemSeverity) Fail("a resolver message at another severity");
    // The callback receives the console line: prefix, message, newline.
    std::string line(text);
    const std::string prefix = "Qz LOG:\t";
    if (line.compare(0, prefix.size(), prefix) == 0) line.erase(0, prefix.size());
    if (!line.empty() && line.back() == '\n') line.pop_back();
    Lines().push_back(std::move(line));
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const GroupRef schema = BuildSchema();

  Document document;
  document.Parse<rapidjson::kParseIterativeFlag>(reinterpret_cast<const char*>(data), size);
  if (document.HasParseError() || Depth(document) > kMaxDepth) return 0;
  auto tree = std::make_shared<OptionNode>();
  ReadJson(tree, document);

  ValidateChecked(*schema, tree);

  const NodeRef beforeDefaults = CopyOf(tree);
  schema->ApplyDefaults(tree);
  std::vector<NodeRef> added;
  if (!KeepsTree(*beforeDefaults, tree, false, added)) Fail("ApplyDefaults changed a node that was there");

  const NodeRef completed = CopyOf(tree);
  schema->ApplyDefaults(tree);
  std::vector<NodeRef> addedAgain;
  if (!KeepsTree(*completed, tree, true, addedAgain)) Fail("a second ApplyDefaults changed the tree");
  if (!HasDuplicateHashesInObjects(*tree) && (!tree->Equals(completed) || !completed->Equals(tree)))
    Fail("a tree is not Equals its copy after a second ApplyDefaults");

  ValidateChecked(*schema, tree);
  // An unknown key with a dot could spell the same path text as an added node (a key "b.x" in group a
  // and an option x in group a.b), so the texts only identify added nodes when no key holds a dot.
  if (!HasKeyWithDot(document)) {
    std::set<std::string> addedTexts;
    for (const NodeRef& node : added)
      addedTexts.insert(PathTextOf(node));
    for (const std::string& line : Lines()) {
      if (line.compare(0, kNotFoundHead.size(), kNotFoundHead) != 0) continue;
      const std::string path = line.substr(kNotFoundHead.size(), line.size() - kNotFoundHead.size() - 1);
      if (addedTexts.count(path) != 0) Fail("Validate reports a node that ApplyDefaults added as unknown");
    }
  }
  Lines().clear();
  return 0;
}
