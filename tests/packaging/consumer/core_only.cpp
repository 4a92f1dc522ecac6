// Built with nothing but `pkg-config --cflags --libs quorlbridge`: the core layer on its own.
#include <cstdio>
#include <string>
#include <vector>

#include "core/name_hash.h"
#include "core/strings.h"

int main() {
  std::vector<std::string> parts;
  quorl::Split("a,b,,c", parts, ",", false);
  const bool ok = quorl::NameHash(nullptr) == 0 && quorl::ToUpper("quorl") == "QUORL" &&
                  quorl::Join(parts, "+") == "a+b+c";
  std::printf("core_only: %s\n", ok ? "ok" : "FAILED");
  return ok ? 0 : 1;
}
