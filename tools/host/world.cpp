#include <climits>

#include "roles.h"

namespace quorl::host {

World::World(const BridgeApi& api, int scriptThreads, uint32_t seed, const SessionPlan* session)
    : main(api, Role::kMain, 0, seed), traffic(scriptThreads + 1), registry(scriptThreads) {
  const Role roles[] = {Role::kPlayback, Role::kRender, Role::kLogPoller};
  for (int i = 0; i < scriptThreads + 3; ++i) {
    const Role role = i < scriptThreads ? Role::kScript : roles[i - scriptThreads];
    contexts.push_back(
        std::make_unique<ThreadContext>(api, role, i, seed * 1000003ull + static_cast<uint64_t>(i)));
  }
  for (int i = 0; i < scriptThreads; ++i)
    scripts.push_back(std::make_unique<ScriptRole>(*this, *contexts[static_cast<size_t>(i)]));
  playback = std::make_unique<PlaybackRole>(playbackContext(), log, session);
}

std::vector<const ThreadContext*> World::All() const {
  std::vector<const ThreadContext*> all{&main};
  for (const auto& context : contexts)
    all.push_back(context.get());
  return all;
}

void World::Finish(bool session) {
  traffic.Finish(main, session);
  playback->Finish(main);
  for (auto& script : scripts)
    script->CheckEnd(main);
  for (auto& script : scripts)
    script->RemoveAll(main);
  CheckShutdownGate(main);
  UnderLock(main, false, [&] {
    log.Poll(main, INT_MAX, nullptr);
    log.CheckComplete(main);
  });
  CheckCoverage(main, All());
}

}  // namespace quorl::host
