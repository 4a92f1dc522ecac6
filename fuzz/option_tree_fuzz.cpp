// Fuzzes the option tree's path walks and deep copy: nodes are made, filled and removed along fuzzed
// paths, and each step is checked against what the walks promise; at the end the tree is copied into a
// fresh node and into one that already has a child, and the copies are compared with Equals.
//
// The input is a list of lines, each an operation letter followed by a path whose elements are separated
// by "." (an empty element is a name too: an unnamed child, hash 0):
//   c  create along the path            v  create, then give the node a value (type from the line length)
//   a  create, then append an element   r  remove the node that FindByPath reaches, if any
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "core/name_hash.h"
#include "core/strings.h"
#include "options/node.h"
#include "options/value.h"

#include "tree_checks.h"

namespace {

using quorl::fuzz::HasDuplicateHashesInObjects;

using quorl::HashedName;
using quorl::OptionNode;
using quorl::OptionPath;
using quorl::OptionValue;
using NodeRef = std::shared_ptr<OptionNode>;

// Every walk, copy and comparison recurses once per level; deeper paths only cost time.
constexpr std::size_t kMaxPathLength = 64;

[[noreturn]] void Fail(const char* what, const std::string& line) {
  std::fprintf(stderr, "option_tree_fuzz: %s (line \"%s\")\n", what, line.c_str());
  std::abort();
}

OptionPath ToPath(const std::string& text) {
  OptionPath path;
  std::size_t start = 0;
  while (true) {
    const std::size_t dot = text.find('.', start);
    path.emplace_back(text.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
    if (dot == std::string::npos) return path;
    start = dot + 1;
  }
}

OptionValue ValueFor(const std::string& line) {
  switch (line.size() % 5) {
    case 0:
      return OptionValue::Of<quorl::Int32Type>(static_cast<int32_t>(line.size()));
    case 1:
      return OptionValue::Of<quorl::StringType>(line);
    case 2:
      return OptionValue::Of<quorl::BoolType>(static_cast<uint8_t>(line.size() & 1));
    case 3:
      // A NaN compares equal to everything, so it must not upset Equals.
      return OptionValue::Of<quorl::DoubleType>(line.size() % 2 ? std::nan("") : line.size() * 0.5);
    default:
      return OptionValue::Of<quorl::UInt64Type>(line.size());
  }
}

std::size_t CountNodes(const OptionNode& node) {
  std::size_t count = 1;
  for (const NodeRef& child : node.GetChildren())
    count += CountNodes(*child);
  return count;
}

// The node that GetOrCreateByPath gave for `path`: its path names it level by level, and FindByPath
// reaches it again wherever only objects stand on the way.
void CheckCreated(const NodeRef& root, const NodeRef& node, const OptionPath& path, const std::string& line) {
  if (node->GetRoot() != root) Fail("created node is not in the tree", line);
  if (node->IsObject() && node->IsArray()) Fail("a node is both object and array", line);

  // The chain from the root down to the node, and whether every node above it is object-shaped.
  std::vector<NodeRef> chain{node};
  while (NodeRef up = chain.back()->GetParent())
    chain.push_back(up);
  if (chain.size() != path.size() + 1) Fail("created node is not one level down per element", line);
  bool objectsAbove = true;
  for (std::size_t i = 1; i < chain.size(); ++i)
    objectsAbove = objectsAbove && chain[i]->IsObject();
  // An unnamed node appears in GetPath as its position, which only an array's look-up understands.
  bool allNamed = true;
  for (std::size_t i = 0; i + 1 < chain.size(); ++i)
    allNamed = allNamed && chain[i]->HasName();

  OptionPath named;
  node->GetPath(named);
  if (named.size() != path.size()) Fail("GetPath has another length than the path", line);
  for (std::size_t level = 0; level < path.size(); ++level) {
    const NodeRef& at = chain[path.size() - 1 - level];
    const NodeRef& parent = chain[path.size() - level];
    if (at->GetName().hash != path[level].hash)
      Fail("a node on the way doesn't bear the element's hash", line);
    if (at->HasName()) {
      if (named[level].hash != path[level].hash) Fail("GetPath names a named node by another hash", line);
    } else {
      std::size_t position = 0;
      while (parent->GetChildren()[position] != at)
        ++position;
      const std::string text = quorl::FormatString("%llu", static_cast<unsigned long long>(position));
      if (named[level].name != text || named[level].hash != quorl::NameHash(text.c_str()))
        Fail("GetPath names an unnamed node by something other than its position", line);
    }
  }
  if (objectsAbove) {
    if (node->FindByPath(path) != node) Fail("FindByPath misses the node made along the same path", line);
    if (allNamed && root->FindByPath(named) != node) Fail("FindByPath of GetPath misses the node", line);
  }
  if (node->GetOrCreateByPath(path) != node) Fail("a second GetOrCreateByPath made another node", line);
}

void CheckCopies(const NodeRef& root) {
  const std::size_t nodes = CountNodes(*root);
  const bool comparable = !HasDuplicateHashesInObjects(*root);

  auto copy = std::make_shared<OptionNode>();
  copy->CopyFrom(root);
  if (CountNodes(*copy) != nodes) Fail("a copy has another number of nodes", "");
  if (comparable && (!copy->Equals(root) || !root->Equals(copy) || !root->Equals(root)))
    Fail("a fresh copy is not Equals the tree", "");
  // Deep: growing the copy leaves the tree alone.
  copy->AddValue(OptionValue::Of<quorl::Int32Type>(1));
  for (const NodeRef& child : copy->GetChildren())
    child->AddValue(OptionValue::Of<quorl::Int32Type>(2));
  if (CountNodes(*root) != nodes) Fail("changing a copy changed the tree", "");
  if (comparable && copy->Equals(root)) Fail("a grown copy is still Equals the tree", "");

  // CopyFrom is no replacement: children already there stay in front.
  auto holder = std::make_shared<OptionNode>();
  const NodeRef first = holder->GetOrCreateChild(HashedName("kept"));
  holder->CopyFrom(root);
  if (holder->GetChildren().size() != root->GetChildren().size() + 1 ||
      holder->GetChildren().front() != first)
    Fail("CopyFrom onto a node with a child did not keep it in front", "");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  auto root = std::make_shared<OptionNode>();
  std::size_t start = 0;
  while (start < input.size()) {
    std::size_t end = input.find('\n', start);
    if (end == std::string::npos) end = input.size();
    const std::string line = input.substr(start, end - start);
    start = end + 1;
    if (line.empty()) continue;
    const OptionPath path = ToPath(line.substr(1));
    if (path.size() > kMaxPathLength) continue;
    switch (line[0]) {
      case 'c':
      case 'v':
      case 'a': {
        const NodeRef node = root->GetOrCreateByPath(path);
        CheckCreated(root, node, path, line);
        if (line[0] == 'v') node->SetValue(ValueFor(line));
        if (line[0] == 'a') {
          const std::size_t before = node->GetChildren().size();
          node->AddValue(ValueFor(line));
          if (node->GetChildren().size() != before + 1 || node->GetChildren().back()->HasName())
            Fail("AddValue did not append one unnamed child", line);
        }
        break;
      }
      case 'r': {
        const NodeRef found = root->FindByPath(path);
        if (!found || found == root) break;
        const NodeRef parent = found->GetParent();
        const std::size_t before = parent->GetChildren().size();
        parent->RemoveChild(found);
        if (parent->GetChildren().size() != before - 1 || found->GetParent() || found->GetRoot() != found)
          Fail("a removed node is still attached", line);
        OptionPath detached;
        found->GetPath(detached);
        if (!detached.empty()) Fail("a removed node still has a path", line);
        break;
      }
      default:
        break;
    }
  }
  CheckCopies(root);
  return 0;
}
