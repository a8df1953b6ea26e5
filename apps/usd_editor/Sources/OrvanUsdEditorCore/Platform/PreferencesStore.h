#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Platform/AtomicFile.h"
#include "orvan/wire/Error.h"

namespace orvan::editor {

// The user's preferences: small named values kept between runs. A value has one kind (string,
// boolean or data); reading it as another kind yields nothing, as if absent. Writes take effect at
// once for readers; a store that persists reports a failed write as an error while keeping the
// new value in memory for the rest of the run.
class PreferencesStore {
 public:
  virtual ~PreferencesStore() = default;

  virtual std::optional<std::string> string(std::string_view key) const = 0;
  virtual std::optional<bool> boolean(std::string_view key) const = 0;
  virtual std::optional<std::string> data(std::string_view key) const = 0;

  // Keys and string values must be valid UTF-8; data is any bytes.
  virtual Status setString(std::string_view key, std::string_view value) = 0;
  virtual Status setBoolean(std::string_view key, bool value) = 0;
  virtual Status setData(std::string_view key, std::string_view bytes) = 0;
  virtual Status remove(std::string_view key) = 0;
  virtual std::vector<std::string> keys() const = 0;
};

// One stored value. `RawJson` keeps, verbatim, a value of a kind this editor does not write
// (a number, say, put there by hand or by a newer build), so that rewriting the file keeps it.
struct PreferenceData {
  std::string bytes;
  bool operator==(const PreferenceData&) const = default;
};
struct RawJson {
  std::string text;
  bool operator==(const RawJson&) const = default;
};
using PreferenceValue = std::variant<std::string, bool, PreferenceData, RawJson>;
using PreferenceValues = std::map<std::string, PreferenceValue, std::less<>>;

// Preferences in memory only: for tests, and the state behind the file store.
class InMemoryPreferencesStore : public PreferencesStore {
 public:
  InMemoryPreferencesStore() = default;
  explicit InMemoryPreferencesStore(PreferenceValues values) : values_(std::move(values)) {}

  std::optional<std::string> string(std::string_view key) const override;
  std::optional<bool> boolean(std::string_view key) const override;
  std::optional<std::string> data(std::string_view key) const override;
  Status setString(std::string_view key, std::string_view value) override;
  Status setBoolean(std::string_view key, bool value) override;
  Status setData(std::string_view key, std::string_view bytes) override;
  Status remove(std::string_view key) override;
  std::vector<std::string> keys() const override;

  PreferenceValues values() const;

 protected:
  // Called under the store's lock after every change, with the new values.
  virtual Status persist(const PreferenceValues& values);

 private:
  template <class T>
  std::optional<T> read(std::string_view key) const;
  Status store(std::string_view key, PreferenceValue value);

  mutable std::mutex mutex_;
  PreferenceValues values_;
};

// Preferences in a JSON file, rewritten whole and atomically at each change:
//
//   {"VelkEditor.hierarchyOrder": "scene", "velkSnapEnabled": true,
//    "velk.editor.hostedLaunchScopes": {"data": "<base64>"}}
//
// The file is private to the user (mode 0600). Each change is written before the setter returns,
// flushed to disk included; changes are rare and small, and a preference set just before a crash
// is then not lost. A temporary file left by a crash mid-write is ignored (and harmless).
//
// A file that cannot be read or is not a JSON object is reported in the log and read as empty.
// Only a regular file of at most 16 MiB is read; a FIFO or a device in its place is not waited
// for. It is left alone until the first change, which first moves it aside to "<name>.corrupt"
// (so a hand edit gone wrong can be recovered), private to the user like the file itself, and
// then writes the new file.
class JsonFilePreferencesStore final : public InMemoryPreferencesStore {
 public:
  using Writer = std::function<Status(const std::filesystem::path&, std::string_view contents)>;

  explicit JsonFilePreferencesStore(std::filesystem::path file);
  // `writer` replaces the atomic file write; tests use it to interrupt writes.
  JsonFilePreferencesStore(std::filesystem::path file, Writer writer);

  // `$XDG_CONFIG_HOME/velk/preferences.json`, or `~/.config/velk/preferences.json`.
  static std::filesystem::path defaultFile();

  const std::filesystem::path& file() const { return file_; }
  // Whether the file was found unreadable at start and has not been replaced yet.
  bool hasCorruptFile() const;

  static std::string encode(const PreferenceValues& values);
  // Nothing when the text is not a JSON object.
  static std::optional<PreferenceValues> decode(std::string_view text);

 protected:
  Status persist(const PreferenceValues& values) override;

 private:
  struct Loaded {
    PreferenceValues values;
    bool corrupt = false;
  };
  static Loaded load(const std::filesystem::path& file);
  JsonFilePreferencesStore(std::filesystem::path file, Writer writer, Loaded loaded);

  std::filesystem::path file_;
  Writer writer_;
  std::atomic<bool> corruptFilePending_ = false;
};

}  // namespace orvan::editor
