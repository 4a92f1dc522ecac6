// The one way into RapidJSON for this library: every file includes this header instead of RapidJSON's
// own, so that all of them see RapidJSON's size type widened to 64 bits.
//
// RAPIDJSON_NO_SIZETYPEDEFINE is also defined on the quorl_core target (and so on everything that links
// it), since two translation units that disagree on the size type would lay the DOM out differently and
// corrupt memory without a word. Stateless.
#ifndef QUORL_OPTIONS_RAPIDJSON_H_
#define QUORL_OPTIONS_RAPIDJSON_H_

#ifdef RAPIDJSON_RAPIDJSON_H_
#error "options/rapidjson.h must be included before any RapidJSON header, which would fix a 32-bit size type"
#endif

#ifndef RAPIDJSON_NO_SIZETYPEDEFINE
#define RAPIDJSON_NO_SIZETYPEDEFINE
#endif

#include <cstddef>

namespace rapidjson {
typedef ::std::size_t SizeType;
}  // namespace rapidjson

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

static_assert(sizeof(rapidjson::SizeType) == 8, "RapidJSON's size type must be 64 bits wide");

#endif  // QUORL_OPTIONS_RAPIDJSON_H_
