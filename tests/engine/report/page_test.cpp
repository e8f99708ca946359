// Texts from anywhere are shown as they are, in a page that is well-formed and needs nothing else.

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <set>

#include "engine/base/wording.h"
#include "engine/report/cluster_report.h"
#include "table.h"

using namespace kvo::report;

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

/// What a strict parser finds in a page.
struct Parsed {
  std::map<std::string, int> elements;
  std::map<std::string, std::vector<std::string>> attributes;
  std::vector<std::string> texts;  ///< of elements and alternative texts
  std::string error;
};

void on_element(GMarkupParseContext*, const gchar* element, const gchar** names,
                const gchar** values, gpointer data, GError**) {
  auto& parsed = *static_cast<Parsed*>(data);
  ++parsed.elements[element];
  for (; *names != nullptr; ++names, ++values) {
    parsed.attributes[*names].emplace_back(*values);
    if (std::string(*names) == "alt") parsed.texts.emplace_back(*values);
  }
}

void on_text(GMarkupParseContext*, const gchar* text, gsize length, gpointer data, GError**) {
  static_cast<Parsed*>(data)->texts.emplace_back(text, length);
}

Parsed parsed(const std::string& page) {
  static constexpr GMarkupParser parser = {on_element, nullptr, on_text, nullptr, nullptr};
  Parsed result;
  GMarkupParseContext* context =
      g_markup_parse_context_new(&parser, G_MARKUP_PREFIX_ERROR_POSITION, &result, nullptr);
  GError* error = nullptr;
  if (!g_markup_parse_context_parse(context, page.data(), gssize(page.size()), &error) ||
      !g_markup_parse_context_end_parse(context, &error)) {
    result.error = error->message;
    g_error_free(error);
  }
  g_markup_parse_context_free(context);
  return result;
}

/// A page with a text, numbered, in every place that takes one, and the places.
std::string page_full_of(const std::string& text, int& places) {
  places = 0;
  const auto next = [&] { return "place" + std::to_string(++places) + text; };
  const std::string title = next(), subtitle = next();
  HtmlReport page(title, subtitle);
  page.heading(next());
  page.paragraph(next());
  page.notice(next());
  const std::vector<Fact> facts = {{next(), next()}};
  page.facts(facts);
  const std::vector<std::string> commands = {next()};
  page.commands(commands);
  page.table({next(), {{next(), true}, {next()}}, {{{next(), next()}, true}}});
  page.heading(next());
  Picture picture{"bytes", 10, 10, next()};
  page.picture(picture, next());
  page.methods({next(), {sources::hedges}});
  return page.finish();
}

TEST(Page, LeadsToPapersByWellFormedNamesAlone) {
  HtmlReport page("", "");
  page.table({"",
              {{.title = "DOI", .link = HtmlLink::doi}, {.title = "PMID", .link = HtmlLink::pmid}},
              {{{"10.1016/j.x(2018)1", "12345"}},
               {{"10.1/\"><script>", "1e5"}},
               {{"javascript:alert(1)", "../1"}},
               {{"", ""}}}});
  EXPECT_THAT(parsed(page.finish()).attributes["href"],
              testing::ElementsAre("https://doi.org/10.1016/j.x(2018)1",
                                   "https://pubmed.ncbi.nlm.nih.gov/12345/"));
}

TEST(Page, ShowsEveryTextAsItIsAndStaysWellFormed) {
  int places = 0;
  const Parsed plain = parsed(page_full_of("", places));
  ASSERT_EQ(plain.error, "");
  struct {
    std::string text, shown;
  } const cases[] = {
      {"<script>alert(1)</script>", "<script>alert(1)</script>"},
      {"\"' onload='x' \"", "\"' onload='x' \""},
      {"&amp; &#60;b&#62; &nosuch;", "&amp; &#60;b&#62; &nosuch;"},
      {"</title></style></td>]]>-->", "</title></style></td>]]>-->"},
      {"研究 \u202Eعربي 🧠 e\u0301", "研究 \u202Eعربي 🧠 e\u0301"},
      {"a\xFF\xC3(\xED\xA0\x80z", "a\uFFFD\uFFFD(\uFFFD\uFFFD\uFFFDz"},
      {std::string("nul\0esc\x1B del\x7F nel\xC2\x85", 19),
       "nul\uFFFDesc\uFFFD del\uFFFD nel\uFFFD"},
      {"two\nlines\tand\rmore", "two lines and more"},
      {"\uFFFE\uFFFF", "\uFFFD\uFFFD"},
      {std::string(100000, '<'), std::string(100000, '<')},
  };
  for (const auto& [text, shown] : cases) {
    SCOPED_TRACE(text.substr(0, 60));
    const Parsed page = parsed(page_full_of(text, places));
    EXPECT_EQ(page.error, "");
    EXPECT_EQ(page.elements, plain.elements) << "elements have come from a text";
    for (int place = 1; place <= places; ++place)
      EXPECT_THAT(page.texts, Contains("place" + std::to_string(place) + shown));
  }
}

Cluster cluster_at(int i, int j, int k, double z, std::size_t voxels, const std::string& region) {
  Cluster cluster;
  cluster.positive = z > 0;
  for (std::size_t n = 0; n < voxels; ++n)
    cluster.grid_index.push_back(std::uint32_t(mni_grid().index(i, j, k) + n));
  cluster.peaks.push_back({{i, j, k}, z, {0.00012, 0.012}, region});
  cluster.regions = {{region, voxels - 1}, {"Right insula", 1}};
  return cluster;
}

ClusterReport report_of(std::span<const Cluster> clusters, std::vector<float>& map) {
  map.assign(mni_grid().voxels(), 0);
  for (const Cluster& cluster : clusters)
    for (const std::uint32_t voxel : cluster.grid_index)
      map[voxel] = float(cluster.peaks.front().z);
  ClusterReport report;
  report.title = "MyMean";
  report.facts = {{"Studies", "21"}};
  report.commands = {"MyMean = mean"};
  report.clusters = clusters;
  report.z = map;
  return report;
}

TEST(ClusterReport, HasEveryClusterWithItsPlaceNumbersAndRegions) {
  std::vector<Cluster> clusters = {cluster_at(24, 80, 50, 4.123, 200, "Left <i>insula</i>"),
                                   cluster_at(60, 20, 40, -3.456, 12345, "outside of the atlas")};
  clusters[0].peaks.push_back({{45, 81, 50}, 3.2, {0.5}, "Corpus callosum"});
  std::vector<float> map;
  const ClusterReport report = report_of(clusters, map);
  const std::string html = cluster_report(report);
  EXPECT_EQ(html, cluster_report(report)) << "the same report, other bytes";
  const Parsed page = parsed(html);
  ASSERT_EQ(page.error, "");
  const char* texts =
      "MyMean|MyMean = mean|Studies|21|\u221242|34|28|4.12|0.00012|0.012|200|1600|"
      "Left <i>insula</i>|99.5 %|30|\u221286|8|\u22123.46|12\u202F345|98\u202F760|"
      "Outside of the atlas (right)|Corpus callosum (midline)|0.500|1 smaller part";
  for (const std::string& text : split(texts, "|", 30)) EXPECT_THAT(page.texts, Contains(text));
  EXPECT_THAT(page.texts, Contains(HasSubstr("2 clusters survive the thresholds: 1 positive and 1 "
                                             "negative, 12\u202F545 voxels")));
  EXPECT_EQ(page.elements.at("img"), 2);
  EXPECT_THAT(page.attributes.at("alt"), Not(Contains("")));
  EXPECT_THAT(page.attributes.at("style"), Contains("--share:0.995"));
  // One file, and nothing that runs.
  for (const char* none : {"script", "link", "iframe", "object", "a"})
    EXPECT_FALSE(page.elements.contains(none)) << none;
  for (const std::string& source : page.attributes.at("src"))
    EXPECT_TRUE(source.starts_with("data:image/png;base64,iVBOR")) << source.substr(0, 40);
  for (const char* none : {"url(", "@import", "http:", "https:"})
    EXPECT_THAT(html, Not(HasSubstr(none)));
  EXPECT_LT(html.size(), 1500000U);
}

TEST(ClusterReport, ExploresWithOneScriptWhateverStudiesAreCalled) {
  const std::vector<Cluster> clusters = {cluster_at(24, 80, 50, 4.123, 200, "Left insula")};
  std::vector<float> map;
  ClusterReport report = report_of(clusters, map);
  report.explored.emplace();
  report.explored->z = map;
  const std::string name = "</li></ul></script><script>alert(1)</script>\"' ]]>";
  report.explored->studies = {{name, "12", false, {{{-38, 4, 2}, std::nan(""), {}}}}};
  const std::string html = cluster_report(report);
  const Parsed page = parsed(html);
  ASSERT_EQ(page.error, "");
  EXPECT_THAT(page.texts, Contains(name));
  EXPECT_EQ(page.elements.at("script"), 1 + 2) << "its own, and the two volumes";
  EXPECT_THAT(page.attributes.at("content"), Contains(HasSubstr("script-src 'sha256-")));
  EXPECT_THAT(page.attributes.at("data-places"), Contains("-38,4,2,nan"));
  EXPECT_THAT(html, Not(HasSubstr("<script>alert")));
}

TEST(ClusterReport, SaysThatNothingSurvivesAndWhatWasRun) {
  std::vector<float> map;
  const Parsed page = parsed(cluster_report(report_of({}, map)));
  EXPECT_EQ(page.error, "");
  EXPECT_THAT(page.texts, Contains(HasSubstr("Nothing survives the thresholds")));
  EXPECT_THAT(page.texts, IsSupersetOf({"MyMean = mean", "21"}));
}

TEST(ReportText, WritesNumbersForReading) {
  struct {
    std::string written, expected;
  } const cases[] = {
      {decimal_text(-0.001, 2), "0.00"},
      {decimal_text(-1.005e3, 1), "\u22121005.0"},
      {decimal_text(0.0 / 0.0 * 1, 2), "\u2013"},
      {p_text(1), "1.000"},
      {p_text(0.0496), "0.050"},
      {p_text(0.001), "0.001"},
      {p_text(0.00099), "0.00099"},
      {p_text(0.0000223), "2.2 × 10⁻⁵"},
      {p_text(1.5e-123), "1.5 × 10⁻¹²³"},
      {p_text(0), "0.000"},
      {printable_text({}), ""},
  };
  for (const auto& [written, expected] : cases) EXPECT_EQ(written, expected);
}

}  // namespace
