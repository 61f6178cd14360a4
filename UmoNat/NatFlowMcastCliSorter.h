#pragma once

#include <cstddef>
#include <map>
#include <ostream>
#include <utility>

#include "Mox/Ptr.h"
#include "Pelo/String.h"
#include "UmoNat/UmoNatExport.h"

// Puts names in ascending order for the show commands: a set of names, each with a flag, walked
// in Pelo::String order whatever order the names were added in. A value type: a copy holds
// entries of its own, so changing it leaves the original as it was.
//
// There is no text form: stringValue() is always "None", and building a sorter from text is a
// programming error that stops the process.
class UMONAT_EXPORT NatFlowMcastCliSorter {
 public:
  // One name and its flag. The name is fixed at construction; only the owning sorter changes
  // the flag.
  class UMONAT_EXPORT MoxEntryId : public Mox::PtrInterface {
   public:
    MoxEntryId(Pelo::String name, bool value) : name_(std::move(name)), value_(value) {}

    const Pelo::String& name() const { return name_; }
    bool value() const { return value_; }

   protected:
    ~MoxEntryId() override = default;

   private:
    friend class NatFlowMcastCliSorter;

    const Pelo::String name_;
    bool value_;
  };

  // Never holds a null entry; the key is the entry's name.
  using EntryIdMap = std::map<Pelo::String, Mox::Ptr<MoxEntryId>>;
  using const_iterator = EntryIdMap::const_iterator;

  NatFlowMcastCliSorter() = default;
  // Not supported: a sorter has no text form to be read back. Always fails an assertion.
  explicit NatFlowMcastCliSorter(const Pelo::String& text);
  NatFlowMcastCliSorter(const NatFlowMcastCliSorter& other);
  NatFlowMcastCliSorter& operator=(const NatFlowMcastCliSorter& other);
  NatFlowMcastCliSorter(NatFlowMcastCliSorter&&) noexcept = default;
  NatFlowMcastCliSorter& operator=(NatFlowMcastCliSorter&&) noexcept = default;
  ~NatFlowMcastCliSorter() = default;

  const EntryIdMap& entryId() const { return entryId_; }
  std::size_t size() const { return entryId_.size(); }
  bool empty() const { return entryId_.empty(); }
  const_iterator begin() const { return entryId_.begin(); }
  const_iterator end() const { return entryId_.end(); }

  // The entry of `name`, or null. Unlike std::map::operator[], never inserts.
  Mox::Ptr<const MoxEntryId> operator[](const Pelo::String& name) const;
  // The entry of `name` when present, else the first entry after it; end() when there is none.
  // Lets a walk resume after its current entry was removed.
  const_iterator entryIdFindOrNext(const Pelo::String& name) const {
    return entryId_.lower_bound(name);
  }

  // Sets the flag of `name`, adding the entry in its place when the name is new. Returns the
  // entry.
  Mox::Ptr<const MoxEntryId> entryIdIs(const Pelo::String& name, bool value);
  // Removes the entry of `name`; returns whether there was one.
  bool entryIdDel(const Pelo::String& name);
  // Removes the entry at `it`, which must be a valid iterator of this sorter other than end();
  // returns the iterator to the entry after it.
  const_iterator entryIdDel(const_iterator it) { return entryId_.erase(it); }
  void entryIdDelAll() { entryId_.clear(); }

  // True for the same object, or when both hold the same names with the same flags.
  bool isEq(const NatFlowMcastCliSorter& other) const;
  friend bool operator==(const NatFlowMcastCliSorter& a, const NatFlowMcastCliSorter& b) {
    return a.isEq(b);
  }

  // Always "None".
  Pelo::String stringValue() const { return Pelo::String("None"); }
  friend std::ostream& operator<<(std::ostream& os, const NatFlowMcastCliSorter& sorter) {
    return os << sorter.stringValue();
  }

 private:
  EntryIdMap entryId_;
};
