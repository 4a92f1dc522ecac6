#include "fs/path_record.h"

#include <cstdlib>
#include <vector>

#include "core/strings.h"
#include "fs/path.h"

namespace quorl {

namespace {

// A pattern with its extension removed (`body`) and the literal pieces between the runs of "#".
struct PatternPieces {
  std::string body;
  std::vector<std::string> tokens;
};

PatternPieces ReadPattern(const char* pattern, const std::string& extension) {
  PatternPieces pieces{pattern, {}};
  // Removes every occurrence, not only the trailing one; intended. `extension` is never empty.
  if (Contains(pattern, extension.c_str())) pieces.body = ReplaceAll(pieces.body, extension, std::string());
  Split(pieces.body, pieces.tokens, std::string("#"), false);
  return pieces;
}

}  // namespace

PathRecord::PathRecord(const char* directoryText, const char* pattern, int32_t indexValue) {
  extension = "." + AfterLast(pattern, ".");
  directory = directoryText;
  index = indexValue;
  const PatternPieces pieces = ReadPattern(pattern, extension);
  if (pieces.tokens.empty()) return;
  int32_t digits = static_cast<int32_t>(pieces.body.size());
  for (const std::string& token : pieces.tokens)
    digits -= static_cast<int32_t>(token.size());
  // The first piece always precedes the number and a third piece is dropped: the format's fixed shape.
  path = directory + pieces.tokens[0] + PadNumber(index, digits, '0');
  if (pieces.tokens.size() >= 2) path += pieces.tokens[1];
  path += extension;
}

PathRecord::PathRecord(const char* pathText, const char* pattern, bool /*ignored*/) {
  path = NormalizePath(pathText);
  directory = BeforeLast(path, "/") + "/";
  // Ends at the last dot, unlike GetFileStem; intended.
  name = AfterLast(BeforeLast(path, "."), "/");
  extension = "." + AfterLast(path, ".");
  if (pattern == nullptr) return;
  const PatternPieces pieces = ReadPattern(pattern, extension);
  if (pieces.tokens.empty()) return;
  std::string rest = name;
  int32_t remaining = static_cast<int32_t>(pieces.body.size());
  for (const std::string& token : pieces.tokens) {
    remaining -= static_cast<int32_t>(token.size());
    if (!Contains(rest, token.c_str())) return;
    rest = ReplaceAll(rest, token, std::string());
  }
  // Any rest of the right length counts, digits or not ("abcd" reads as 0); intended.
  if (remaining == static_cast<int32_t>(rest.size())) {
    index = static_cast<int32_t>(std::strtol(rest.c_str(), nullptr, 10));
  }
}

}  // namespace quorl
