#pragma once

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "orvan/wire/Error.h"

namespace orvan::editor {

// Secrets of the user (the session token), each filed under a service and an account. Secrets are
// UTF-8 text without NUL bytes. Calls may block (a keyring may be asked over D-Bus, or prompt):
// callers keep them off the main thread. Deleting what is not there is not an error.
class SecretStore {
 public:
  virtual ~SecretStore() = default;

  // Nothing when no secret is filed under the pair.
  virtual Result<std::optional<std::string>> readSecret(std::string_view service,
                                                        std::string_view account) = 0;
  virtual Status writeSecret(std::string_view service, std::string_view account,
                             std::string_view secret) = 0;
  virtual Status deleteSecret(std::string_view service, std::string_view account) = 0;
};

// Secrets in memory only, for tests.
class InMemorySecretStore final : public SecretStore {
 public:
  Result<std::optional<std::string>> readSecret(std::string_view service,
                                                std::string_view account) override;
  Status writeSecret(std::string_view service, std::string_view account,
                     std::string_view secret) override;
  Status deleteSecret(std::string_view service, std::string_view account) override;

 private:
  std::mutex mutex_;
  std::map<std::pair<std::string, std::string>, std::string> secrets_;
};

// Secrets in a JSON file readable by this user only (mode 0600, folder 0700), for machines where
// no Secret Service runs. Every call reads the file; every change rewrites it atomically. An
// unreadable file fails reads with an error; the next write moves it aside to "<name>.corrupt"
// and starts a new one, since the session can always be signed into again.
class FileSecretStore final : public SecretStore {
 public:
  explicit FileSecretStore(std::filesystem::path file);

  // `$XDG_DATA_HOME/velk/secrets.json`, or `~/.local/share/velk/secrets.json`.
  static std::filesystem::path defaultFile();
  const std::filesystem::path& file() const { return file_; }

  Result<std::optional<std::string>> readSecret(std::string_view service,
                                                std::string_view account) override;
  Status writeSecret(std::string_view service, std::string_view account,
                     std::string_view secret) override;
  Status deleteSecret(std::string_view service, std::string_view account) override;

 private:
  using Entries = std::map<std::pair<std::string, std::string>, std::string>;
  Result<Entries> readEntries() const;
  Result<Entries> readEntriesForChange() const;
  Status writeEntries(const Entries& entries) const;

  std::filesystem::path file_;
  std::mutex mutex_;
};

// The desktop's Secret Service through libsecret (items carry the attributes "service" and
// "account"), falling back for the rest of the run to a `FileSecretStore` once the service turns
// out not to answer (no D-Bus session, or nobody owns the Secret Service name). The switch is
// written to the log once. Refusals of a running service (a locked keyring, a dismissed prompt)
// stay errors and cause no fallback.
class SystemSecretStore final : public SecretStore {
 public:
  struct Options {
    // False goes straight to the file: for tests, and for machines known to be headless.
    bool useSecretService = true;
    std::filesystem::path fallbackFile = FileSecretStore::defaultFile();
  };

  SystemSecretStore();
  explicit SystemSecretStore(Options options);

  Result<std::optional<std::string>> readSecret(std::string_view service,
                                                std::string_view account) override;
  Status writeSecret(std::string_view service, std::string_view account,
                     std::string_view secret) override;
  Status deleteSecret(std::string_view service, std::string_view account) override;

  bool isUsingFallbackFile() const { return usingFallback_; }

 private:
  // Connects to the session bus once; false (after falling back) when there is none.
  bool connectToSessionBus();
  // Switches to the file and logs why, once.
  void fallBack(std::string_view reason);

  FileSecretStore fallback_;
  std::once_flag busConnected_;
  std::shared_ptr<void> sessionBus_;  // a GDBusConnection, held for the store's life
  std::atomic<bool> usingFallback_ = false;
  std::once_flag fallbackLogged_;
};

}  // namespace orvan::editor
