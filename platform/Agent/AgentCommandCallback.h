#pragma once

#include <cstddef>
#include <cstdint>

#include "Mox/Collection.h"
#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Pelo/String.h"

namespace Agent {

// A command that a plug-in offers through the agent's command framework, such as a show
// command. The plug-in creates it, keeps a reference while it is loaded and registers it with
// the agent's CommandRegistry; name and help text are fixed at construction.
class AgentCommandCallback : public Mox::Entity {
 public:
  const Pelo::String& name() const { return nameString(); }
  // One-line help text shown by the agent's command listing.
  const Pelo::String& help() const { return help_; }

  // Handles one command line sent to the agent. `socket` is the file descriptor of the
  // requester's connection; all output, errors included, is written to it, and it stays open
  // (the framework closes it). Every registered callback sees every line and does nothing for a
  // line that is not its command. Runs on the agent's thread; must not block on the requester.
  virtual void handleCommand(std::uint32_t socket, const Pelo::String& command) = 0;

 protected:
  AgentCommandCallback(Pelo::String name, Pelo::String help);
  ~AgentCommandCallback() override = default;

 private:
  Pelo::String help_;
};

// The agent's table of command callbacks by name; routes each command line to them. Owned by
// the agent; holds a reference to each registered callback.
class CommandRegistry {
 public:
  // Registers `callback`, which must not be null, under its name, replacing the callback
  // registered under that name.
  void callbackIs(Mox::Ptr<AgentCommandCallback> callback);
  // Unregisters the callback of `name`; returns whether there was one.
  bool callbackDel(const Pelo::String& name);

  // Calls handleCommand(socket, line) of every registered callback in ascending name order and
  // returns how many were called. A callback may register and unregister callbacks (itself
  // included) from inside handleCommand: one unregistered before its turn is not called, one
  // registered under a name after the current one is.
  std::size_t dispatch(std::uint32_t socket, const Pelo::String& line);

 private:
  Mox::Collection<Pelo::String, Mox::Ptr<AgentCommandCallback>> callbacks_;
};

}  // namespace Agent
