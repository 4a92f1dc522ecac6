// The Unity package as the engine's package manager reads it: the manifest's fields, a .meta with a
// GUID for every asset and folder (the same GUIDs in every build, and in every release: see
// unity_package_guids.txt), the plug-in's import settings, and the tarball's npm layout.
//
// QUORL_PACKAGE_DIR is the package made by this build, QUORL_PACKAGE_AGAIN the same made a second time,
// QUORL_PACKAGE_TARBALL its tarball.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

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

// The GUID of a .meta file: its "guid:" line holds 32 lowercase hex digits.
std::string Guid(const fs::path& meta) {
  std::smatch match;
  const std::string text = Read(meta);
  return std::regex_search(text, match, std::regex("(^|\n)guid: ([0-9a-f]{32})\n")) ? match[2].str() : "";
}

TEST(UnityPackage, ManifestHasTheRequiredAndRecommendedFields) {
  rapidjson::Document manifest;
  manifest.Parse(Read(kPackage / "package.json").c_str());
  ASSERT_FALSE(manifest.HasParseError()) << "package.json is not JSON";
  ASSERT_TRUE(manifest.IsObject());
  auto text = [&](const char* field) -> std::string {
    return manifest.HasMember(field) && manifest[field].IsString() ? manifest[field].GetString() : "";
  };
  EXPECT_EQ(text("name"), "com.quorl.bridge");  // reverse-domain and lower case, as the engine wants it
  EXPECT_EQ(text("version"), QUORL_VERSION) << "the project's version";
  EXPECT_TRUE(std::regex_match(text("version"), std::regex("(0|[1-9][0-9]*)(\\.(0|[1-9][0-9]*)){2,}")))
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
    EXPECT_EQ(assets.count(fs::path(relative).replace_extension().generic_string()), 1u)
        << "a .meta without its asset: " << relative;
  }

  // The GUIDs released so far, path by path: a project refers to the assets by them.
  std::map<std::string, std::string> released;
  std::istringstream lines(Read(QUORL_PACKAGE_GUIDS));
  std::smatch match;
  for (std::string line; std::getline(lines, line);)
    if (std::regex_match(line, match, std::regex("([0-9a-f]{32}) (.+)"))) released[match[2]] = match[1];
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
    EXPECT_TRUE(!fs::is_directory(kPackage / asset) ||
                Read(kPackage / (asset + ".meta")).find("\nfolderAsset: yes\n") != std::string::npos)
        << asset << ": a folder's .meta has no \"folderAsset: yes\"";
  }
  EXPECT_EQ(Assets(kAgain, true), Assets(kPackage, true)) << "the second build made other files";
}

// The importer's platformData, entry by entry ("Standalone: Linux64"): its "enabled" flag and its
// settings, in one map of names to values.
std::map<std::string, std::map<std::string, std::string>> PlatformData(const std::string& meta) {
  std::map<std::string, std::map<std::string, std::string>> platforms;
  std::istringstream lines(meta);
  std::string entry;
  std::smatch match;
  for (std::string line; std::getline(lines, line);) {
    if (line == "  - first:" && std::getline(lines, line)) {
      entry = line.substr(line.find_first_not_of(' '));
    } else if (line.rfind("  userData:", 0) == 0) {
      entry.clear();
    } else if (!entry.empty() && std::regex_match(line, match, std::regex("      enabled: (.*)"))) {
      platforms[entry]["enabled"] = match[1].str();
    } else if (!entry.empty() && std::regex_match(line, match, std::regex("        ([^ :][^:]*): ?(.*)"))) {
      platforms[entry][match[1].str()] = match[2].str();
    }
  }
  return platforms;
}

TEST(UnityPackage, PluginLoadsInTheLinuxEditorAndLinuxPlayersOnly) {
  const std::string meta = Read(kPackage / "Runtime/Plugins/x86_64/libQuorlBridge.so.meta");
  ASSERT_NE(meta.find("\nPluginImporter:\n"), std::string::npos);
  const auto platforms = PlatformData(meta);
  auto setting = [&](const std::string& platform, const std::string& name) -> std::string {
    const auto found = platforms.find(platform);
    return found != platforms.end() && found->second.count(name) != 0 ? found->second.at(name) : "<none>";
  };
  std::set<std::string> enabled;
  for (const auto& platform : platforms)
    if (setting(platform.first, "enabled") == "1") enabled.insert(platform.first);
  EXPECT_EQ(enabled, (std::set<std::string>{"Editor: Editor", "Standalone: Linux64"}));
  EXPECT_EQ(setting("Editor: Editor", "OS"), "Linux");
  EXPECT_EQ(setting("Editor: Editor", "CPU"), "x86_64");
  EXPECT_EQ(setting("Standalone: Linux64", "CPU"), "x86_64");
  // "Any Platform" is off, and what it would exclude says the same.
  ASSERT_EQ(platforms.count("'': Any"), 1u);
  for (const auto& [name, value] : platforms.at("'': Any")) {
    const bool ours = name == "enabled" || name == "Exclude Editor" || name == "Exclude Linux64";
    EXPECT_EQ(value, ours ? "0" : "1") << name;
  }
}

// Paths of the regular files under `root`, relative to it and prefixed with `prefix`.
std::set<std::string> RegularFiles(const fs::path& root, const std::string& prefix) {
  std::set<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(root))
    if (entry.is_regular_file()) files.insert(prefix + fs::relative(entry.path(), root).generic_string());
  return files;
}

TEST(UnityPackage, TarballHoldsThePackageUnderPackageFolder) {
  const fs::path unpacked = fs::path(QUORL_SCRATCH) / "unpacked";
  fs::remove_all(unpacked);
  fs::create_directories(unpacked);
  const std::string untar =
      "tar -xzf '" + std::string(QUORL_PACKAGE_TARBALL) + "' -C '" + unpacked.string() + "'";
  ASSERT_EQ(std::system(untar.c_str()), 0) << untar;
  const std::set<std::string> expected = RegularFiles(kPackage, "package/");
  EXPECT_EQ(RegularFiles(unpacked, ""), expected);
  for (const std::string& file : expected)
    EXPECT_TRUE(Read(unpacked / file) == Read(kPackage / file.substr(8))) << file << " differs";
  EXPECT_TRUE(fs::status(unpacked / "package/Runtime/Plugins/x86_64/libQuorlBridge.so").permissions() ==
              fs::status(kPackage / "Runtime/Plugins/x86_64/libQuorlBridge.so").permissions());
}

}  // namespace
