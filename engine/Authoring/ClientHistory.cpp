#include "Authoring/ClientHistory.h"

namespace orvan::engine {

void ClientHistory::recordEdit(const std::string& clientId, ChangeSet changes, std::string label) {
  if (changes.empty())
    return;
  Stacks& stacks = clients_[clientId];
  stacks.redo.clear();
  stacks.undo.push_back({std::move(changes), std::move(label)});
  if (stacks.undo.size() > maxDepth_)
    stacks.undo.erase(stacks.undo.begin());
}

const ClientHistory::Entry* ClientHistory::lastEdit(const std::string& clientId) const {
  const auto found = clients_.find(clientId);
  if (found == clients_.end() || found->second.undo.empty())
    return nullptr;
  return &found->second.undo.back();
}

const ClientHistory::Entry* ClientHistory::lastUndone(const std::string& clientId) const {
  const auto found = clients_.find(clientId);
  if (found == clients_.end() || found->second.redo.empty())
    return nullptr;
  return &found->second.redo.back();
}

void ClientHistory::markUndone(const std::string& clientId) {
  Stacks& stacks = clients_[clientId];
  if (stacks.undo.empty())
    return;
  stacks.redo.push_back(std::move(stacks.undo.back()));
  stacks.undo.pop_back();
}

void ClientHistory::markRedone(const std::string& clientId) {
  Stacks& stacks = clients_[clientId];
  if (stacks.redo.empty())
    return;
  stacks.undo.push_back(std::move(stacks.redo.back()));
  stacks.redo.pop_back();
}

void ClientHistory::forget(const std::string& clientId) {
  clients_.erase(clientId);
}

std::size_t ClientHistory::undoDepth(const std::string& clientId) const {
  const auto found = clients_.find(clientId);
  return found == clients_.end() ? 0 : found->second.undo.size();
}

std::size_t ClientHistory::redoDepth(const std::string& clientId) const {
  const auto found = clients_.find(clientId);
  return found == clients_.end() ? 0 : found->second.redo.size();
}

}  // namespace orvan::engine
