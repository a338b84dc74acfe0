// Tracing: named facilities, levels 0 to 9, lines built only when their level is enabled.
//
//   static fwk::TraceFacility& traceAcl = fwk::TraceFacility::get("AclApi");
//   FWK_TRACE(traceAcl, 1, "spLastSequenceNumber -> " << seq);
//
// A line carries the facility, the level, the source file, line and function, and the
// streamed pieces (strings, numbers, booleans, entities by full name, any value with
// stream output). FWK_TRACE tests the level first: when it is disabled no piece is
// evaluated, nothing is allocated and nothing is formatted.
//
// Lines go to standard error unless a sink is installed; TraceCapture is an in-memory
// sink for tests. The library never enables levels itself: the host program decides.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "aclkit/platform/fwk/Entity.h"
#include "aclkit/platform/fwk/Export.h"
#include "aclkit/platform/fwk/String.h"

namespace fwk {

class ACLKIT_EXPORT TraceFacility {
 public:
  static constexpr int maxLevel = 9;

  // The facility of that name, created on first use and shared afterwards.
  static TraceFacility& get(std::string_view name);
  static std::vector<TraceFacility*> all();

  TraceFacility(const TraceFacility&) = delete;
  TraceFacility& operator=(const TraceFacility&) = delete;

  [[nodiscard]] const String& name() const noexcept { return name_; }
  [[nodiscard]] bool enabled(int level) const noexcept {
    return ((levels_.load(std::memory_order_relaxed) >> level) & 1U) != 0;
  }
  void levelIs(int level, bool enabled);
  // Enables levels 0..level (none for a negative level).
  void levelsUpToIs(int level);
  [[nodiscard]] std::uint16_t levels() const noexcept { return levels_.load(std::memory_order_relaxed); }
  void levelsIs(std::uint16_t mask) noexcept { levels_.store(mask, std::memory_order_relaxed); }

 private:
  explicit TraceFacility(String name) : name_(std::move(name)) {}
  String name_;
  std::atomic<std::uint16_t> levels_{0};
};

// Enables facilities from a host program's option, e.g. "AclApi/0-9,AclCopy/7": a facility
// name, optionally "/" and a level or range (all levels when omitted). Error on bad text.
ACLKIT_EXPORT void enableTraces(std::string_view spec);

struct ACLKIT_EXPORT TraceRecord {
  const TraceFacility* facility;
  int level;
  const char* file;
  int line;
  const char* function;
  std::string_view message;
};

class ACLKIT_EXPORT TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void write(const TraceRecord& record) = 0;
};

// The sink lines go to; null restores standard error. Returns the previous sink.
ACLKIT_EXPORT TraceSink* traceSinkIs(TraceSink* sink) noexcept;
// "AclApi[2] Acl/AclApiSm.cpp:120 commit: commit time: 1.7e9"
ACLKIT_EXPORT std::string formatTrace(const TraceRecord& record);

// Collects lines in memory while it lives, then puts the previous sink back.
class ACLKIT_EXPORT TraceCapture final : public TraceSink {
 public:
  struct Line {
    String facility;
    int level;
    std::string file;
    int line;
    std::string function;
    std::string message;
  };
  TraceCapture();
  ~TraceCapture() override;
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  void write(const TraceRecord& record) override;
  [[nodiscard]] const std::vector<Line>& lines() const noexcept { return lines_; }
  // Messages only, optionally of one facility.
  [[nodiscard]] std::vector<std::string> messages(std::string_view facility = {}) const;
  [[nodiscard]] bool contains(std::string_view message) const;
  // Lines whose message is exactly `message`.
  [[nodiscard]] std::size_t count(std::string_view message) const;
  void clear() noexcept { lines_.clear(); }

 private:
  TraceSink* previous_;
  std::vector<Line> lines_;
};

// One line under construction; only ever created behind an enabled-level test.
class ACLKIT_EXPORT TraceLine {
 public:
  TraceLine(const TraceFacility& facility, int level, const char* file, int line, const char* function);
  ~TraceLine();
  TraceLine(const TraceLine&) = delete;
  TraceLine& operator=(const TraceLine&) = delete;

  TraceLine& operator<<(bool value) {
    stream() << (value ? "true" : "false");
    return *this;
  }
  TraceLine& operator<<(const Entity& entity) {
    stream() << entity.fullName();
    return *this;
  }
  template <class E>
  requires std::is_base_of_v<Entity, std::remove_const_t<E>> TraceLine& operator<<(const Ptr<E>& entity) {
    if (entity) {
      stream() << entity->fullName();
    } else {
      stream() << "<null>";
    }
    return *this;
  }
  template <class E>
  requires std::is_base_of_v<Entity, std::remove_const_t<E>> TraceLine& operator<<(E* entity) {
    if (entity) {
      stream() << entity->fullName();
    } else {
      stream() << "<null>";
    }
    return *this;
  }
  template <class T>
  TraceLine& operator<<(const T& piece) {
    stream() << piece;
    return *this;
  }

 private:
  std::ostream& stream();
  struct Buffer;
  const TraceFacility& facility_;
  int level_;
  const char* file_;
  int line_;
  const char* function_;
  Buffer* buffer_;
};

}  // namespace fwk

#define FWK_TRACE(facility, level, ...) FWK_TRACE_AS(facility, level, __func__, __VA_ARGS__)

// The same, naming the function explicitly (for lines written from a lambda or helper on
// behalf of an operation).
#define FWK_TRACE_AS(facility, level, function, ...)                                  \
  do {                                                                                \
    if ((facility).enabled(level)) {                                                  \
      ::fwk::TraceLine(facility, level, __FILE__, __LINE__, function) << __VA_ARGS__; \
    }                                                                                 \
  } while (false)
