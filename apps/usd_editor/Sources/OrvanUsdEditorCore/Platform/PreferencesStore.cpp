#include "Platform/PreferencesStore.h"

#include <sys/stat.h>

#include <cstdio>

#include <fmt/format.h>
#include <simdjson.h>
#include <spdlog/spdlog.h>

#include "Platform/Base64.h"
#include "Platform/UserFolders.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

constexpr mode_t kPreferencesFileMode = 0600;

Status checkUtf8(std::string_view what, std::string_view text) {
  if (isValidUtf8(text))
    return okStatus();
  return Error::editor(EINVAL, fmt::format("A preference {} must be valid UTF-8", what));
}

std::optional<PreferenceValue> decodeValue(simdjson::dom::element element) {
  switch (element.type()) {
    case simdjson::dom::element_type::STRING:
      return PreferenceValue(std::string(element.get_string().value()));
    case simdjson::dom::element_type::BOOL:
      return PreferenceValue(element.get_bool().value());
    case simdjson::dom::element_type::OBJECT: {
      const simdjson::dom::object object = element.get_object().value();
      std::string_view encoded;
      if (object.size() == 1 && object["data"].get_string().get(encoded) == simdjson::SUCCESS) {
        if (auto bytes = decodeBase64(encoded)) {
          return PreferenceValue(PreferenceData{std::move(*bytes)});
        }
      }
      break;
    }
    default:
      break;
  }
  return PreferenceValue(RawJson{simdjson::minify(element)});
}

}  // namespace

// ---- InMemoryPreferencesStore

template <class T>
std::optional<T> InMemoryPreferencesStore::read(std::string_view key) const {
  std::lock_guard lock(mutex_);
  const auto found = values_.find(key);
  if (found == values_.end())
    return std::nullopt;
  const T* value = std::get_if<T>(&found->second);
  if (value == nullptr)
    return std::nullopt;
  return *value;
}

std::optional<std::string> InMemoryPreferencesStore::string(std::string_view key) const {
  return read<std::string>(key);
}

std::optional<bool> InMemoryPreferencesStore::boolean(std::string_view key) const {
  return read<bool>(key);
}

std::optional<std::string> InMemoryPreferencesStore::data(std::string_view key) const {
  auto value = read<PreferenceData>(key);
  if (!value)
    return std::nullopt;
  return std::move(value->bytes);
}

Status InMemoryPreferencesStore::setString(std::string_view key, std::string_view value) {
  if (Status valid = checkUtf8("value", value); !valid)
    return valid;
  return store(key, std::string(value));
}

Status InMemoryPreferencesStore::setBoolean(std::string_view key, bool value) {
  return store(key, value);
}

Status InMemoryPreferencesStore::setData(std::string_view key, std::string_view bytes) {
  return store(key, PreferenceData{std::string(bytes)});
}

Status InMemoryPreferencesStore::store(std::string_view key, PreferenceValue value) {
  if (Status valid = checkUtf8("key", key); !valid)
    return valid;
  std::lock_guard lock(mutex_);
  const auto found = values_.find(key);
  if (found != values_.end() && found->second == value)
    return okStatus();
  values_.insert_or_assign(std::string(key), std::move(value));
  return persist(values_);
}

Status InMemoryPreferencesStore::remove(std::string_view key) {
  std::lock_guard lock(mutex_);
  const auto found = values_.find(key);
  if (found == values_.end())
    return okStatus();
  values_.erase(found);
  return persist(values_);
}

std::vector<std::string> InMemoryPreferencesStore::keys() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> keys;
  keys.reserve(values_.size());
  for (const auto& entry : values_)
    keys.push_back(entry.first);
  return keys;
}

PreferenceValues InMemoryPreferencesStore::values() const {
  std::lock_guard lock(mutex_);
  return values_;
}

Status InMemoryPreferencesStore::persist(const PreferenceValues&) {
  return okStatus();
}

// ---- JsonFilePreferencesStore

JsonFilePreferencesStore::JsonFilePreferencesStore(std::filesystem::path file)
    : JsonFilePreferencesStore(std::move(file),
                               [](const std::filesystem::path& path, std::string_view contents) {
                                 return writeFileAtomically(path, contents, kPreferencesFileMode);
                               }) {}

JsonFilePreferencesStore::JsonFilePreferencesStore(std::filesystem::path file, Writer writer)
    : JsonFilePreferencesStore(file, std::move(writer), load(file)) {}

JsonFilePreferencesStore::JsonFilePreferencesStore(std::filesystem::path file, Writer writer,
                                                   Loaded loaded)
    : InMemoryPreferencesStore(std::move(loaded.values)),
      file_(std::move(file)),
      writer_(std::move(writer)),
      corruptFilePending_(loaded.corrupt) {}

std::filesystem::path JsonFilePreferencesStore::defaultFile() {
  return userConfigFolder() / "velk" / "preferences.json";
}

bool JsonFilePreferencesStore::hasCorruptFile() const {
  return corruptFilePending_;
}

JsonFilePreferencesStore::Loaded JsonFilePreferencesStore::load(const std::filesystem::path& file) {
  auto contents = readWholeFile(file);
  if (!contents) {
    spdlog::warn("Preferences could not be read, starting without them: {}",
                 contents.error().description);
    return {{}, true};
  }
  if (!contents->has_value())
    return {};
  auto values = decode(**contents);
  if (!values) {
    spdlog::warn(
        "Preferences file \"{}\" is not a JSON object; starting without preferences and "
        "moving it aside at the next change",
        file.string());
    return {{}, true};
  }
  return {std::move(*values), false};
}

Status JsonFilePreferencesStore::persist(const PreferenceValues& values) {
  if (corruptFilePending_.exchange(false)) {
    const std::filesystem::path aside = file_.string() + ".corrupt";
    if (std::rename(file_.c_str(), aside.c_str()) == 0) {
      // It may hold what the user wanted private, whatever mode a hand edit left it with.
      ::chmod(aside.c_str(), kPreferencesFileMode);
      spdlog::warn("Unreadable preferences file kept as \"{}\"", aside.string());
    }
  }
  Status written = writer_(file_, encode(values));
  if (!written)
    spdlog::error("Preferences not saved: {}", written.error().description);
  return written;
}

std::string JsonFilePreferencesStore::encode(const PreferenceValues& values) {
  std::string out = "{";
  bool first = true;
  for (const auto& [key, value] : values) {
    out += first ? "\n  " : ",\n  ";
    first = false;
    appendJsonString(out, key);
    out += ": ";
    if (const auto* text = std::get_if<std::string>(&value)) {
      appendJsonString(out, *text);
    } else if (const auto* flag = std::get_if<bool>(&value)) {
      out += *flag ? "true" : "false";
    } else if (const auto* data = std::get_if<PreferenceData>(&value)) {
      out += "{\"data\": ";
      appendJsonString(out, encodeBase64(data->bytes));
      out += "}";
    } else {
      out += std::get<RawJson>(value).text;
    }
  }
  out += first ? "}\n" : "\n}\n";
  return out;
}

std::optional<PreferenceValues> JsonFilePreferencesStore::decode(std::string_view text) {
  simdjson::dom::parser parser;
  simdjson::dom::object object;
  const simdjson::padded_string padded(text);
  if (parser.parse(padded).get_object().get(object) != simdjson::SUCCESS)
    return std::nullopt;
  PreferenceValues values;
  for (const auto field : object) {
    if (auto value = decodeValue(field.value)) {
      values.insert_or_assign(std::string(field.key), std::move(*value));
    }
  }
  return values;
}

}  // namespace orvan::editor
