// Helpers of the schema, condition and resolver tests: typed values, declaring an option in one step as
// a user would, and capturing the logger's lines while a test runs.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/logger.h"
#include "options/condition.h"

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
inline GroupRef Root() {
  return std::make_shared<OptionGroup>();
}

inline DescriptorRef Declare(const GroupRef& group, const char* name, const OptionValue& value,
                             ConditionRef condition = nullptr) {
  return group->AddOption(
      std::make_shared<OptionDescriptor>(group, name, 0, value, "", std::move(condition)));
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
