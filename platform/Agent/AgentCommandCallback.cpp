#include "Agent/AgentCommandCallback.h"

#include <utility>

#include "Mox/Assert.h"

namespace Agent {

AgentCommandCallback::AgentCommandCallback(Pelo::String name, Pelo::String help)
    : Mox::Entity(std::move(name)), help_(std::move(help)) {}

void CommandRegistry::callbackIs(Mox::Ptr<AgentCommandCallback> callback) {
  MOX_ASSERT(callback != nullptr);
  const Pelo::String name = callback->name();
  callbacks_.is(name, std::move(callback));
}

bool CommandRegistry::callbackDel(const Pelo::String& name) { return callbacks_.del(name); }

std::size_t CommandRegistry::dispatch(std::uint32_t socket, const Pelo::String& line) {
  std::size_t called = 0;
  for (auto it = callbacks_.begin(); it != callbacks_.end(); ++it) {
    // The callback stays alive through its call even when it unregisters itself.
    const Mox::Ptr<AgentCommandCallback> callback = it->second;
    callback->handleCommand(socket, line);
    ++called;
  }
  return called;
}

}  // namespace Agent
