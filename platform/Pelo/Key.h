#pragma once

#include <cstdint>
#include <variant>

#include "Bridging/Types.h"
#include "Nexo/EthAddr.h"
#include "Nexo/IntfId.h"
#include "Pelo/String.h"

namespace Pelo {

// Identifies an attribute of a publisher. Each entity class numbers its own
// attributes (see the `Attr` constants of the record classes).
using AttrId = std::uint32_t;

// The key that comes with a change notification: the collection key of the
// changed element, or nothing for a scalar attribute. A Key holds exactly one of
// the key kinds that the collections of the system use.
class Key {
 public:
  Key() = default;
  Key(String k) : v_(std::move(k)) {}        // NOLINT(google-explicit-constructor)
  Key(const char* k) : v_(String(k)) {}      // NOLINT(google-explicit-constructor)
  Key(std::uint16_t k) : v_(k) {}            // NOLINT(google-explicit-constructor)
  Key(Nexo::IntfId k) : v_(std::move(k)) {}  // NOLINT(google-explicit-constructor)
  Key(Nexo::EthAddr k) : v_(k) {}            // NOLINT(google-explicit-constructor)
  Key(Bridging::VlanId k) : v_(k) {}         // NOLINT(google-explicit-constructor)
  Key(Bridging::Fid k) : v_(k) {}            // NOLINT(google-explicit-constructor)
  Key(const void* k) : v_(k) {}              // NOLINT(google-explicit-constructor)

  // True for the key of a scalar attribute's change.
  bool empty() const { return std::holds_alternative<std::monostate>(v_); }

  // The key as a T; throws std::bad_variant_access when it holds another kind.
  template <class T>
  const T& get() const {
    return std::get<T>(v_);
  }
  // The key as a T, or null when it holds another kind.
  template <class T>
  const T* getIf() const {
    return std::get_if<T>(&v_);
  }

  friend bool operator==(const Key& a, const Key& b) = default;

 private:
  std::variant<std::monostate, String, std::uint16_t, Nexo::IntfId, Nexo::EthAddr, Bridging::VlanId,
               Bridging::Fid, const void*>
      v_;
};

}  // namespace Pelo
