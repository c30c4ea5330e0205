#include "Orb/PtrInterface.h"

#include "Orb/Assert.h"
#include "Orb/Notifiee.h"

namespace Orb {

namespace Impl {
std::atomic<bool> threadSafePtrs{false};
}

PtrInterface::~PtrInterface() { ORB_ASSERT(references() == 1); }

void PtrInterface::flagIs(uint32_t flag, bool on) const noexcept {
  if (threadSafePtrs()) {
    on ? word_.fetch_or(flag, std::memory_order_acq_rel) : word_.fetch_and(~flag, std::memory_order_acq_rel);
  } else {
    word_.store(on ? word() | flag : word() & ~flag, std::memory_order_relaxed);
  }
}

void PtrInterface::zeroReferences() const {
  newRef();  // the object lives while its notifiees are told, whatever they take and drop
  if (NotifieeList* list = notifieeList()) list->notifyZeroReferences();
  if ((wordAdd(~uint32_t{0}) & countMask) != 0) return;
  newRef();  // and while its destructor runs
  delete this;
}

}  // namespace Orb
