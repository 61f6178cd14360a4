#include "Mox/Ptr.h"

#include "Mox/Assert.h"
#include "Pelo/String.h"

namespace Mox {

namespace detail {
std::atomic<bool> threadSafePtr{false};
}

namespace {
std::atomic<std::int64_t> liveInstances{0};
}

void threadSafePtrIs(bool threadSafe) {
  detail::threadSafePtr.store(threadSafe, std::memory_order_relaxed);
  Pelo::threadSafeStringsIs(threadSafe);
}
bool threadSafePtr() { return detail::threadSafePtr.load(std::memory_order_relaxed); }

PtrInterface::PtrInterface() noexcept { liveInstances.fetch_add(1, std::memory_order_relaxed); }

PtrInterface::~PtrInterface() {
  MOX_ASSERT(references() == 0);
  liveInstances.fetch_sub(1, std::memory_order_relaxed);
}

std::int64_t PtrInterface::instances() noexcept {
  return liveInstances.load(std::memory_order_relaxed);
}

}  // namespace Mox
