// Fuzzes edit sessions and dataplanes against the reference model.
// Every six input bytes are one operation (kind, session slot, four arguments) in the
// language the property test uses; the harness aborts at the first result, state or
// invariant on which the library and the model disagree, and the fuzzer keeps the input.
// An input is at most 40 operations: enough to open sessions, edit, commit, answer and
// observe, and short enough that the fuzzer's own bookkeeping (which grows with the
// distinct edge counts a run produces) stays small; long sequences are the property
// test's. ACLKIT_FUZZ_TRACE=1 prints each operation, to read a crash input.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "aclkit/platform/fwk/Entity.h"
#include "tests/support/model/ModelRunner.h"

namespace {

const bool verbose = std::getenv("ACLKIT_FUZZ_TRACE") != nullptr;

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "the library disagrees with the model: %s\n", what.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kOpBytes = 6;
  constexpr std::size_t kMaxOps = 40;
  const std::int64_t entitiesBefore = fwk::Entity::liveCount();
  {
    model::Runner runner;
    for (std::size_t at = 0; at + kOpBytes <= size && at / kOpBytes < kMaxOps; at += kOpBytes) {
      const model::Op op{static_cast<model::OpKind>(data[at] % model::kOpKinds),
                         data[at + 1],
                         {data[at + 2], data[at + 3], data[at + 4], data[at + 5]}};
      std::string fault = runner.step(op);
      if (verbose) std::fprintf(stderr, "%s\n", runner.lastStep().c_str());
      if (!fault.empty()) fail(fault);
    }
    if (std::string fault = runner.finish(); !fault.empty()) fail("after the sessions: " + fault);
  }
  if (fwk::Entity::liveCount() != entitiesBefore) fail("entities leaked");
  return 0;
}
