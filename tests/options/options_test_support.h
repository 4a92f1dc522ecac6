// Helpers of the option tests, for the test's own thread: typed values, options declared in one step, a
// video player's schema, JSON text to a tree and back, and the logger's lines captured (LogCapture owns
// the logger's callback while it lives).
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/logger.h"
#include "options/condition.h"
#include "options/json.h"

namespace quorl::testing {

using GroupRef = std::shared_ptr<OptionGroup>;
using NodeRef = std::shared_ptr<OptionNode>;

inline OptionValue Int(int32_t v) {
  return OptionValue::Of<Int32Type>(v);
}
inline OptionValue Bool(bool v) {
  return OptionValue::Of<BoolType>(v ? 1 : 0);
}
inline OptionValue Str(const std::string& v) {
  return OptionValue::Of<StringType>(v);
}
inline NodeRef Node() {
  return std::make_shared<OptionNode>();
}

inline DescriptorRef Declare(const GroupRef& group, const char* name, const OptionValue& value,
                             ConditionRef condition = nullptr) {
  return group->AddOption(
      std::make_shared<OptionDescriptor>(group, name, 0, value, "", std::move(condition)));
}

// The settings of a video player, declared as its developer would: options with and without conditions,
// conditions on options with conditions, and groups with and without conditions.
inline GroupRef PlayerSchema() {
  GroupRef root = std::make_shared<OptionGroup>();
  OptionValue zero = OptionValue::Of<FloatType>(0), one = OptionValue::Of<FloatType>(1);
  root->AddOption(std::make_shared<OptionDescriptor>(root, "volume", 1, OptionValue::Of<FloatType>(0.8f),
                                                     zero, one, "Output level"));
  Declare(root, "muted", Bool(false));
  DescriptorRef language = root->AddOption(std::make_shared<OptionDescriptor>(
      root, "language", 2, Str("en"), std::vector<OptionValue>{Str("en"), Str("fr")}, "Audio language"));
  GroupRef video = root->AddGroup("video");
  DescriptorRef renderer = Declare(video, "renderer", Str("auto"));
  DescriptorRef hdr = Declare(video, "hdr", Bool(false), MakeEqual(renderer, Str("vulkan")));
  Declare(video, "tonemap", Str("reinhard"), MakeEqual(hdr, Bool(true)));
  Declare(video, "fps", Int(60));
  GroupRef subtitles = root->AddGroup("subtitles", MakeNotEqual(language, Str("en")));
  Declare(subtitles, "size", Int(24));
  Declare(subtitles, "font", Str("sans"));
  GroupRef network = root->AddGroup("network");
  Declare(network, "bitrate", OptionValue::Of<Int64Type>(5000000));
  Declare(network, "proxy", Str(""), MakeEqual(Declare(network, "cache", Bool(true)), Bool(false)));
  return root;
}

inline rapidjson::Document Parse(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str(), text.size());
  EXPECT_FALSE(document.HasParseError()) << text;
  return document;
}

// A new tree that JSON `text` is read into; `result` receives what ReadJson gave.
inline NodeRef Read(const std::string& text, bool* result = nullptr) {
  NodeRef root = Node();
  const bool read = ReadJson(root, Parse(text));
  if (result != nullptr) *result = read;
  return root;
}

// The node's children as JSON text, in a top-level value of the kind that the node's shape asks for.
inline std::string Write(const NodeRef& node) {
  rapidjson::Document document;
  node->IsArray() ? document.SetArray() : document.SetObject();
  WriteJson(node, document, document.GetAllocator());
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

// Installs a callback that keeps every delivered line (it must not log), and removes it again.
struct LogCapture {
  LogCapture() {
    Logger::SetCallback([this](Logger::LOG_TYPE type, const char* text) {
      lines.push_back(std::to_string(static_cast<int>(type)) + " " + text);
    });
  }
  ~LogCapture() { Logger::SetCallback(Logger::LogCallback()); }
  std::vector<std::string> lines;
};

}  // namespace quorl::testing
