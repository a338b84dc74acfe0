// The undo log's steps: how a transaction keeps the inverse of each change it records.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

#include "aclkit/platform/fwk/Export.h"

namespace fwk {

namespace detail {
// One recorded inverse. Steps are built in place in the thread's undo log, which reuses its
// memory from one transaction to the next: recording a change allocates nothing once the log
// has grown to the size of the work.
class UndoStep {
 public:
  UndoStep() = default;
  UndoStep(const UndoStep&) = delete;
  UndoStep& operator=(const UndoStep&) = delete;
  virtual ~UndoStep() = default;
  virtual void run() = 0;
};

template <class F>
class UndoStepOf final : public UndoStep {
 public:
  explicit UndoStepOf(F undo) : undo_(std::move(undo)) {}
  void run() override { undo_(); }

 private:
  F undo_;
};

// Room for a step of `size` bytes in the log, with a place for it in the log's list; throws
// (recording nothing) when there is none to be had.
ACLKIT_EXPORT void* undoSpace(std::size_t size, std::size_t alignment);
// Adds the step just built in the room undoSpace gave as the newest record; the log destroys
// it when the outermost transaction ends.
ACLKIT_EXPORT void undoPush(UndoStep* step) noexcept;

// Records how to undo the change about to be made.
template <class F>
void undoRecord(F&& undo) {
  using Step = UndoStepOf<std::decay_t<F>>;
  static_assert(alignof(Step) <= alignof(std::max_align_t));
  void* space = undoSpace(sizeof(Step), alignof(Step));
  undoPush(new (space) Step(std::forward<F>(undo)));  // a throwing copy records nothing
}
}  // namespace detail

}  // namespace fwk
