// The shipped libQuorlBridge.so as a host meets it: loaded with dlopen, every export resolved by name,
// the library's exceptions and the host's own callback exceptions caught by the host. QUORL_LIBRARY
// names the file to test (default: this build's library), so one program checks the development
// build, the build with the C++ runtime linked in, and the packaged file on an older system.
//
// All cases share one loaded library, as a game process does; each leaves the state it touched as it
// found it, so the cases pass in any order.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bridge/export_names.h"
#include "bridge/exports.h"

namespace {

std::string LibraryPath() {
  const char* path = std::getenv("QUORL_LIBRARY");
  return path != nullptr && *path != '\0' ? path : QUORL_DEFAULT_LIBRARY;
}

// The exports, resolved once from the library under test; a missing one fails the first case.
struct Library {
#define QUORL_DECLARE(name) decltype(&::name) name = nullptr;
  QUORL_FOR_EACH_EXPORT(QUORL_DECLARE)
#undef QUORL_DECLARE
  void* handle = nullptr;
  std::vector<std::string> missing;

  Library() {
    handle = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      missing.push_back(std::string("(dlopen: ") + dlerror() + ")");
      return;
    }
#define QUORL_RESOLVE(name)                                         \
  name = reinterpret_cast<decltype(&::name)>(dlsym(handle, #name)); \
  if (name == nullptr) missing.push_back(#name);
    QUORL_FOR_EACH_EXPORT(QUORL_RESOLVE)
#undef QUORL_RESOLVE
  }
};

Library& Lib() {
  static Library library;
  return library;
}

// The names the ELF file's dynamic symbol table defines as functions.
std::set<std::string> DefinedDynamicFunctions(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> image((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::set<std::string> functions;
  Elf64_Ehdr header;
  if (image.size() <= sizeof header) return functions;
  std::memcpy(&header, image.data(), sizeof header);
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64)
    return functions;
  auto section = [&](std::size_t index) {
    Elf64_Shdr s;
    std::memcpy(&s, image.data() + header.e_shoff + index * header.e_shentsize, sizeof s);
    return s;
  };
  for (std::size_t i = 0; i < header.e_shnum; ++i) {
    const Elf64_Shdr symbols = section(i);
    if (symbols.sh_type != SHT_DYNSYM) continue;
    const Elf64_Shdr names = section(symbols.sh_link);
    for (std::size_t offset = 0; offset + sizeof(Elf64_Sym) <= symbols.sh_size; offset += sizeof(Elf64_Sym)) {
      Elf64_Sym symbol;
      std::memcpy(&symbol, image.data() + symbols.sh_offset + offset, sizeof symbol);
      if (symbol.st_shndx == SHN_UNDEF || ELF64_ST_TYPE(symbol.st_info) != STT_FUNC) continue;
      functions.insert(image.data() + names.sh_offset + symbol.st_name);
    }
  }
  return functions;
}

// True when another thread can take and give back the bridge mutex; a call that left it held would
// block that thread for good, so the answer waits a generous while and then gives up on it.
bool BridgeMutexFreeForOthers() {
  auto done = std::make_shared<std::promise<void>>();
  std::future<void> taken = done->get_future();
  std::thread([done] {
    Lib().Lock();
    Lib().Unlock();
    done->set_value();
  }).detach();
  return taken.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
}

// An exception type of the host's own, unknown to the library.
struct HostError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Runs `call` and expects it to raise an `Error` whose text is `text`.
template <typename Error>
void ExpectError(const std::string& what, const char* text, const std::function<void()>& call) {
  try {
    call();
    ADD_FAILURE() << what << ": no exception";
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(), text) << what;
  } catch (...) {
    ADD_FAILURE() << what << ": an exception of another type";
  }
}

void ExpectHostError(const char* what, const std::function<void()>& call) {
  ExpectError<HostError>(what, what, call);
}

TEST(ShippedLibrary, DefinesExactlyTheThirtyFiveExportsAndResolvesEach) {
  std::set<std::string> expected;
#define QUORL_NAME(name) expected.insert(#name);
  QUORL_FOR_EACH_EXPORT(QUORL_NAME)
#undef QUORL_NAME
  ASSERT_EQ(expected.size(), 35u);
  const std::set<std::string> defined = DefinedDynamicFunctions(LibraryPath());
  std::vector<std::string> missing;
  std::vector<std::string> extra;
  std::set_difference(expected.begin(), expected.end(), defined.begin(), defined.end(),
                      std::back_inserter(missing));
  std::set_difference(defined.begin(), defined.end(), expected.begin(), expected.end(),
                      std::back_inserter(extra));
  EXPECT_TRUE(missing.empty()) << LibraryPath() << " lacks " << ::testing::PrintToString(missing);
  EXPECT_TRUE(extra.empty()) << LibraryPath() << " also exports " << ::testing::PrintToString(extra);
  EXPECT_TRUE(Lib().missing.empty()) << "not resolved: " << ::testing::PrintToString(Lib().missing);
}

class ShippedLibraryCalls : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(Lib().missing.empty()) << "the library did not load whole"; }
  Library& lib = Lib();
};

TEST_F(ShippedLibraryCalls, HostCatchesTheNullTextErrorAndNothingChanges) {
  lib.Scene_Objects_Add(7, "kept", "type");
  lib.Map_Add("kept", 9);
  const std::pair<const char*, std::function<void()>> calls[] = {
      {"Map_Add", [&] { lib.Map_Add(nullptr, 1); }},
      {"Map_Remove", [&] { lib.Map_Remove(nullptr); }},
      {"Map_Contains", [&] { lib.Map_Contains(nullptr); }},
      {"Map_GetValue", [&] { lib.Map_GetValue(nullptr); }},
      {"Map_SetValue", [&] { lib.Map_SetValue(nullptr, 1); }},
      {"Scene_Objects_Add name", [&] { lib.Scene_Objects_Add(8, nullptr, "type"); }},
      {"Scene_Objects_Add type", [&] { lib.Scene_Objects_Add(8, "name", nullptr); }},
      {"Scene_Objects_GetHandleFromName", [&] { lib.Scene_Objects_GetHandleFromName(nullptr); }},
      {"LogBuffer_Add", [&] { lib.LogBuffer_Add(1, nullptr); }},
      {"RegisterUnityPlugin", [&] { lib.RegisterUnityPlugin(1, 2, 3, nullptr); }},
  };
  for (const auto& [what, call] : calls) {
    ExpectError<std::logic_error>(what, "basic_string::_M_construct null not valid", call);
    EXPECT_TRUE(BridgeMutexFreeForOthers()) << what;
  }
  EXPECT_EQ(lib.Scene_Objects_GetCount(), 1) << "a half-built record was kept";
  EXPECT_EQ(lib.Map_GetValue("kept"), 9);
  EXPECT_EQ(lib.LogBuffer_Get(), nullptr);
  lib.Scene_Objects_Remove(7);
  lib.Map_Remove("kept");
  // The name becomes a text only to compare it with a record's, so an empty registry finds nothing.
  EXPECT_EQ(lib.Scene_Objects_GetHandleFromName(nullptr), 0);
}

TEST_F(ShippedLibraryCalls, CallbackExceptionsPassThroughToTheHost) {
  const int32_t id = lib.QueueGLEventI([](int32_t) { throw HostError("render"); }, 0);
  ExpectHostError("render", [&] { lib.UnityRenderEvent(id); });
  lib.UnityRenderEvent(id);  // the slot was freed before the call: nothing runs, nor throws, again
  EXPECT_EQ(lib.QueueGLEvent([] {}), id) << "the thrown event's slot is free again";
  lib.UnityRenderEvent(id);

  lib.SetFunc_InterfaceShutdown([] { throw HostError("shutdown"); });
  ExpectHostError("shutdown", [&] { lib.Trigger_InterfaceShutdown(); });
  EXPECT_TRUE(BridgeMutexFreeForOthers());
  // A pending shutdown whose callback throws at the last removal stays pending.
  lib.Scene_Objects_Add(41, "gate", "object");
  lib.Trigger_InterfaceShutdown();
  ExpectHostError("shutdown", [&] { lib.Scene_Objects_Remove(41); });
  ExpectHostError("shutdown", [&] { lib.Scene_Objects_Remove(41); });
  lib.SetFunc_InterfaceShutdown(nullptr);
  lib.Scene_Objects_Remove(41);  // clears the pending mark
  EXPECT_TRUE(BridgeMutexFreeForOthers());

  RepresentationDescriptor descriptor{"video/mp4", "key"};
  lib.Callback_Set_OnAssetInitialised([](int32_t, void*) { throw HostError("initialised"); });
  lib.Callback_Set_OnAssetSelectRepresentation(
      [](RepresentationDescriptor*, int32_t, void*, int32_t, void*) -> bool { throw HostError("select"); });
  lib.Callback_Set_OnAssetRepresentationDataReceived(
      [](void*, void*, void*, int32_t, void*, float) { throw HostError("data"); });
  ExpectHostError("initialised", [&] { lib.StaticHandler_OnAssetInitialised(1, nullptr); });
  ExpectHostError(
      "select", [&] { lib.StaticHandler_OnAssetSelectRepresentation(&descriptor, 0, nullptr, 0, nullptr); });
  ExpectHostError("data", [&] {
    lib.StaticHandler_OnAssetRepresentationDataReceived(nullptr, nullptr, nullptr, 0, nullptr, 1);
  });
  lib.Callback_Set_OnAssetInitialised(nullptr);
  lib.Callback_Set_OnAssetSelectRepresentation(nullptr);
  lib.Callback_Set_OnAssetRepresentationDataReceived(nullptr);
  EXPECT_TRUE(BridgeMutexFreeForOthers());
}

std::vector<std::string> renderCalls;
void RecordIII(int32_t a, int32_t b, int32_t c) {
  renderCalls.push_back("III " + std::to_string(a) + " " + std::to_string(b) + " " + std::to_string(c));
}
std::string ContextText(const FrameContext* context) {
  return std::to_string(context->structSize) + " " + std::to_string(context->reserved0) + " " +
         std::to_string(context->reserved1) + " " + std::to_string(context->reserved2);
}
void RecordContextI(int32_t a, const FrameContext* context) {
  renderCalls.push_back("ContextI " + std::to_string(a) + " " + ContextText(context));
}
void RecordContextIII(int32_t a, int32_t b, int32_t c, const FrameContext* context) {
  renderCalls.push_back("ContextIII " + std::to_string(a) + " " + std::to_string(b) + " " +
                        std::to_string(c) + " " + ContextText(context));
}

TEST_F(ShippedLibraryCalls, RenderEventsRunOnceFromTheLowestFreeSlot) {
  renderCalls.clear();
  int x = 0;
  const int32_t first = lib.QueueGLEventIII(&RecordIII, 1, 2, 3);
  const int32_t second = lib.QueueGLEventPrepFrameContextI(&RecordContextI, 4, &x, &x);
  const int32_t third = lib.QueueGLEventPrepFrameContextIII(&RecordContextIII, 5, 6, 7, nullptr, &x);
  // Every case leaves all slots free, so the first gets the lowest identifier.
  EXPECT_EQ(first, 16000);
  EXPECT_EQ(second, 16001);
  EXPECT_EQ(third, 16002);

  lib.UnityRenderEvent(second);
  lib.UnityRenderEvent(first);
  lib.UnityRenderEvent(first);  // fired already: nothing runs
  EXPECT_EQ(lib.QueueGLEventIII(&RecordIII, 8, 9, 10), first)
      << "the lowest free slot, whatever was freed last";
  // The engine calls through the address it is given, not the name.
  const auto fire = reinterpret_cast<void (*)(int32_t)>(lib.UnityRenderEventFunc());
  EXPECT_EQ(reinterpret_cast<void*>(fire), dlsym(lib.handle, "UnityRenderEvent"));
  fire(third);
  fire(first);
  fire(15999);
  fire(third + 1000);
  EXPECT_EQ(renderCalls, (std::vector<std::string>{"ContextI 4 24 0 0 0", "III 1 2 3",
                                                   "ContextIII 5 6 7 24 0 0 0", "III 8 9 10"}));
  EXPECT_EQ(lib.GetUnityRenderDevice(), 0);
}

int shutdownCalls = 0;

TEST_F(ShippedLibraryCalls, SceneObjectsGateTheInterfaceShutdown) {
  shutdownCalls = 0;
  lib.SetFunc_InterfaceShutdown([] { ++shutdownCalls; });
  lib.Scene_Objects_Add(5, "camera", "Camera");
  lib.Scene_Objects_Add(6, "mesh", "Mesh");
  lib.Trigger_InterfaceShutdown();
  EXPECT_EQ(shutdownCalls, 0) << "objects exist: the shutdown waits";
  EXPECT_EQ(lib.Scene_Objects_GetHandleFromName("mesh"), 6);
  lib.Scene_Objects_Remove(5);
  EXPECT_EQ(shutdownCalls, 0);
  lib.Scene_Objects_Remove(6);
  EXPECT_EQ(shutdownCalls, 1) << "the last removal carries the shutdown out";
  lib.Trigger_InterfaceShutdown();
  EXPECT_EQ(shutdownCalls, 2) << "an empty registry shuts down at once";
  lib.SetFunc_InterfaceShutdown(nullptr);
}

TEST_F(ShippedLibraryCalls, NamedIntegersAddNeverOverwritesAndSetNeverCreates) {
  lib.Map_Add("lives", 3);
  lib.Map_Add("lives", 9);
  lib.Map_SetValue("missing", 1);
  lib.Map_Add("Lives", 0);  // another key: keys compare case by case
  lib.Map_Add("", -5);      // the empty text is a key too
  lib.Map_SetValue("", 6);
  EXPECT_EQ(lib.Map_GetValue("lives"), 3);
  EXPECT_EQ(lib.Map_GetValue(""), 6);
  EXPECT_FALSE(lib.Map_Contains("missing"));
  EXPECT_EQ(lib.Map_GetValue("missing"), 0);
  EXPECT_TRUE(lib.Map_Contains("Lives")) << "a stored zero is told apart from an absent name";
  for (const char* name : {"lives", "Lives", "", "missing"})
    lib.Map_Remove(name);
  for (const char* name : {"lives", "Lives", ""})
    EXPECT_FALSE(lib.Map_Contains(name)) << name;
}

TEST_F(ShippedLibraryCalls, LogBufferGivesTheOldestEntryThroughOneView) {
  EXPECT_EQ(lib.LogBuffer_Get(), nullptr);
  lib.LogBuffer_Pop();  // nothing to pop: no effect
  const std::string longText(1000, 'q');
  lib.LogBuffer_Add(7, longText.c_str());
  lib.LogBuffer_Add(-2, "");
  LogBufferView* view = lib.LogBuffer_Get();
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(lib.LogBuffer_Get(), view) << "one view, at one address";
  EXPECT_EQ(view->level, 7);
  EXPECT_EQ(view->message, longText) << "a long text comes back whole";
  lib.LogBuffer_Pop();
  EXPECT_EQ(lib.LogBuffer_Get(), view);
  EXPECT_EQ(view->level, -2);
  EXPECT_STREQ(view->message, "");
  lib.LogBuffer_Pop();
  EXPECT_EQ(lib.LogBuffer_Get(), nullptr);
  EXPECT_EQ(view->level, -2) << "a get that finds nothing leaves the view as it was";
}

int32_t relayed = 0;

TEST_F(ShippedLibraryCalls, AssetEventsReachTheHost) {
  lib.Callback_Set_OnAssetInitialised([](int32_t value, void*) { relayed = value; });
  lib.StaticHandler_OnAssetInitialised(17, nullptr);
  EXPECT_EQ(relayed, 17);
  lib.Callback_Set_OnAssetInitialised(nullptr);
  lib.Callback_Set_OnAssetSelectRepresentation(
      [](RepresentationDescriptor*, int32_t value0, void*, int32_t, void*) {
        relayed = value0;
        return false;
      });
  RepresentationDescriptor video{"video/mp4", "low"};
  EXPECT_FALSE(lib.StaticHandler_OnAssetSelectRepresentation(&video, 31, nullptr, 0, nullptr));
  EXPECT_EQ(relayed, 31);
  lib.Callback_Set_OnAssetSelectRepresentation(nullptr);
  EXPECT_TRUE(lib.StaticHandler_OnAssetSelectRepresentation(&video, 0, nullptr, 0, nullptr))
      << "not volumetric";
  EXPECT_STREQ(lib.QuorlError_ToString(201), "Failed to parse manifest");
}

}  // namespace
