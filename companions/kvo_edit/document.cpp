#include "companions/kvo_edit/document.h"

#include <algorithm>
#include <utility>

namespace kvo::edit {

namespace {

std::vector<Edit> apply_all(Table& table, std::vector<Edit> edits) {
  std::vector<Edit> inverses;
  inverses.reserve(edits.size());
  for (Edit& edit : edits) inverses.push_back(apply_edit(table, std::move(edit)));
  std::reverse(inverses.begin(), inverses.end());
  return inverses;
}

std::optional<Cell_range> take_step(Table& table, std::vector<Change>& from,
                                    std::vector<Change>& to) {
  if (from.empty()) return std::nullopt;
  Change step = std::move(from.back());
  from.pop_back();
  step.edits = apply_all(table, std::move(step.edits));
  to.push_back(std::move(step));
  return to.back().where;
}

}  // namespace

void make_change(Document& document, std::string label, std::vector<Edit> edits, Cell_range where) {
  if (edits.empty()) return;
  // What has been saved cannot be reached any more once another way is taken.
  if (document.saved_at && *document.saved_at > document.undo_steps.size())
    document.saved_at.reset();
  document.redo_steps.clear();
  document.undo_steps.push_back(
      {std::move(label), apply_all(document.table, std::move(edits)), where});
}

std::optional<Cell_range> undo(Document& document) {
  return take_step(document.table, document.undo_steps, document.redo_steps);
}

std::optional<Cell_range> redo(Document& document) {
  return take_step(document.table, document.redo_steps, document.undo_steps);
}

bool has_changes(const Document& document) {
  return document.saved_at != document.undo_steps.size();
}

}  // namespace kvo::edit
