#include "engine/report/sources.h"

#include <glib.h>

#include <cctype>
#include <string_view>

#include "kvo_config.h"
#include "util/handles.h"
#include "util/q_string.h"

namespace kvo::report {

namespace {

constexpr std::string_view en_dash = "\u2013";

std::string year_of(const Source& source) {
  const std::string_view citation = source.citation;
  return std::string(citation.substr(citation.rfind(' ') + 1));
}

/// "moeller1998" of "Møller et al. 1998".
std::string key_of(const Source& source) {
  const std::string_view citation = source.citation;
  const Q_g_memory<char> plain(
      g_str_to_ascii(std::string(citation.substr(0, citation.find(' '))).c_str(), "C"));
  std::string key;
  for (const char letter : std::string_view(plain.get()))
    if (std::isalpha(static_cast<unsigned char>(letter)) != 0)
      key += char(std::tolower(static_cast<unsigned char>(letter)));
  return key + year_of(source);
}

/// "Hedges, L. V. and others" of "Hedges LV, et al.".
std::string bibtex_authors(std::string_view authors) {
  std::string text;
  while (!authors.empty()) {
    const std::size_t comma = authors.find(", ");
    const std::string_view author = authors.substr(0, comma);
    authors = comma == std::string_view::npos ? std::string_view() : authors.substr(comma + 2);
    if (!text.empty()) text += " and ";
    const std::size_t blank = author.rfind(' ');
    if (author == "et al.") {
      text += "others";
      continue;
    }
    text += std::string(author.substr(0, blank)) + ",";
    for (const char initial : author.substr(blank + 1)) (text += ' ') += {initial, '.'};
  }
  return text;
}

std::string field(const char* name, const std::string& value) {
  return value.empty() ? "" : std::string(",\n  ") + name + " = {" + value + "}";
}

}  // namespace

std::string reference_of(const Source& source) {
  std::string text = std::string(source.authors) + " (" + year_of(source) + "). " + source.title;
  text += text.ends_with('?') ? " " : ". ";
  text += source.where;
  if (*source.volume != '\0') text += std::string(" ") + source.volume + ":" + source.pages;
  return text + ".";
}

std::string bibtex_of(const Source& source) {
  const bool is_article = *source.volume != '\0';
  const std::string where = source.where;
  const bool is_part = where.starts_with("In: ");
  const std::size_t colon = where.find(": ");
  std::string entry = is_article ? "@article{" : is_part ? "@misc{" : "@book{";
  entry += key_of(source) + field("author", bibtex_authors(source.authors)) +
           // Braces keep the capitals.
           field("title", "{" + std::string(source.title) + "}") + field("year", year_of(source));
  if (is_article) {
    std::string pages = source.pages;
    if (const std::size_t dash = pages.find(en_dash); dash != std::string::npos)
      pages.replace(dash, en_dash.size(), "--");
    entry += field("journal", where) + field("volume", source.volume) + field("pages", pages);
  } else if (is_part) {
    entry += field("note", where);
  } else {
    entry += field("address", where.substr(0, colon)) + field("publisher", where.substr(colon + 2));
  }
  return entry + "\n}\n";
}

std::string bibtex_of_program() {
  return "@misc{quorvane" + field("author", "{the Quorvane developers}") +
         field("title", "{Quorvane: voxel-based meta-analysis of neuroimaging studies}") +
         field("note", Q_format("Version %.2f", KVO_VERSION).str()) + "\n}\n";
}

}  // namespace kvo::report
