#include "Platform/SecretStore.h"

#include <libsecret/secret.h>
#include <sys/stat.h>

#include <cstdio>
#include <memory>

#include <fmt/format.h>
#include <simdjson.h>
#include <spdlog/spdlog.h>

#include "Platform/AtomicFile.h"
#include "Platform/Base64.h"
#include "Platform/UserFolders.h"
#include "orvan/wire/JsonEncoder.h"
#include "orvan/wire/Text.h"

namespace orvan::editor {

namespace {

constexpr mode_t kSecretFileMode = 0600;

Status checkText(std::string_view what, std::string_view text) {
  if (text.find('\0') == std::string_view::npos && isValidUtf8(text)) {
    return okStatus();
  }
  return Error::editor(EINVAL,
                       fmt::format("A secret's {} must be UTF-8 text without NUL bytes", what));
}

Status checkEntry(std::string_view service, std::string_view account,
                  std::optional<std::string_view> secret = std::nullopt) {
  if (Status valid = checkText("service", service); !valid)
    return valid;
  if (Status valid = checkText("account", account); !valid)
    return valid;
  if (secret)
    return checkText("value", *secret);
  return okStatus();
}

// ---- libsecret

const SecretSchema* secretSchema() {
  static const SecretSchema schema = [] {
    SecretSchema made{};
    made.name = "net.velk.editor.Secret";
    // Items filed by other builds under the same attributes count as ours.
    made.flags = SECRET_SCHEMA_DONT_MATCH_NAME;
    made.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
    made.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
    made.attributes[2] = {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING};
    return made;
  }();
  return &schema;
}

struct HashTableDeleter {
  void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
struct ErrorDeleter {
  void operator()(GError* error) const { g_error_free(error); }
};
using ErrorPtr = std::unique_ptr<GError, ErrorDeleter>;

// The attribute table borrows the strings, which outlive every call that uses it.
class Attributes {
 public:
  Attributes(std::string_view service, std::string_view account)
      : service_(service), account_(account), table_(g_hash_table_new(g_str_hash, g_str_equal)) {
    g_hash_table_insert(table_.get(), const_cast<char*>("service"), service_.data());
    g_hash_table_insert(table_.get(), const_cast<char*>("account"), account_.data());
  }
  GHashTable* get() const { return table_.get(); }

 private:
  std::string service_;
  std::string account_;
  std::unique_ptr<GHashTable, HashTableDeleter> table_;
};

// A transport failure means nobody answers for the Secret Service; anything else is an answer.
bool meansNoSecretService(const GError& error) {
  if (error.domain == G_DBUS_ERROR || error.domain == G_SPAWN_ERROR)
    return true;
  return error.domain == G_IO_ERROR && error.code != G_IO_ERROR_CANCELLED;
}

Error keyringError(const GError& error) {
  return Error::editor(error.code, fmt::format("The keyring refused: {}", error.message));
}

// The outcome of one libsecret call: done, refused with an error, or nobody there.
template <class T>
struct KeyringAnswer {
  std::optional<Result<T>> result;  // empty when no Secret Service answered
  std::string unavailableReason;
};

template <class T>
KeyringAnswer<T> unavailableOrError(ErrorPtr error) {
  if (meansNoSecretService(*error)) {
    return {std::nullopt, fmt::format("no Secret Service answered ({})", error->message)};
  }
  return {Result<T>(keyringError(*error)), {}};
}

KeyringAnswer<std::optional<std::string>> lookupInKeyring(std::string_view service,
                                                          std::string_view account) {
  const Attributes attributes(service, account);
  GError* raw = nullptr;
  gchar* password = secret_password_lookupv_sync(secretSchema(), attributes.get(), nullptr, &raw);
  if (raw != nullptr)
    return unavailableOrError<std::optional<std::string>>(ErrorPtr(raw));
  if (password == nullptr)
    return {Result<std::optional<std::string>>(std::nullopt), {}};
  std::optional<std::string> secret(password);
  secret_password_free(password);
  return {Result<std::optional<std::string>>(std::move(secret)), {}};
}

KeyringAnswer<Unit> storeInKeyring(std::string_view service, std::string_view account,
                                   std::string_view secret) {
  const Attributes attributes(service, account);
  const std::string label = fmt::format("Velk {} ({})", service, account);
  const std::string value(secret);
  GError* raw = nullptr;
  secret_password_storev_sync(secretSchema(), attributes.get(), SECRET_COLLECTION_DEFAULT,
                              label.c_str(), value.c_str(), nullptr, &raw);
  if (raw != nullptr)
    return unavailableOrError<Unit>(ErrorPtr(raw));
  return {okStatus(), {}};
}

KeyringAnswer<Unit> clearInKeyring(std::string_view service, std::string_view account) {
  const Attributes attributes(service, account);
  GError* raw = nullptr;
  secret_password_clearv_sync(secretSchema(), attributes.get(), nullptr, &raw);
  if (raw != nullptr)
    return unavailableOrError<Unit>(ErrorPtr(raw));
  return {okStatus(), {}};
}

}  // namespace

// ---- InMemorySecretStore

Result<std::optional<std::string>> InMemorySecretStore::readSecret(std::string_view service,
                                                                   std::string_view account) {
  std::lock_guard lock(mutex_);
  const auto found = secrets_.find({std::string(service), std::string(account)});
  if (found == secrets_.end())
    return std::optional<std::string>();
  return std::optional<std::string>(found->second);
}

Status InMemorySecretStore::writeSecret(std::string_view service, std::string_view account,
                                        std::string_view secret) {
  if (Status valid = checkEntry(service, account, secret); !valid)
    return valid;
  std::lock_guard lock(mutex_);
  secrets_[{std::string(service), std::string(account)}] = std::string(secret);
  return okStatus();
}

Status InMemorySecretStore::deleteSecret(std::string_view service, std::string_view account) {
  std::lock_guard lock(mutex_);
  secrets_.erase({std::string(service), std::string(account)});
  return okStatus();
}

// ---- FileSecretStore
//
//   {"entries": [{"service": "...", "account": "...", "secret": "..."}]}

FileSecretStore::FileSecretStore(std::filesystem::path file) : file_(std::move(file)) {}

std::filesystem::path FileSecretStore::defaultFile() {
  return userDataFolder() / "velk" / "secrets.json";
}

Result<FileSecretStore::Entries> FileSecretStore::readEntries() const {
  auto contents = readWholeFile(file_);
  if (!contents)
    return contents.error();
  if (!contents->has_value())
    return Entries{};

  struct stat info {};
  if (::stat(file_.c_str(), &info) == 0 && (info.st_mode & 0077) != 0) {
    spdlog::warn("Secrets file \"{}\" was readable by others; restricting it to its owner",
                 file_.string());
    ::chmod(file_.c_str(), kSecretFileMode);
  }

  const Error unreadable =
      Error::editor(EINVAL, fmt::format("The secrets file \"{}\" is not readable", file_.string()));
  simdjson::dom::parser parser;
  simdjson::dom::array list;
  const simdjson::padded_string padded(**contents);
  if (parser.parse(padded)["entries"].get_array().get(list) != simdjson::SUCCESS) {
    return unreadable;
  }
  Entries entries;
  for (const simdjson::dom::element item : list) {
    std::string_view service, account, secret;
    if (item["service"].get_string().get(service) != simdjson::SUCCESS ||
        item["account"].get_string().get(account) != simdjson::SUCCESS ||
        item["secret"].get_string().get(secret) != simdjson::SUCCESS) {
      return unreadable;
    }
    entries[{std::string(service), std::string(account)}] = std::string(secret);
  }
  return entries;
}

Result<FileSecretStore::Entries> FileSecretStore::readEntriesForChange() const {
  auto entries = readEntries();
  if (entries)
    return entries;
  const std::filesystem::path aside = file_.string() + ".corrupt";
  spdlog::warn("{}; keeping it as \"{}\" and starting a new one", entries.error().description,
               aside.string());
  std::rename(file_.c_str(), aside.c_str());
  return Entries{};
}

Status FileSecretStore::writeEntries(const Entries& entries) const {
  std::string out = "{\"entries\": [";
  bool first = true;
  for (const auto& [key, secret] : entries) {
    out += first ? "\n  {\"service\": " : ",\n  {\"service\": ";
    first = false;
    appendJsonString(out, key.first);
    out += ", \"account\": ";
    appendJsonString(out, key.second);
    out += ", \"secret\": ";
    appendJsonString(out, secret);
    out += "}";
  }
  out += first ? "]}\n" : "\n]}\n";
  return writeFileAtomically(file_, out, kSecretFileMode);
}

Result<std::optional<std::string>> FileSecretStore::readSecret(std::string_view service,
                                                               std::string_view account) {
  std::lock_guard lock(mutex_);
  auto entries = readEntries();
  if (!entries)
    return entries.error();
  const auto found = entries->find({std::string(service), std::string(account)});
  if (found == entries->end())
    return std::optional<std::string>();
  return std::optional<std::string>(found->second);
}

Status FileSecretStore::writeSecret(std::string_view service, std::string_view account,
                                    std::string_view secret) {
  if (Status valid = checkEntry(service, account, secret); !valid)
    return valid;
  std::lock_guard lock(mutex_);
  auto entries = readEntriesForChange();
  if (!entries)
    return entries.error();
  (*entries)[{std::string(service), std::string(account)}] = std::string(secret);
  return writeEntries(*entries);
}

Status FileSecretStore::deleteSecret(std::string_view service, std::string_view account) {
  std::lock_guard lock(mutex_);
  auto entries = readEntriesForChange();
  if (!entries)
    return entries.error();
  if (entries->erase({std::string(service), std::string(account)}) == 0)
    return okStatus();
  return writeEntries(*entries);
}

// ---- SystemSecretStore

SystemSecretStore::SystemSecretStore() : SystemSecretStore(Options{}) {}

SystemSecretStore::SystemSecretStore(Options options) : fallback_(std::move(options.fallbackFile)) {
  if (!options.useSecretService)
    fallBack("the Secret Service is switched off");
}

bool SystemSecretStore::connectToSessionBus() {
  std::call_once(busConnected_, [this] {
    if (usingFallback_)
      return;
    GError* raw = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &raw);
    if (bus == nullptr) {
      const ErrorPtr error(raw);
      fallBack(fmt::format("there is no D-Bus session ({})", error ? error->message : "unknown"));
      return;
    }
    // The shared session connection ends the whole process when the bus goes away, unless told
    // otherwise; a dying desktop session must not take the editor and its unsaved edits with it.
    // Holding it keeps that setting on the very connection libsecret uses.
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    sessionBus_ = std::shared_ptr<void>(bus, [](void* connection) { g_object_unref(connection); });
  });
  return !usingFallback_;
}

void SystemSecretStore::fallBack(std::string_view reason) {
  usingFallback_ = true;
  std::call_once(fallbackLogged_, [&] {
    spdlog::warn("Keeping secrets in \"{}\", readable by this user only, because {}",
                 fallback_.file().string(), reason);
  });
}

Result<std::optional<std::string>> SystemSecretStore::readSecret(std::string_view service,
                                                                 std::string_view account) {
  if (Status valid = checkEntry(service, account); !valid)
    return valid.error();
  if (connectToSessionBus()) {
    auto answer = lookupInKeyring(service, account);
    if (answer.result)
      return std::move(*answer.result);
    fallBack(answer.unavailableReason);
  }
  return fallback_.readSecret(service, account);
}

Status SystemSecretStore::writeSecret(std::string_view service, std::string_view account,
                                      std::string_view secret) {
  if (Status valid = checkEntry(service, account, secret); !valid)
    return valid;
  if (connectToSessionBus()) {
    auto answer = storeInKeyring(service, account, secret);
    if (answer.result)
      return std::move(*answer.result);
    fallBack(answer.unavailableReason);
  }
  return fallback_.writeSecret(service, account, secret);
}

Status SystemSecretStore::deleteSecret(std::string_view service, std::string_view account) {
  if (Status valid = checkEntry(service, account); !valid)
    return valid;
  if (connectToSessionBus()) {
    auto answer = clearInKeyring(service, account);
    if (answer.result)
      return std::move(*answer.result);
    fallBack(answer.unavailableReason);
  }
  return fallback_.deleteSecret(service, account);
}

}  // namespace orvan::editor
