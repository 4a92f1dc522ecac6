// bench_table: the one table that bench/run.sh prints. It reads what the benchmark programs of one run
// wrote (their --metrics files of "key value" lines) and the callgrind dumps of their --count mode, and
// prints every ratio with its target, the instruction counts beside the times. A key that several files
// give (the floor, timed by each run of the render benchmark) keeps its least time and largest counter.
//
//   bench_table [--callgrind=DIR] METRICS_FILE...
//
// A callgrind dump names its region in the line "desc: Trigger: Client Request: <key> ops=<n>"; its
// "totals:" (or "summary:") line gives the instructions, and the "calls=" lines under callees whose name
// holds "pthread_mutex_lock" give the lock takes (the dumps must be written with --compress-strings=no);
// the cost lines under calls to malloc, free, realloc and calloc give the instructions spent in the heap.
// A figure that is missing prints as "-". Exit status 0 whatever the figures: the table is for people.
#include <dirent.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Counted {
  double instructions = 0;
  double lockTakes = 0;
  double heapInstructions = 0;  // inclusive, in calls to the malloc family
  double operations = 0;
};

std::map<std::string, double> metrics;
std::map<std::string, Counted> counts;

void ReadMetrics(const std::string& path) {
  std::ifstream in(path);
  if (!in) {
    std::fprintf(stderr, "bench_table: cannot read %s\n", path.c_str());
    return;
  }
  std::string key;
  double value;
  while (in >> key >> value) {
    // A benchmark timed in several runs (the floor) keeps its least time and its largest counters.
    const auto [place, added] = metrics.emplace(key, value);
    if (added) continue;
    const bool isTime = key.size() > 3 && key.compare(key.size() - 3, 3, ".ns") == 0;
    place->second = isTime ? std::min(place->second, value) : std::max(place->second, value);
  }
}

void ReadDump(const std::string& path) {
  std::ifstream in(path);
  const std::string descPrefix = "desc: Trigger: Client Request: ";
  std::string line, key;
  Counted counted;
  bool lockCallee = false, heapCallee = false, heapCost = false;
  while (std::getline(in, line)) {
    if (heapCost) {
      // The line after a call: its position, then the call's inclusive cost.
      heapCost = false;
      const std::size_t space = line.rfind(' ');
      if (space != std::string::npos) counted.heapInstructions += std::atof(line.c_str() + space + 1);
      continue;
    }
    if (line.compare(0, descPrefix.size(), descPrefix) == 0) {
      const std::string label = line.substr(descPrefix.size());
      const std::size_t ops = label.rfind(" ops=");
      if (ops == std::string::npos) return;
      key = label.substr(0, ops);
      counted.operations = std::atof(label.c_str() + ops + 5);
    } else if (line.compare(0, 8, "summary:") == 0 || line.compare(0, 7, "totals:") == 0) {
      counted.instructions = std::atof(line.c_str() + line.find(':') + 1);
    } else if (line.compare(0, 4, "cfn=") == 0) {
      lockCallee = line.find("pthread_mutex_lock") != std::string::npos;
      const std::string callee = line.substr(4);
      heapCallee = callee == "malloc" || callee == "free" || callee == "realloc" || callee == "calloc";
    } else if (line.compare(0, 6, "calls=") == 0) {
      if (lockCallee) counted.lockTakes += std::atof(line.c_str() + 6);
      heapCost = heapCallee;
      lockCallee = false;
      heapCallee = false;
    }
  }
  if (!key.empty() && counted.operations > 0) counts[key] = counted;
}

void ReadDumps(const std::string& directory) {
  DIR* dir = opendir(directory.c_str());
  if (dir == nullptr) {
    std::fprintf(stderr, "bench_table: cannot read %s\n", directory.c_str());
    return;
  }
  while (const dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') ReadDump(directory + "/" + entry->d_name);
  }
  closedir(dir);
}

bool Has(const std::string& key) {
  return metrics.count(key) != 0;
}
double Get(const std::string& key) {
  const auto found = metrics.find(key);
  return found == metrics.end() ? NAN : found->second;
}
// A counted region's figure per operation (instructions, lock takes, heap instructions), or NaN.
double PerOperation(const std::string& key, double Counted::*figure) {
  const auto found = counts.find(key);
  return found == counts.end() ? NAN : found->second.*figure / found->second.operations;
}
double Instructions(const std::string& key) {
  return PerOperation(key, &Counted::instructions);
}

// A number in a column of `width`, with `decimals` places, or "-".
std::string Cell(double value, int decimals, int width = 10) {
  char text[64];
  if (std::isnan(value)) {
    std::snprintf(text, sizeof text, "%*s", width, "-");
  } else {
    std::snprintf(text, sizeof text, "%*.*f", width, decimals, value);
  }
  return text;
}

// "ok" when `value` is at most (or, with atLeast, at least) `limit`, "MISSED" otherwise, "-" for NaN.
std::string Verdict(double value, double limit, bool atLeast = false) {
  if (std::isnan(value)) return "-";
  return (atLeast ? value >= limit : value <= limit) ? "ok" : "MISSED";
}

int missed = 0;
void Row(const std::string& label, const std::vector<double>& values, int decimals,
         const std::string& target = "", const std::string& verdict = "") {
  std::string line;
  char head[64];
  std::snprintf(head, sizeof head, "  %-34s", label.c_str());
  line += head;
  for (double value : values)
    line += Cell(value, decimals);
  if (!target.empty()) line += "   " + target + "  " + verdict;
  if (verdict == "MISSED") ++missed;
  std::printf("%s\n", line.c_str());
}

const int kPending[] = {0, 100, 10000, 100000};

void RenderSection(double floor) {
  std::printf("\nRender round trips, queue + UnityRenderEvent through dlopen'ed exports\n");
  std::printf("  %-34s%10s%10s%10s%10s   target\n", "pending:", "0", "100", "10000", "100000");
  for (const char* shape : {"plain", "frame_context_iii", "frame_context_i"}) {
    const bool plain = std::string(shape) == "plain";
    std::printf("  %s\n", shape);
    std::vector<double> ours, reference, versusReference, versusFloor, oursAllocs, referenceAllocs;
    std::vector<double> oursInstructions, referenceInstructions;
    for (int pending : kPending) {
      const std::string tail = "/" + std::to_string(pending);
      const std::string o = std::string("render/") + shape + "/ours" + tail;
      const std::string r = std::string("render/") + shape + "/straightforward" + tail;
      ours.push_back(Get(o + ".ns"));
      reference.push_back(Get(r + ".ns"));
      versusReference.push_back(ours.back() / reference.back());
      versusFloor.push_back(ours.back() / floor);
      oursAllocs.push_back(Get(o + ".allocs"));
      referenceAllocs.push_back(Get(r + ".allocs"));
      oursInstructions.push_back(Instructions(o));
      referenceInstructions.push_back(Instructions(r));
    }
    const double worstReference = *std::max_element(versusReference.begin(), versusReference.end());
    const double worstFloor = *std::max_element(versusFloor.begin(), versusFloor.end());
    const double flat =
        *std::max_element(ours.begin(), ours.end()) / *std::min_element(ours.begin(), ours.end());
    const double allocs = *std::max_element(oursAllocs.begin(), oursAllocs.end());
    const double floorLimit = plain ? 3.5 : 4.5;
    // What the shape itself costs: a library that only takes the two lock pairs and makes the call.
    const std::string least = std::string("render/") + shape + "/two_lock_pairs/0";
    const double leastNs = Get(least + ".ns");
    std::vector<double> versusLeast;
    for (double value : ours)
      versusLeast.push_back(value / leastNs);
    Row("ours, ns", ours, 1);
    Row("straightforward, ns", reference, 1);
    Row("ours / straightforward", versusReference, 3, "<= 1.0", Verdict(worstReference, 1.0));
    Row("ours / floor", versusFloor, 2, plain ? "<= 3.5" : "<= 4.5", Verdict(worstFloor, floorLimit));
    Row("two lock pairs alone, ns", {leastNs}, 1);
    Row("two lock pairs alone / floor", {leastNs / floor}, 2);
    Row("ours / two lock pairs alone", versusLeast, 2);
    Row("ours, slowest / fastest count", {flat}, 3, "<= 1.15", Verdict(flat, 1.15));
    Row("ours, allocations", oursAllocs, 2, "0", Verdict(allocs, 0.0));
    Row("straightforward, allocations", referenceAllocs, 2);
    Row("ours, instructions", oursInstructions, 1);
    Row("straightforward, instructions", referenceInstructions, 1);
    Row("two lock pairs alone, instructions", {Instructions(least)}, 1);
  }
}

void Base64Section() {
  std::printf(
      "\nBase64, 1 MiB (input bytes)       ours ns/B table ns/B  speed-up   target   ours ins/B table "
      "ins/B\n");
  for (const char* direction : {"encode", "decode"}) {
    const std::string o = std::string("base64/") + direction + "/ours";
    const std::string t = std::string("base64/") + direction + "/table";
    const double oursNs = Get(o + ".ns") / Get(o + ".bytes");
    const double tableNs = Get(t + ".ns") / Get(t + ".bytes");
    const double speedUp = tableNs / oursNs;
    char line[256];
    std::snprintf(line, sizeof line, "  %-34s%s%s%s   >= 3.0  %-6s%s%s", direction, Cell(oursNs, 3).c_str(),
                  Cell(tableNs, 3).c_str(), Cell(speedUp, 2).c_str(), Verdict(speedUp, 3.0, true).c_str(),
                  Cell(Instructions(o), 3, 11).c_str(), Cell(Instructions(t), 3, 12).c_str());
    if (Verdict(speedUp, 3.0, true) == "MISSED") ++missed;
    std::printf("%s\n", line);
  }
}

void JsonSection(double floor) {
  const double nodes = Get("json/parse.nodes");
  std::printf("\nJSON binding, %.0f-node configuration document (about 1 MB); the value type lock is taken\n",
              nodes);
  std::printf("at every use of a type table: its share is its takes per node times the floor\n");
  std::printf("  %-34s%10s%10s%10s%10s%12s%10s%10s   target\n", "", "ms", "x parse", "ins/node", "heap ins",
              "locks/node", "lock x", "rest x");
  const double parse = Get("json/parse.ns");
  struct Line {
    const char* label;
    const char* key;
    double limit;  // 0: no target
  };
  for (const Line& line :
       {Line{"RapidJSON DOM parse", "json/parse", 0}, Line{"ReadJson", "json/read", 1.5},
        Line{"ReadJson + tree destruction", "json/read_destroy", 0}, Line{"WriteJson", "json/write", 3.0},
        Line{"WriteJson's lock takes alone", "json/write_takes", 0}}) {
    const std::string key = line.key;
    const double ns = Get(key + ".ns");
    const bool isParse = key == "json/parse";
    // The destroying read takes the read's locks: destruction takes none. Its instructions aren't counted.
    const double locks =
        isParse ? NAN : PerOperation(key == "json/read_destroy" ? "json/read" : key, &Counted::lockTakes);
    const double lockShare = locks * nodes * floor / parse;
    std::string target, verdict;
    if (line.limit > 0) {
      char text[16];
      std::snprintf(text, sizeof text, "<= %.1f", line.limit);
      target = text;
      verdict = Verdict(ns / parse, line.limit);
      if (verdict == "MISSED") ++missed;
    }
    std::printf("  %-34s%s%s%s%s%s%s%s   %s  %s\n", line.label, Cell(ns / 1e6, 3).c_str(),
                Cell(ns / parse, 2).c_str(), Cell(Instructions(key), 1).c_str(),
                Cell(PerOperation(key, &Counted::heapInstructions), 1).c_str(), Cell(locks, 2, 12).c_str(),
                Cell(lockShare, 2).c_str(), Cell(ns / parse - lockShare, 2).c_str(), target.c_str(),
                verdict.c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument.compare(0, 12, "--callgrind=") == 0) {
      ReadDumps(argument.substr(12));
    } else {
      ReadMetrics(argument);
    }
  }
  const double floor = Get("floor.ns");
  std::printf(
      "CPU time per operation, the least of each benchmark's repetitions; instructions from callgrind.\n");
  std::printf("Floor: one uncontended std::mutex lock/unlock pair, %s ns, %s instructions.\n",
              Cell(floor, 2, 0).c_str(), Cell(Instructions("floor"), 1, 0).c_str());
  if (Has("render/plain/ours/0.ns")) RenderSection(floor);
  if (Has("base64/encode/ours.ns")) Base64Section();
  if (Has("json/parse.ns")) JsonSection(floor);
  std::printf("\n%d target%s missed\n", missed, missed == 1 ? "" : "s");
  return 0;
}
