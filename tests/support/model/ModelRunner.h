// Runs operations on the library and on the reference model side by side.
//
//   model::Runner runner;
//   for (const model::Op& op : ops) {
//     if (std::string fault = runner.step(op); !fault.empty()) report(fault);
//   }
//   report(runner.finish());
//
// An operation is a kind, a session slot and four argument bytes; the bytes are read against
// the state at the time the operation runs (an "existing place" picks one of the places the
// list holds then), so any sequence of operations is meaningful and shrinks well. After each
// step the runner compares every result, session, ACL, version and binding with the model and
// runs the library's own invariant checks; finish() drops the sessions and checks that no
// observer, reference or entity is left behind.
//
// Operations whose outcome the library documents as drifting from its own bookkeeping (a
// remark removed at an empty place, an automatic remark number wrapping past the top, a
// resequence by 0, a by-content removal of another family's default rule) are skipped, as
// are operations of the wrong session kind (assertion failures, tested as death tests).
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
};
inline constexpr int kOpKinds = static_cast<int>(OpKind::configSession) + 1;

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

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace model
