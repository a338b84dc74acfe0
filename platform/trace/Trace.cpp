#include "aclkit/platform/trace/Trace.h"

#include <charconv>
#include <cstdio>
#include <map>
#include <mutex>
#include <sstream>

namespace fwk {

namespace {
struct Facilities {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<TraceFacility>, std::less<>> byName;
};
Facilities& facilities() {
  static Facilities& f = *new Facilities;
  return f;
}

class StderrSink final : public TraceSink {
 public:
  void write(const TraceRecord& record) override {
    std::string text = formatTrace(record);
    text.push_back('\n');
    std::fwrite(text.data(), 1, text.size(), stderr);
  }
};

std::atomic<TraceSink*> currentSink{nullptr};

TraceSink& sink() {
  static StderrSink standardError;
  TraceSink* s = currentSink.load(std::memory_order_acquire);
  return s ? *s : standardError;
}

int parseLevel(std::string_view text) {
  int level = -1;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), level);
  if (ec != std::errc() || end != text.data() + text.size() || level < 0 || level > TraceFacility::maxLevel) {
    throw Error("trace level '" + std::string(text) + "' is not a number from 0 to 9");
  }
  return level;
}
}  // namespace

TraceFacility& TraceFacility::get(std::string_view name) {
  Facilities& f = facilities();
  std::lock_guard lock(f.mutex);
  auto it = f.byName.find(name);
  if (it == f.byName.end()) {
    it = f.byName.emplace(std::string(name), std::unique_ptr<TraceFacility>(new TraceFacility(String(name)))).first;
  }
  return *it->second;
}

std::vector<TraceFacility*> TraceFacility::all() {
  Facilities& f = facilities();
  std::lock_guard lock(f.mutex);
  std::vector<TraceFacility*> list;
  for (auto& [name, facility] : f.byName) list.push_back(facility.get());
  return list;
}

void TraceFacility::levelIs(int level, bool enabled) {
  if (level < 0 || level > maxLevel) throw RangeError("trace level < 0 or > 9 not allowed");
  auto bit = static_cast<std::uint16_t>(1U << level);
  if (enabled) {
    levels_.fetch_or(bit, std::memory_order_relaxed);
  } else {
    levels_.fetch_and(static_cast<std::uint16_t>(~bit), std::memory_order_relaxed);
  }
}

void TraceFacility::levelsUpToIs(int level) {
  if (level > maxLevel) throw RangeError("trace level < 0 or > 9 not allowed");
  levelsIs(level < 0 ? 0 : static_cast<std::uint16_t>((1U << (level + 1)) - 1));
}

void enableTraces(std::string_view spec) {
  while (!spec.empty()) {
    std::string_view item = spec.substr(0, spec.find(','));
    spec.remove_prefix(std::min(spec.size(), item.size() + 1));
    if (item.empty()) continue;
    std::string_view name = item.substr(0, item.find('/'));
    int low = 0;
    int high = TraceFacility::maxLevel;
    if (name.size() < item.size()) {
      std::string_view range = item.substr(name.size() + 1);
      auto dash = range.find('-');
      low = parseLevel(range.substr(0, dash));
      high = dash == std::string_view::npos ? low : parseLevel(range.substr(dash + 1));
    }
    TraceFacility& facility = TraceFacility::get(name);
    for (int level = low; level <= high; ++level) facility.levelIs(level, true);
  }
}

TraceSink* traceSinkIs(TraceSink* newSink) noexcept {
  return currentSink.exchange(newSink, std::memory_order_acq_rel);
}

std::string formatTrace(const TraceRecord& record) {
  std::string text;
  text.reserve(64 + record.message.size());
  text.append(record.facility->name().view()).append("[").append(std::to_string(record.level)).append("] ");
  text.append(record.file).append(":").append(std::to_string(record.line)).append(" ");
  text.append(record.function).append(": ").append(record.message);
  return text;
}

TraceCapture::TraceCapture() : previous_(traceSinkIs(this)) {}
TraceCapture::~TraceCapture() {
  traceSinkIs(previous_);
}

void TraceCapture::write(const TraceRecord& record) {
  lines_.push_back(Line{record.facility->name(), record.level, record.file, record.line, record.function,
                        std::string(record.message)});
}

std::vector<std::string> TraceCapture::messages(std::string_view facility) const {
  std::vector<std::string> list;
  for (const Line& l : lines_) {
    if (facility.empty() || l.facility == facility) list.push_back(l.message);
  }
  return list;
}

bool TraceCapture::contains(std::string_view message) const {
  return count(message) > 0;
}

std::size_t TraceCapture::count(std::string_view message) const {
  std::size_t n = 0;
  for (const Line& l : lines_) n += l.message == message ? 1 : 0;
  return n;
}

struct TraceLine::Buffer {
  std::ostringstream os;
};

TraceLine::TraceLine(const TraceFacility& facility, int level, const char* file, int line, const char* function)
    : facility_(facility), level_(level), file_(file), line_(line), function_(function), buffer_(new Buffer) {
  buffer_->os.precision(15);  // times in seconds since the epoch keep their fractions
}

TraceLine::~TraceLine() {
  std::string message = buffer_->os.str();
  delete buffer_;
  sink().write(TraceRecord{&facility_, level_, file_, line_, function_, message});
}

std::ostream& TraceLine::stream() {
  return buffer_->os;
}

}  // namespace fwk
