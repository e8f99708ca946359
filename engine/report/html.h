#pragma once

// A report as a single HTML file: nothing from elsewhere, for screens of any width, light or dark,
// and for A4 paper. It is well-formed XML too, which strict readers take. It runs no script but its
// own, if it has one, and can be read without.
//
// All texts are plain text, from wherever they come: they are shown as they are, never as markup.

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/report/methods.h"
#include "engine/report/picture.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

/// A thing that is known of an analysis, such as "Studies" and "25".
struct Fact {
  std::string label, text;
};

/// What the texts of a column lead to, where they are well formed; `file` is a file beside the
/// page.
enum class HtmlLink { none, doi, pmid, file };

struct HtmlColumn {
  std::string title;
  bool number = false;     ///< whether the cells are numbers, to be aligned at their right
  bool two_lines = false;  ///< its cells may be of two lines, with '\n' between
  HtmlLink link = HtmlLink::none;
};

struct HtmlRow {
  std::vector<std::string> cells;  ///< one for each column
  /// Whether the row begins a group: what follows up to the next such row belongs to it.
  bool leads = false;
  double share = 0;  ///< 0 to 1; above 0 it is drawn as a bar behind the last cell
  /// The place in mm of MNI space that the row is about, for the explorer.
  std::optional<std::array<int, 3>> place{};
};

struct HtmlTable {
  std::string caption;  ///< may be empty
  std::vector<HtmlColumn> columns;
  std::vector<HtmlRow> rows;
};

/// A page beside this one, with a picture of it.
struct HtmlCard {
  std::string file, title, text;
  std::string png;  ///< by base64(); may be empty
};

/// What a page says that it was written by: this program, and what kind of page it is; "" of a page
/// of others.
std::string page_generator(std::string_view page);

/// Bytes as text that HTML can hold.
std::string base64(const std::string& bytes);

/// The page, from top to bottom.
class HtmlReport {
 public:
  HtmlReport(std::string_view title, std::string_view subtitle, std::string_view kind = "report");

  /// The heading of what is added next, from which a page break does not part it.
  void heading(std::string_view text);
  void paragraph(std::string_view text);
  /// A paragraph that stands out: a result that one must not miss.
  void notice(std::string_view text);
  /// The paragraph on methods under a heading of its own, set apart from the page's text, with its
  /// sources.
  void methods(const Methods& methods);
  void facts(std::span<const Fact> facts);
  /// Commands, a line each, in the order in which they were run.
  void commands(std::span<const std::string> commands);
  void table(const HtmlTable& table);
  void picture(const Picture& picture, std::string_view caption);
  /// Pages beside this one, side by side.
  void cards(std::span<const HtmlCard> cards);
  /// Markup that a script brings to life, and that script: the one that the page lets run. Once a
  /// page.
  void scripted(std::string_view markup, std::string_view script);

  /// The whole file. Nothing can be added after that.
  std::string finish();

 private:
  void open_part();

  std::string page_;
  std::string script_;
  std::string heading_;  ///< markup that is to go before the next part, or inside of a picture
};

}  // namespace kvo::report
