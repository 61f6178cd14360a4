#include "UmoNat/NatFlowMcastCliSorter.h"

#include <algorithm>
#include <utility>

#include "Mox/Assert.h"

NatFlowMcastCliSorter::NatFlowMcastCliSorter(const Pelo::String& /*text*/) {
  MOX_ASSERT("No String constructor for NatFlowMcastCliSorter - has collection" == nullptr);
}

NatFlowMcastCliSorter::NatFlowMcastCliSorter(const NatFlowMcastCliSorter& other) {
  for (const auto& [name, entry] : other.entryId_) {
    entryId_.emplace_hint(entryId_.end(), name, Mox::makePtr<MoxEntryId>(name, entry->value()));
  }
}

NatFlowMcastCliSorter& NatFlowMcastCliSorter::operator=(const NatFlowMcastCliSorter& other) {
  if (this == &other) return *this;
  NatFlowMcastCliSorter copy(other);
  entryId_.swap(copy.entryId_);
  return *this;
}

Mox::Ptr<const NatFlowMcastCliSorter::MoxEntryId> NatFlowMcastCliSorter::operator[](
    const Pelo::String& name) const {
  auto it = entryId_.find(name);
  if (it == entryId_.end()) return nullptr;
  return it->second;
}

Mox::Ptr<const NatFlowMcastCliSorter::MoxEntryId> NatFlowMcastCliSorter::entryIdIs(
    const Pelo::String& name, bool value) {
  auto it = entryId_.lower_bound(name);
  if (it != entryId_.end() && it->first == name) {
    it->second->value_ = value;
    return it->second;
  }
  it = entryId_.emplace_hint(it, name, Mox::makePtr<MoxEntryId>(name, value));
  return it->second;
}

bool NatFlowMcastCliSorter::entryIdDel(const Pelo::String& name) {
  return entryId_.erase(name) != 0;
}

bool NatFlowMcastCliSorter::isEq(const NatFlowMcastCliSorter& other) const {
  if (this == &other) return true;
  return std::equal(entryId_.begin(), entryId_.end(), other.entryId_.begin(), other.entryId_.end(),
                    [](const auto& a, const auto& b) {
                      return a.first == b.first && a.second->value() == b.second->value();
                    });
}
