#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Authoring/ChangeSet.h"

namespace orvan::engine {

// What one client did, as it may be undone and redone: per client, a stack of its own edits to
// undo and one of undone edits to redo. Undo applies the inverse of the client's last edit only,
// so what other clients did since stays; when another edit has changed the same thing since, the
// inverse does not fit and the undo is refused (see applyEdit). A new edit clears the client's
// redo stack.
class ClientHistory {
 public:
  struct Entry {
    ChangeSet changes;
    std::string label;
  };

  explicit ClientHistory(std::size_t maxDepth = 200) : maxDepth_(maxDepth) {}

  // An accepted edit of the client (clears its redo stack).
  void recordEdit(const std::string& clientId, ChangeSet changes, std::string label);
  const Entry* lastEdit(const std::string& clientId) const;
  const Entry* lastUndone(const std::string& clientId) const;
  // Moves the last edit to the redo stack once its inverse was applied, and back once redone.
  void markUndone(const std::string& clientId);
  void markRedone(const std::string& clientId);
  void forget(const std::string& clientId);

  std::size_t undoDepth(const std::string& clientId) const;
  std::size_t redoDepth(const std::string& clientId) const;

 private:
  struct Stacks {
    std::vector<Entry> undo;
    std::vector<Entry> redo;
  };
  std::size_t maxDepth_;
  std::map<std::string, Stacks> clients_;
};

}  // namespace orvan::engine
