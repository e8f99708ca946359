#include "engine/report/html.h"

#include <glib.h>

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <utility>

#include "engine/base/wording.h"
#include "engine/report/html_style.h"
#include "util/handles.h"
#include "util/q_string.h"
#include "util/text.h"

namespace kvo::report {

namespace {

std::string joined(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text += part;
  return text;
}

std::string element(std::string_view name, std::string_view text) {
  return joined({"<", name, ">", html_escaped(text), "</", name, ">\n"});
}

/// Keeps the text's lines.
std::string preformatted(std::string_view text) {
  std::string content;
  for (std::size_t start = 0, end = 0; end != std::string_view::npos; start = end + 1) {
    end = text.find('\n', start);
    content += html_escaped(text.substr(start, end - start)) + "\n";
  }
  return "<pre>" + content + "</pre>\n";
}

/// Where a file beside the page is, whatever it is called.
std::string file_address(std::string_view name) {
  const Q_g_memory<char> escaped(
      g_uri_escape_bytes(reinterpret_cast<const guchar*>(name.data()), name.size(), nullptr));
  return joined({"./", escaped.get()});
}

/// Where the text leads; "" for one that is no DOI or PMID.
std::string address_of(HtmlLink link, std::string_view text) {
  const bool is_plain = std::ranges::all_of(text, [](unsigned char c) {
    return std::isalnum(c) != 0 ||
           std::string_view("-._;()/:").find(char(c)) != std::string_view::npos;
  });
  const bool is_number = !text.empty() && std::ranges::all_of(text, [](unsigned char c) {
    return std::isdigit(c) != 0;
  });
  if (link == HtmlLink::doi && is_plain && text.starts_with("10.") &&
      text.find('/') != std::string_view::npos)
    return joined({"https://doi.org/", text});
  if (link == HtmlLink::file && !text.empty()) return file_address(text);
  if (link == HtmlLink::pmid && is_number)
    return joined({"https://pubmed.ncbi.nlm.nih.gov/", text, "/"});
  return "";
}

std::string cell(std::string_view name, const HtmlColumn& column, std::string_view text) {
  if (const std::string address = address_of(column.link, text); !address.empty())
    return joined({"<", name, "><a href=\"", html_escaped(address), "\">", html_escaped(text),
                   "</a></", name, ">"});
  const std::size_t line = column.two_lines ? text.find('\n') : std::string_view::npos;
  std::string content = html_escaped(text.substr(0, line));
  if (line != std::string_view::npos)
    content += "<br/><small>" + html_escaped(text.substr(line + 1)) + "</small>";
  return joined({"<", name, column.number ? " class=\"number\">" : ">", content, "</", name, ">"});
}

std::string cell_with_bar(double share, std::string_view text) {
  return joined({"<td class=\"number share\" style=\"--share:", decimal_text(share, 3), "\">",
                 html_escaped(text), "</td>"});
}

/// The tag of a row, with its place.
std::string row_start(const HtmlRow& row) {
  std::string tag = row.leads ? "<tr class=\"leads\"" : "<tr";
  if (row.place)
    tag +=
        Q_format(" data-mm=\"%d %d %d\"", (*row.place)[0], (*row.place)[1], (*row.place)[2]).str();
  return tag + ">";
}

constexpr std::string_view generator_start = "<meta name=\"generator\" content=\"";
constexpr std::string_view policy_start =
    "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; ";

}  // namespace

std::string base64(const std::string& bytes) {
  const Q_g_memory<char> text(
      g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size()));
  return text.get();
}

std::string page_generator(std::string_view page) {
  const std::size_t begin = page.find(generator_start);
  if (begin == std::string_view::npos) return "";
  page.remove_prefix(begin + generator_start.size());
  const std::string_view generator = page.substr(0, page.find('"'));
  const std::string program = program_text();
  return generator.starts_with(program.substr(0, program.find(' ') + 1)) ? std::string(generator)
                                                                         : "";
}

HtmlReport::HtmlReport(std::string_view title, std::string_view subtitle, std::string_view kind) {
  // No policy would let a text that got through as markup load or run anything.
  page_ = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n" +
          std::string(policy_start) + "img-src data:; style-src 'unsafe-inline'\"/>\n" +
          joined({generator_start, program_text(), " ", kind, "\"/>\n"}) +
          "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
          "<meta name=\"color-scheme\" content=\"light dark\"/>\n" +
          element("title", title) + "<style>\n" + html_style +
          "</style>\n</head>\n<body>\n<main>\n<header>\n" + element("h1", title);
  if (!subtitle.empty()) page_ += "<p class=\"subtitle\">" + html_escaped(subtitle) + "</p>\n";
  page_ += "</header>\n";
}

void HtmlReport::heading(std::string_view text) {
  open_part();
  heading_ = element("h2", text);
}

void HtmlReport::open_part() {
  page_ += heading_;
  heading_.clear();
}

void HtmlReport::paragraph(std::string_view text) {
  open_part();
  page_ += element("p", text);
}

void HtmlReport::notice(std::string_view text) {
  open_part();
  page_ += "<p class=\"notice\" role=\"note\">" + html_escaped(text) + "</p>\n";
}

void HtmlReport::methods(const Methods& methods) {
  heading("Methods");
  paragraph("A paragraph that an article can adapt:");
  page_ += joined({"<blockquote>", html_escaped(methods.paragraph), "</blockquote>\n"});
  if (methods.sources.empty()) return;
  page_ += "<ul class=\"sources\">\n";
  std::string bibtex;
  for (const Source& source : methods.sources) {
    page_ += element("li", reference_of(source));
    bibtex += bibtex_of(source);
  }
  page_ += "</ul>\n<details>\n<summary>BibTeX</summary>\n" +
           preformatted(bibtex + bibtex_of_program()) + "</details>\n";
}

void HtmlReport::facts(std::span<const Fact> facts) {
  if (facts.empty()) return;
  open_part();
  page_ += "<table class=\"facts\"><tbody>\n";
  for (const Fact& fact : facts)
    page_ += "<tr><th scope=\"row\">" + html_escaped(fact.label) + "</th><td>" +
             html_escaped(fact.text) + "</td></tr>\n";
  page_ += "</tbody></table>\n";
}

void HtmlReport::commands(std::span<const std::string> commands) {
  if (commands.empty()) return;
  open_part();
  page_ += "<ol class=\"commands\">\n";
  for (const std::string& command : commands)
    page_ += "<li><code>" + html_escaped(command) + "</code></li>\n";
  page_ += "</ol>\n";
}

void HtmlReport::table(const HtmlTable& table) {
  open_part();
  if (!table.caption.empty())
    page_ += joined({"<p class=\"caption\">", html_escaped(table.caption), "</p>\n"});
  page_ += "<div class=\"wide\"><table>\n<thead><tr>";
  for (HtmlColumn column : table.columns) {
    column.link = HtmlLink::none;
    page_ += cell("th", column, column.title);
  }
  page_ += "</tr></thead>\n<tbody>\n";
  for (const HtmlRow& row : table.rows) {
    page_ += row_start(row);
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      const std::string_view text = i < row.cells.size() ? row.cells[i] : std::string_view();
      const bool has_bar = row.share > 0 && i + 1 == table.columns.size();
      page_ += has_bar ? cell_with_bar(row.share, text) : cell("td", table.columns[i], text);
    }
    page_ += "</tr>\n";
  }
  page_ += "</tbody>\n</table></div>\n";
}

void HtmlReport::picture(const Picture& picture, std::string_view caption) {
  page_ += joined({"<figure>", std::exchange(heading_, ""), "<img src=\"data:image/png;base64,",
                   base64(picture.png), "\" alt=\"", html_escaped(picture.alt), "\" width=\"",
                   std::to_string(picture.width), "\" height=\"", std::to_string(picture.height),
                   "\"/>\n"});
  if (!caption.empty()) page_ += element("figcaption", caption);
  page_ += "</figure>\n";
}

void HtmlReport::cards(std::span<const HtmlCard> cards) {
  open_part();
  page_ += "<ul class=\"cards\">\n";
  for (const HtmlCard& card : cards) {
    page_ += joined({"<li><a href=\"", html_escaped(file_address(card.file)), "\">"});
    if (!card.png.empty())
      page_ +=
          joined({"<img src=\"data:image/png;base64,", html_escaped(card.png), "\" alt=\"\"/>"});
    page_ += joined({"<b>", html_escaped(card.title), "</b></a><br/>", html_escaped(card.text),
                     "<br/><small>", html_escaped(card.file), "</small></li>\n"});
  }
  page_ += "</ul>\n";
}

void HtmlReport::scripted(std::string_view markup, std::string_view script) {
  open_part();
  page_ += markup;
  script_ = script;
  page_.insert(page_.find(policy_start) + policy_start.size(),
               joined({"script-src 'sha256-", base64(Q_sha256_bytes(script)), "'; "}));
}

std::string HtmlReport::finish() {
  open_part();
  page_ += "</main>\n";
  if (!script_.empty()) page_ += joined({"<script>", script_, "</script>\n"});
  page_ += "</body>\n</html>\n";
  return std::move(page_);
}

}  // namespace kvo::report
