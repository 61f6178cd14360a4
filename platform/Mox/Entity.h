#pragma once

#include "Mox/Ptr.h"
#include "Pelo/Publisher.h"
#include "Pelo/String.h"

namespace Mox {

// A reference-counted object with a name that publishes the changes of its
// attributes: each change reaches the subscribers as (attribute, key), the key
// being the collection key of the changed element or empty for a scalar.
class Entity : public PtrInterface, public Pelo::Publisher {
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
