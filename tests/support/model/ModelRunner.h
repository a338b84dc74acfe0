// Runs operations on the library and on the reference model side by side.
//
//   model::Runner runner;
//   for (const model::Op& op : ops) {
//     if (std::string fault = runner.step(op); !fault.empty()) report(fault);
//   }
//   report(runner.finish());
//
// An operation is a kind, a session slot and four argument bytes; the bytes are read against
// the library's state at the time the operation runs (an "existing place" picks one of the
// places the scratchpad holds then), so any sequence of operations is meaningful and shrinks
// well. After each step the runner compares every result, session, content count, ACL,
// version and binding with the model and runs the library's own invariant checks; finish()
// drops the sessions and checks that no observer, reference or entity is left behind.
//
// Besides the session's own operations the language installs the observers callers write:
//   - one that lets go of the session when it reports succeeded or errHw; the model says
//     whether the session's state became one of those in the step, and the slot must be
//     empty exactly then;
//   - one that throws, once, at the next change of what it watches (a session's apiState,
//     its scratchpad's places, the hardware request time, an ACL's current version); the
//     model says whether the step changes it, the library must throw exactly then, and the
//     store and the sessions must then be as they were before the step (the model does not
//     apply it). At most one is armed at a time;
//   - one that commits the session at the next change of its scratchpad, and one that
//     reverts it when it reports errHw. The model cannot follow what those do inside another
//     operation: once one has acted, the rest of the input runs on the library alone, with
//     the invariant checks, snapshot equality after a throw and the checks at the end.
// Sessions may also be opened with a null argument: a null config or hwConfig must throw
// fwk::NullArgumentError and change nothing; the others open a session the model knows how
// to follow (no interface table, no dataplanes, no capabilities, or no difference at all).
//
// Operations the library documents as leaving its content counts behind the scratchpad (a
// remark removed at a place holding none, an automatic remark number wrapping past the top
// onto another remark, a resequence by 0, a by-content removal through another family's
// default rule) are modelled: the model keeps the counts as the library does, and the
// invariant checker must report exactly the counts the model says drifted. Operations of the
// wrong session kind that assert (remove, attach, detach) are skipped; they are death tests.
#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>

namespace model {

enum class OpKind : std::uint8_t {
  open,
  addRule,
  addRemark,
  removeRemark,
  removeRange,
  removeByContent,
  resequence,
  flag,
  commit,
  revert,
  remove,
  attachDetach,
  dataplaneWaits,
  dataplaneAnswers,
  dataplaneError,
  configSession,
  observe,
  openWithNull,
};
inline constexpr int kOpKinds = static_cast<int>(OpKind::openWithNull) + 1;

struct Op {
  OpKind kind = OpKind::open;
  std::uint8_t slot = 0;
  std::array<std::uint8_t, 4> arg{};
};
std::ostream& operator<<(std::ostream& os, const Op& op);

class Runner {
 public:
  Runner();
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  // Runs `op` on both sides; the first disagreement or broken invariant, or "".
  std::string step(const Op& op);
  // Drops every session and checks what must then be true of the store; "" when it is.
  std::string finish();
  // What the last step did, in words (for traces), and every step run so far, one a line.
  [[nodiscard]] const std::string& lastStep() const;
  [[nodiscard]] const std::string& history() const;
  // Steps that ran an operation (not skipped).
  [[nodiscard]] int stepsRun() const;
  // False once an observer did what the model cannot follow: the library runs alone.
  [[nodiscard]] bool modelled() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace model
