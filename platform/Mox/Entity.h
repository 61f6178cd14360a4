#pragma once

#include "Mox/Ptr.h"
#include "Pelo/Publisher.h"
#include "Pelo/String.h"

namespace Mox {

// A reference-counted object without a name that publishes the changes of its attributes: each
// change reaches the subscribers as (attribute, key), the key being the collection key of the
// changed element or empty for a scalar. For values held by reference in other records (a
// programmed action's port sets), of which there are several per action and which nothing looks
// up by name.
class ValueEntity : public PtrInterface, public Pelo::Publisher {
 protected:
  ValueEntity() = default;
  ~ValueEntity() override = default;
};

// A value entity with a name: records, state machines and tasks.
class Entity : public ValueEntity {
 public:
  const Pelo::String& nameString() const { return name_; }

  // Hook for an owner that adopts this entity; does nothing by default.
  virtual void handleParent(Entity* parent);

 protected:
  explicit Entity(Pelo::String name = Pelo::String()) : name_(std::move(name)) {}
  ~Entity() override = default;

 private:
  Pelo::String name_;
};

}  // namespace Mox
