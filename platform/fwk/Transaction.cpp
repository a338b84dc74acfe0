#include "aclkit/platform/fwk/Transaction.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Fault.h"

namespace fwk {

namespace {

// Bump allocation for undo steps, in chunks kept from one transaction to the next.
class StepArena {
 public:
  void* allocate(std::size_t size, std::size_t alignment) {
    for (;;) {
      if (current_ < chunks_.size()) {
        const std::size_t at = (used_ + alignment - 1) / alignment * alignment;
        if (at + size <= chunks_[current_].size) {
          used_ = at + size;
          return chunks_[current_].bytes.get() + at;
        }
        if (current_ + 1 < chunks_.size()) {
          ++current_;
          used_ = 0;
          continue;
        }
      }
      chunks_.reserve(chunks_.size() + 1);
      const std::size_t bytes = std::max(chunkBytes, size);
      chunks_.push_back(Chunk{std::make_unique_for_overwrite<std::byte[]>(bytes), bytes});
      current_ = chunks_.size() - 1;
      used_ = 0;
    }
  }
  [[nodiscard]] bool unused() const noexcept { return chunks_.empty(); }
  // Forgets every step; keeps the first chunk, so that a log that once took a bulk load does
  // not hold its memory for good.
  void reset() noexcept {
    if (chunks_.size() > 1) chunks_.resize(1);
    current_ = 0;
    used_ = 0;
  }

 private:
  static constexpr std::size_t chunkBytes = std::size_t{16} * 1024;
  struct Chunk {
    std::unique_ptr<std::byte[]> bytes;
    std::size_t size;
  };
  std::vector<Chunk> chunks_;
  std::size_t current_ = 0;
  std::size_t used_ = 0;
};

struct UndoLog {
  Transaction* innermost = nullptr;
  std::uint64_t innermostFirstSerial = 0;
  std::vector<detail::UndoStep*> records;  // oldest first, each built in `arena`
  StepArena arena;
  bool undoing = false;
};
// Every mutation reads the thread's log. A thread_local with a destructor is reached through
// a guard that, from a shared library, costs a call into the dynamic linker on each read; a
// plain pointer in initial-exec storage is one load. The log lives in an owner made on the
// thread's first transaction, which clears the pointer when the thread ends.
[[gnu::tls_model("initial-exec")]] thread_local UndoLog* threadLog = nullptr;

struct LogOwner {
  LogOwner() noexcept { threadLog = &log; }
  ~LogOwner() { threadLog = nullptr; }
  LogOwner(const LogOwner&) = delete;
  LogOwner& operator=(const LogOwner&) = delete;
  UndoLog log;
};

UndoLog& undoLog() noexcept {
  if (UndoLog* log = threadLog) [[likely]]
    return *log;
  thread_local LogOwner owner;
  return owner.log;
}

// The record list a finished log keeps for the next one, at most this long.
constexpr std::size_t recordsKept = 4096;

}  // namespace

Transaction::Transaction() noexcept : firstSerial_(Entity::nextSerial()), uncaughtAtStart_(std::uncaught_exceptions()) {
  UndoLog& log = undoLog();
  outer_ = log.innermost;
  savepoint_ = log.records.size();
  log.innermost = this;
  log.innermostFirstSerial = firstSerial_;
}

Transaction::~Transaction() {
  UndoLog& log = undoLog();
  // Asking for the exceptions in flight costs a call into the runtime; most scopes record
  // nothing of their own and need not ask.
  if (log.records.size() > savepoint_ && std::uncaught_exceptions() > uncaughtAtStart_ && !log.undoing) {
    // Newest first; an undo that fails (an observer throwing) does not stop the others.
    log.undoing = true;
    fault::Suspend noFaults;
    while (log.records.size() > savepoint_) {
      detail::UndoStep* undo = log.records.back();
      log.records.pop_back();
      try {
        undo->run();
      } catch (...) {  // NOLINT(bugprone-empty-catch): the first exception is the one reported
      }
      undo->~UndoStep();  // its room in the arena goes with the outermost scope
    }
    log.undoing = false;
  }
  log.innermost = outer_;
  log.innermostFirstSerial = outer_ ? outer_->firstSerial_ : 0;
  if (!outer_) {
    // Released after the log is closed: a destructor that runs now records nothing, and one
    // that opens a transaction of its own records into a fresh log, not into these steps.
    std::vector<detail::UndoStep*> done;
    done.swap(log.records);
    StepArena room = std::move(log.arena);
    log.arena = StepArena();
    for (detail::UndoStep* step : done) step->~UndoStep();
    done.clear();
    if (log.records.empty() && log.records.capacity() == 0 && done.capacity() <= recordsKept) {
      log.records.swap(done);
    }
    if (log.arena.unused()) {
      room.reset();
      log.arena = std::move(room);
    }
  }
}

bool Transaction::active() noexcept {
  const UndoLog* log = threadLog;
  return log && log->innermost != nullptr;
}

bool Transaction::undoing() noexcept {
  const UndoLog* log = threadLog;
  return log && log->undoing;
}

bool Transaction::recording(const Entity& owner) noexcept {
  return detail::undoRecording(owner);
}

namespace detail {

bool undoRecording(const Entity& entity) noexcept {
  const UndoLog* log = threadLog;
  // An entity nobody holds is being built or destroyed: nothing to put back into it.
  return log && log->innermost && !log->undoing && entity.serial() < log->innermostFirstSerial &&
         entity.fwkReferences() > 0;
}

void* undoSpace(std::size_t size, std::size_t alignment) {
  UndoLog& log = undoLog();
  if (log.records.size() == log.records.capacity())
    log.records.reserve(std::max<std::size_t>(64, 2 * log.records.size()));
  return log.arena.allocate(size, alignment);
}

void undoPush(UndoStep* step) noexcept {
  undoLog().records.push_back(step);  // room was reserved by undoSpace
}

}  // namespace detail

}  // namespace fwk
