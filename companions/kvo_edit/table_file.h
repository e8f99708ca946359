#pragma once

// The file of the study table. What is written keeps the format of what was loaded: separator, line
// ends, blank lines, and to the byte every line whose cells are as they were.

#include <optional>
#include <string>

#include "companions/kvo_edit/document.h"

namespace kvo::edit {

/// The document of a file. One that does not exist, or is empty, gives the variables "study" and
/// "n1" and no studies. Throws Refusal, naming the file, when it is no file or cannot be read.
Document open_document(const std::string& path);
/// open_document() of a file's content.
Document document_of(std::string path, std::optional<std::string> content);

/// What save_document() writes.
std::string document_text(const Document& document);

/// Why a text cannot be a cell of the file, to follow its name: "holds a blank"; null when it can.
const char* storage_fault(std::string_view text);

/// How many cells the line that a row comes from, and will be kept as, has, when one with a text
/// lies beyond the last variable; 0 otherwise.
std::size_t cells_of_long_line(const Table& table, long row);

/// "the variable 'n1' of the study 'Smith2004'", "the name of variable 3".
std::string cell_description(const Table& table, long row, long column);

/// A cell that the file cannot hold, or a row whose line would be longer than readers take in.
struct Unsavable {
  long row;
  long column;
  std::string message;  ///< a sentence that names the cell
};
/// The first of them in the rows that differ from their lines; nothing when all can be saved.
std::optional<Unsavable> first_unsavable(const Document& document);

/// Whether another program has changed, made or removed the file since it was read or written here.
bool changed_on_disk(const Document& document);

/// Writes the file whole or not at all, whatever is there now. Throws Refusal with the reason when
/// a cell cannot be saved or the file cannot be written; the file is then as it was.
void save_document(Document& document);

}  // namespace kvo::edit
