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
// version and binding the step can reach with the model, and runs the library's own invariant
// checks; finish() compares everything, drops the sessions and checks that no observer,
// reference or entity is left behind.
//
// Operations of the wrong session kind that assert (remove, attach, detach) are skipped; they
// are death tests. What observers do while the library notifies them is the reentrancy and
// fault-injection tests' subject, and configuration sessions the copy handlers' tests'.
#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>

namespace model {

// The operations, each with its weight in generated sequences (edits dominate, as in real
// sessions; the rest come often enough to interleave). Names, decoding and generators all come
// from this list.
// clang-format off
#define MODEL_OPS(O)                                                                              \
  O(open, 6) O(addRule, 12) O(addRemark, 5) O(removeRemark, 3) O(removeRange, 4)                  \
  O(removeByContent, 4) O(resequence, 3) O(flag, 2) O(commit, 6) O(revert, 3) O(remove, 2)        \
  O(attachDetach, 4) O(dataplaneWaits, 2) O(dataplaneAnswers, 4) O(dataplaneError, 2)
// clang-format on

#define MODEL_OP_KIND_(name, weight) name,
enum class OpKind : std::uint8_t { MODEL_OPS(MODEL_OP_KIND_) };
#undef MODEL_OP_KIND_
#define MODEL_OP_WEIGHT_(name, weight) weight,
inline constexpr std::array kOpWeights{MODEL_OPS(MODEL_OP_WEIGHT_)};
#undef MODEL_OP_WEIGHT_
inline constexpr int kOpKinds = static_cast<int>(kOpWeights.size());

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
  // Compares everything, drops every session and checks what must then be true of the store;
  // "" when all holds.
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
