// Runs every checked-in fuzzer seed and every minimized crash input through the harness. A
// crash the fuzzer found is kept in fuzz/regressions/<harness>/ once fixed, and so stays fixed.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> inputs(const char* kind, const char* harness) {
  std::vector<std::filesystem::path> all;
  std::filesystem::path dir = std::filesystem::path(ACLKIT_FUZZ_DIR) / kind / harness;
  if (!std::filesystem::exists(dir)) return all;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (entry.is_regular_file() && entry.path().filename().string()[0] != '.') all.push_back(entry.path());
  }
  return all;
}

TEST(FuzzReplayTest, AclApiSeedsAndRegressionsRunClean) {
  std::vector<std::filesystem::path> files = inputs("corpus", "acl_api");
  ASSERT_GE(files.size(), 10u) << "the seed corpus is missing";
  std::vector<std::filesystem::path> regressions = inputs("regressions", "acl_api");
  ASSERT_FALSE(regressions.empty()) << "the kept crash inputs are missing";
  files.insert(files.end(), regressions.begin(), regressions.end());
  for (const auto& file : files) {
    SCOPED_TRACE(file.string());
    std::ifstream in(file, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
  }
}

}  // namespace
