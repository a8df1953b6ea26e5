#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace orvan::editor {

// A failure as a value: a domain, a numeric code and a description. Domains are fixed strings;
// the editor's own failures use kEditorDomain, bad HTTP answers kHttpDomain, and the HTTP client's
// transport failures (no connection, time-out, cancellation) kTransportDomain.
struct Error {
  static constexpr std::string_view kEditorDomain = "OrvanUsdEditor";
  static constexpr std::string_view kHttpDomain = "OrvanUsdEditorHTTP";
  static constexpr std::string_view kTransportDomain = "OrvanUsdEditorTransport";
  static constexpr std::string_view kJsonDomain = "OrvanUsdEditorJSON";

  // Codes of kTransportDomain.
  enum TransportCode : std::int64_t {
    kTransportCancelled = -999,
    kTransportTimedOut = -1001,
    kTransportCannotConnect = -1004,
    kTransportBadURL = -1000,
    // The answer grew beyond the byte limit its request allowed.
    kTransportResponseTooLarge = -1103,
    kTransportFailed = -1,
  };

  std::string domain;
  std::int64_t code = 0;
  std::string description;

  bool operator==(const Error&) const = default;

  static Error editor(std::int64_t code, std::string description);
  static Error http(std::int64_t statusCode, std::string description);
  static Error transport(TransportCode code, std::string description);
  static Error cancelled();

  bool isCancellation() const;
  bool isTransport() const { return domain == kTransportDomain; }
};

// The outcome of an asynchronous operation: a value or an error. Flows that classify their
// failures further use a richer error type `E` that can be made from an `Error`.
template <class T, class E = Error>
class Result {
 public:
  Result(T value) : storage_(std::in_place_index<0>, std::move(value)) {}
  Result(E error) : storage_(std::in_place_index<1>, std::move(error)) {}
  template <class Other>
  requires(!std::is_same_v<E, Error> && std::is_same_v<Other, Error>) Result(Other error)
      : storage_(std::in_place_index<1>, E(std::move(error))) {}

  bool ok() const { return storage_.index() == 0; }
  explicit operator bool() const { return ok(); }

  T& value() & { return std::get<0>(storage_); }
  const T& value() const& { return std::get<0>(storage_); }
  T&& value() && { return std::get<0>(std::move(storage_)); }
  const E& error() const { return std::get<1>(storage_); }

  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }

 private:
  std::variant<T, E> storage_;
};

// The outcome of an operation that yields nothing but may fail.
struct Unit {
  bool operator==(const Unit&) const = default;
};
using Status = Result<Unit>;
inline Status okStatus() {
  return Status(Unit{});
}

}  // namespace orvan::editor
