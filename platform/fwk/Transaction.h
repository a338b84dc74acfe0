// fwk::Transaction: a piece of work on the framework's thread that happens whole or not at
// all.
//
//   {
//     fwk::Transaction transaction;
//     acl->currCfgIs(fresh);        // recorded with its inverse
//     status->requestIs(now);       // an observer throws here: currCfg is put back
//   }
//
// While a transaction lives on a thread, every framework mutation there (scalar set,
// collection entry set or removed, child made or deleted) of an entity that existed when
// the transaction began is recorded with its inverse before it is made. When the scope is
// left by an exception, what it recorded is undone, newest first, before the exception
// goes on: observers see the reverse changes, the entities removed come back as the same
// objects, and faults, new records and observers' exceptions are suppressed meanwhile.
// A scope left normally hands its records to the scope around it, or drops them when it is
// the outermost. Scopes nest as savepoints: an inner scope that fails undoes only its own
// work, even when an outer caller catches the exception and goes on.
//
// Changes to entities made inside the scope are not recorded: undoing the change that
// linked such an entity in takes it out again. Nor are changes to an entity nobody holds (one
// being built, or destroyed). Records hold the entities they restore, so
// an entity removed inside a transaction is destroyed when the outermost scope ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/internal/UndoLog.h"

namespace fwk {

class Entity;

class ACLKIT_EXPORT Transaction {
 public:
  Transaction() noexcept;
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // True while the thread is inside at least one transaction.
  [[nodiscard]] static bool active() noexcept;
  // True while a failed transaction is being undone on this thread. Observers hear the
  // reverse changes; one that keeps bookkeeping the undo restores anyway does nothing then,
  // since what it wrote now would not be undone.
  [[nodiscard]] static bool undoing() noexcept;

  // For state the framework does not see (what a reactor of `owner` watches): when a change
  // to `owner` would be recorded now, record `undo` as its inverse.
  //
  //   if (fwk::Transaction::recording(*this)) fwk::Transaction::undoWith([...] { ... });
  [[nodiscard]] static bool recording(const Entity& owner) noexcept;
  template <class F>
  static void undoWith(F&& undo) {
    detail::undoRecord(std::forward<F>(undo));
  }

 private:
  Transaction* outer_ = nullptr;
  std::size_t savepoint_ = 0;
  std::uint64_t firstSerial_;
  int uncaughtAtStart_;
};

namespace detail {
// True when the innermost live transaction must record a change to `entity`: one is live,
// no undo is running, and the entity existed when it began.
[[nodiscard]] ACLKIT_EXPORT bool undoRecording(const Entity& entity) noexcept;
}  // namespace detail

}  // namespace fwk
