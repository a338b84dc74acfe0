// Hashing helpers shared by String, the records and the hash-keyed collections.
//
// A type is hashable by the framework when it has a member hash() or hash(seed), is a
// number, an enumeration or a pointer. Hash<T>{}(value) picks the right one.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace fwk {

// A cheap 64-bit finalizer (from splitmix64) that spreads small integers across the table.
constexpr std::size_t mixHash(std::uint64_t x) noexcept {
  x ^= x >> 30;
  x *= 0xbf58476d1ce4e5b9ULL;
  x ^= x >> 27;
  x *= 0x94d049bb133111ebULL;
  x ^= x >> 31;
  return static_cast<std::size_t>(x);
}

// One multiply per field: records hash dozens of fields on every lookup, so this must be
// cheap; the multiply and shift spread even small integer fields across the word.
constexpr std::size_t hashCombine(std::size_t seed, std::size_t value) noexcept {
  std::uint64_t h = (seed ^ value) * 0x9e3779b97f4a7c15ULL;
  return static_cast<std::size_t>(h ^ (h >> 29));
}

// Folds one field into a record's running hash. The multiply does not wait for the running
// value, so the fields of a record hash side by side rather than one after another (a record
// hashes dozens of them on every lookup); the rotation keeps equal values in different fields
// apart. The hash maps finalize the result with mixHash.
constexpr std::size_t hashAppend(std::size_t running, std::size_t field) noexcept {
  return static_cast<std::size_t>(std::rotl(static_cast<std::uint64_t>(running), 7)) ^
         static_cast<std::size_t>(static_cast<std::uint64_t>(field) * 0x9e3779b97f4a7c15ULL);
}

// FNV-1a over bytes; stable across runs, so traces and tests can rely on it.
constexpr std::size_t hashBytes(std::string_view bytes) noexcept {
  std::uint64_t h = 0xcbf29ce484222325ULL;
  for (char c : bytes) {
    h ^= static_cast<unsigned char>(c);
    h *= 0x100000001b3ULL;
  }
  return static_cast<std::size_t>(h);
}

template <class T>
struct Hash {
  std::size_t operator()(const T& value) const noexcept {
    if constexpr (requires {
                    { value.hash() } -> std::convertible_to<std::size_t>;
                  }) {
      return value.hash();
    } else if constexpr (requires {
                           { value.hash(0u) } -> std::convertible_to<std::size_t>;
                         }) {
      return value.hash(0u);
    } else if constexpr (std::is_enum_v<T> || std::is_integral_v<T>) {
      return static_cast<std::size_t>(value);  // combined or reduced modulo a prime by the caller
    } else if constexpr (std::is_floating_point_v<T>) {
      double d = value == 0 ? 0.0 : static_cast<double>(value);  // +0 and -0 hash alike
      return mixHash(__builtin_bit_cast(std::uint64_t, d));
    } else {
      static_assert(sizeof(T) == 0, "type has no framework hash");
      return 0;
    }
  }
};

}  // namespace fwk
