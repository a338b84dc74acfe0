#include "aclkit/platform/fwk/Transaction.h"

#include <exception>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Fault.h"

namespace fwk {

namespace {
struct UndoLog {
  Transaction* innermost = nullptr;
  std::uint64_t innermostFirstSerial = 0;
  std::vector<std::function<void()>> records;
  bool undoing = false;
};
thread_local UndoLog undoLog;
}  // namespace

Transaction::Transaction() noexcept
    : outer_(undoLog.innermost),
      savepoint_(undoLog.records.size()),
      firstSerial_(Entity::nextSerial()),
      uncaughtAtStart_(std::uncaught_exceptions()) {
  undoLog.innermost = this;
  undoLog.innermostFirstSerial = firstSerial_;
}

Transaction::~Transaction() {
  UndoLog& log = undoLog;
  if (std::uncaught_exceptions() > uncaughtAtStart_ && !log.undoing) {
    // Newest first; an undo that fails (an observer throwing) does not stop the others.
    log.undoing = true;
    fault::Suspend noFaults;
    while (log.records.size() > savepoint_) {
      std::function<void()> undo = std::move(log.records.back());
      log.records.pop_back();
      try {
        undo();
      } catch (...) {  // NOLINT(bugprone-empty-catch): the first exception is the one reported
      }
    }
    log.undoing = false;
  }
  log.innermost = outer_;
  log.innermostFirstSerial = outer_ ? outer_->firstSerial_ : 0;
  if (!outer_) {
    // Released after the log is closed: a destructor that runs now records nothing.
    std::vector<std::function<void()>> done;
    done.swap(log.records);
  }
}

bool Transaction::active() noexcept {
  return undoLog.innermost != nullptr;
}

bool Transaction::undoing() noexcept {
  return undoLog.undoing;
}

bool Transaction::recording(const Entity& owner) noexcept {
  return detail::undoRecording(owner);
}

void Transaction::undoWith(std::function<void()> undo) {
  detail::undoRecord(std::move(undo));
}

namespace detail {

bool undoRecording(const Entity& entity) noexcept {
  const UndoLog& log = undoLog;
  // An entity nobody holds is being built or destroyed: nothing to put back into it.
  return log.innermost && !log.undoing && entity.serial() < log.innermostFirstSerial && entity.fwkReferences() > 0;
}

void undoRecord(std::function<void()> undo) {
  undoLog.records.push_back(std::move(undo));
}

}  // namespace detail

}  // namespace fwk
