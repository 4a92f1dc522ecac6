// The Unity package as the engine's package manager reads it: the manifest's fields, a .meta with a
// GUID for every asset and folder (the same GUIDs in every build, and in every release: see
// unity_package_guids.txt), the plug-in's import settings, and the tarball's npm layout.
//
// QUORL_PACKAGE_DIR is the package made by this build, QUORL_PACKAGE_AGAIN the same made a second time,
// QUORL_PACKAGE_TARBALL its tarball.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "options/rapidjson.h"

namespace {

namespace fs = std::filesystem;

const fs::path kPackage = QUORL_PACKAGE_DIR;
const fs::path kAgain = QUORL_PACKAGE_AGAIN;

std::string Read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

bool Hidden(const fs::path& relative) {
  for (const fs::path& part : relative)
    if (!part.empty() && part.string().back() == '~') return true;
  return false;
}

// Package-relative paths of every file and folder, .meta files apart.
std::set<std::string> Assets(const fs::path& root, bool withHidden) {
  std::set<std::string> assets;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const fs::path relative = fs::relative(entry.path(), root);
    if (relative.extension() == ".meta" || (!withHidden && Hidden(relative))) continue;
    assets.insert(relative.generic_string());
  }
  return assets;
}

bool IsGuid(const std::string& text) {
  return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

// The GUID of a .meta file: its "guid:" line holds 32 lowercase hex digits.
std::string Guid(const fs::path& meta) {
  std::istringstream lines(Read(meta));
  for (std::string line; std::getline(lines, line);)
    if (line.rfind("guid: ", 0) == 0 && IsGuid(line.substr(6))) return line.substr(6);
  return "";
}

// True when `text` is `minimum` or more dot-separated parts, each made of the characters in `allowed`
// and, with `noLeadingZero`, not a number with a leading zero.
bool DottedParts(const std::string& text, std::size_t minimum, const char* allowed, bool noLeadingZero) {
  std::size_t count = 0;
  for (std::size_t begin = 0;; ++count) {
    const std::size_t end = text.find('.', begin);
    const std::string part = text.substr(begin, end - begin);
    if (part.empty() || part.find_first_not_of(allowed) != std::string::npos) return false;
    if (noLeadingZero && part.size() > 1 && part[0] == '0') return false;
    if (end == std::string::npos) return count + 1 >= minimum;
    begin = end + 1;
  }
}

TEST(UnityPackage, ManifestHasTheRequiredAndRecommendedFields) {
  rapidjson::Document manifest;
  manifest.Parse(Read(kPackage / "package.json").c_str());
  ASSERT_FALSE(manifest.HasParseError()) << "package.json is not JSON";
  ASSERT_TRUE(manifest.IsObject());
  auto text = [&](const char* field) -> std::string {
    return manifest.HasMember(field) && manifest[field].IsString() ? manifest[field].GetString() : "";
  };
  // Reverse-domain, lower case, at most 214 characters, and what the engine shows as the package's id.
  EXPECT_TRUE(DottedParts(text("name"), 3, "abcdefghijklmnopqrstuvwxyz0123456789-_", false)) << text("name");
  EXPECT_LE(text("name").size(), 214u);
  EXPECT_EQ(text("name"), "com.quorl.bridge");
  EXPECT_EQ(text("version"), QUORL_VERSION) << "the project's version";
  EXPECT_TRUE(DottedParts(text("version"), 3, "0123456789", true))
      << "MAJOR.MINOR.PATCH: " << text("version");
  EXPECT_FALSE(text("displayName").empty());
  EXPECT_LE(text("displayName").size(), 50u);
  EXPECT_FALSE(text("description").empty());
  EXPECT_EQ(text("unity"), "2021.3");

  ASSERT_TRUE(manifest.HasMember("samples") && manifest["samples"].IsArray());
  ASSERT_FALSE(manifest["samples"].Empty());
  for (const auto& sample : manifest["samples"].GetArray()) {
    ASSERT_TRUE(sample.IsObject());
    for (const char* field : {"displayName", "description", "path"})
      EXPECT_TRUE(sample.HasMember(field) && sample[field].IsString() && sample[field].GetStringLength() > 0)
          << field;
    const std::string path = sample["path"].GetString();
    EXPECT_EQ(path.rfind("Samples~/", 0), 0u) << path;
    EXPECT_TRUE(fs::is_directory(kPackage / path)) << path;
  }
}

TEST(UnityPackage, EveryAssetAndFolderHasOneMetaWithAStableUniqueGuid) {
  const std::set<std::string> assets = Assets(kPackage, false);
  for (const char* expected :
       {"package.json", "CHANGELOG.md", "Runtime", "Runtime/Quorl.Bridge.asmdef", "Runtime/QuorlBridge.cs",
        "Runtime/QuorlNative.cs", "Runtime/Plugins/x86_64/libQuorlBridge.so"})
    EXPECT_EQ(assets.count(expected), 1u) << "missing from the package: " << expected;
  for (const char* hidden :
       {"Samples~/RenderAndScene/QuorlSceneSample.cs", "Documentation~/game-developers.md"})
    EXPECT_TRUE(fs::is_regular_file(kPackage / hidden)) << hidden;

  // Every .meta belongs to an asset, and none is inside a hidden folder.
  for (const auto& entry : fs::recursive_directory_iterator(kPackage)) {
    const fs::path relative = fs::relative(entry.path(), kPackage);
    if (relative.extension() != ".meta") continue;
    EXPECT_FALSE(Hidden(relative)) << relative;
    fs::path asset = relative;
    asset.replace_extension();
    EXPECT_EQ(assets.count(asset.generic_string()), 1u) << "a .meta without its asset: " << relative;
  }

  // The GUIDs released so far, path by path: a project refers to the assets by them.
  std::map<std::string, std::string> released;
  std::istringstream lines(Read(QUORL_PACKAGE_GUIDS));
  for (std::string line; std::getline(lines, line);)
    if (line.size() > 33 && IsGuid(line.substr(0, 32)) && line[32] == ' ')
      released[line.substr(33)] = line.substr(0, 32);
  ASSERT_FALSE(released.empty());

  std::set<std::string> guids;
  for (const std::string& asset : assets) {
    const std::string guid = Guid(kPackage / (asset + ".meta"));
    ASSERT_FALSE(guid.empty()) << "no .meta with a GUID for " << asset;
    EXPECT_TRUE(guids.insert(guid).second) << "GUID used twice: " << guid << " (" << asset << ")";
    EXPECT_EQ(guid, Guid(kAgain / (asset + ".meta"))) << asset << ": another GUID in the second build";
    const auto old = released.find(asset);
    if (old == released.end())
      ADD_FAILURE() << asset << " is new: add \"" << guid << " " << asset << "\" to unity_package_guids.txt";
    else
      EXPECT_EQ(guid, old->second) << asset << ": its GUID changed from the released one";
    if (fs::is_directory(kPackage / asset)) {
      EXPECT_NE(Read(kPackage / (asset + ".meta")).find("\nfolderAsset: yes\n"), std::string::npos) << asset;
    }
  }
  EXPECT_EQ(Assets(kAgain, true), Assets(kPackage, true)) << "the second build made other files";
}

// One entry of the importer's platformData: "Standalone: Linux64" -> enabled, settings.
struct Platform {
  bool enabled = false;
  std::map<std::string, std::string> settings;
};

std::map<std::string, Platform> PlatformData(const std::string& meta) {
  std::map<std::string, Platform> platforms;
  std::istringstream lines(meta);
  std::string line;
  std::string current;
  while (std::getline(lines, line)) {
    const std::size_t colon = line.find(':');
    if (line == "  - first:") {
      std::getline(lines, line);
      current = line.substr(line.find_first_not_of(' '));
      platforms[current];
    } else if (!current.empty() && line.rfind("      enabled: ", 0) == 0) {
      platforms[current].enabled = line.substr(15) == "1";
    } else if (!current.empty() && line.rfind("        ", 0) == 0 && line[8] != ' ' &&
               colon != std::string::npos) {
      const std::size_t value = line.find_first_not_of(' ', colon + 1);  // "        Key: value"
      platforms[current].settings[line.substr(8, colon - 8)] =
          value == std::string::npos ? "" : line.substr(value);
    } else if (line.rfind("  userData:", 0) == 0) {
      current.clear();
    }
  }
  return platforms;
}

TEST(UnityPackage, PluginLoadsInTheLinuxEditorAndLinuxPlayersOnly) {
  const std::string meta = Read(kPackage / "Runtime/Plugins/x86_64/libQuorlBridge.so.meta");
  ASSERT_NE(meta.find("\nPluginImporter:\n"), std::string::npos);
  const std::map<std::string, Platform> platforms = PlatformData(meta);
  std::set<std::string> enabled;
  for (const auto& [name, platform] : platforms)
    if (platform.enabled) enabled.insert(name);
  EXPECT_EQ(enabled, (std::set<std::string>{"Editor: Editor", "Standalone: Linux64"}));
  ASSERT_EQ(platforms.count("Editor: Editor"), 1u);
  EXPECT_EQ(platforms.at("Editor: Editor").settings.at("OS"), "Linux");
  EXPECT_EQ(platforms.at("Editor: Editor").settings.at("CPU"), "x86_64");
  EXPECT_EQ(platforms.at("Standalone: Linux64").settings.at("CPU"), "x86_64");
  // "Any Platform" is off, and what it would exclude says the same.
  ASSERT_EQ(platforms.count("'': Any"), 1u);
  for (const auto& [key, value] : platforms.at("'': Any").settings) {
    const bool ours = key == "Exclude Editor" || key == "Exclude Linux64";
    EXPECT_EQ(value, ours ? "0" : "1") << key;
  }
}

std::vector<std::string> Shell(const std::string& command) {
  std::vector<std::string> lines;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return lines;
  char buffer[4096];
  while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) {
    std::string line = buffer;
    if (!line.empty() && line.back() == '\n') line.pop_back();
    lines.push_back(line);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return lines;
}

TEST(UnityPackage, TarballHoldsThePackageUnderPackageFolder) {
  const std::string tarball = QUORL_PACKAGE_TARBALL;
  std::set<std::string> files;
  for (const std::string& entry : Shell("tar -tzf '" + tarball + "'")) {
    EXPECT_EQ(entry.rfind("package/", 0), 0u) << entry;
    files.insert(entry);
  }
  EXPECT_EQ(files.count("package/package.json"), 1u);

  const fs::path unpacked = fs::path(QUORL_SCRATCH) / "unpacked";
  fs::remove_all(unpacked);
  fs::create_directories(unpacked);
  Shell("tar -xzf '" + tarball + "' -C '" + unpacked.string() + "'");
  std::set<std::string> expected;
  for (const auto& entry : fs::recursive_directory_iterator(kPackage))
    if (entry.is_regular_file())
      expected.insert("package/" + fs::relative(entry.path(), kPackage).generic_string());
  EXPECT_EQ(files, expected);
  for (const std::string& file : expected)
    EXPECT_TRUE(Read(unpacked / file) == Read(kPackage / file.substr(8))) << file << " differs";
  EXPECT_TRUE(fs::status(unpacked / "package/Runtime/Plugins/x86_64/libQuorlBridge.so").permissions() ==
              fs::status(kPackage / "Runtime/Plugins/x86_64/libQuorlBridge.so").permissions());
}

}  // namespace
