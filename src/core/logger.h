// Logger: the library's one diagnostics facility, a class of static operations over process-wide state.
//
// A message passes when its severity is at least the threshold (initially 0). It then goes to the one
// installed callback, or, with none, to standard output ("Qz LOG:\t<message>\n" for Log, the text as it
// stands for LogRaw). The first message that passes switches standard output to unbuffered, once per
// load. Print and Statistic always write to standard output.
//
// Threads: any thread may call anything. Delivery runs under a plain (non-recursive) logger mutex, with
// the callback called under it: a callback must not log or call GetCallback. SetCallback takes no lock
// and is meant for a quiet moment such as start-up. The state is usable from static initialisation on.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace quorl {

class Logger {
 public:
  // Severities, compared as numbers: a larger value is more severe. Any other i32 is valid too.
  enum LOG_TYPE : int32_t {
    LOG_VERBOSE = 0,
    LOG_INFO = 1,  // the registration banner
    LOG_NOTICE = 2,
    LOG_WARNING = 3,  // option problems found by the configuration resolver
    LOG_ERROR = 4,
  };

  // Receives the delivered text, zero-terminated; the pointer is valid only during the call.
  using LogCallback = std::function<void(LOG_TYPE, const char*)>;

  Logger() = delete;

  static void SetLevel(int32_t level);
  static int32_t GetLevel();

  // Writes the text up to its first NUL to standard output; no threshold, lock or callback.
  static void Print(const std::string& text);

  // Filtered, with the console prefix and a newline. The middle argument of the second form is ignored.
  static void Log(LOG_TYPE type, const std::string& message);
  static void Log(LOG_TYPE type, int ignored, const std::string& message);

  // Filtered, the text as it stands; an empty text is not delivered.
  static void LogRaw(LOG_TYPE type, const std::string& text);
  static void LogRaw(LOG_TYPE type, int ignored, const std::string& text);

  // Replaces the callback; an empty one restores standard output. Takes no lock (see above).
  static void SetCallback(const LogCallback& callback);
  static LogCallback GetCallback();

  // Writes a TeamCity build statistic service message to standard output, unquoted, unconditionally.
  static void Statistic(const std::string& key, const std::string& value);
};

}  // namespace quorl
