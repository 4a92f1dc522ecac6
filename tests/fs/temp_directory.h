// A fresh directory from mkdtemp under /tmp, removed with everything in it when the object dies, so a
// failing test cleans up too. The template holds no dot, which path and directory rules would read as a
// file name.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

class TempDirectory {
 public:
  TempDirectory() {
    char name[] = "/tmp/quorl_fs_XXXXXX";
    if (mkdtemp(name) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = name;
  }
  ~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  // The absolute path, without a trailing "/".
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& relative) const { return path_ + "/" + relative; }
  void Touch(const std::string& relative) const { std::ofstream(*this / relative).put('x'); }

 private:
  std::string path_;
};
