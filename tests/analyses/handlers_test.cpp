// Each handler through its dialogs, against an engine that records its arguments: what
// handlers.tsv says, and what needs more than a line.

#include <gmock/gmock.h>

#include <map>

#include "analyses/create_mask.h"
#include "analyses/extract.h"
#include "analyses/globals.h"
#include "analyses/lm.h"
#include "analyses/mean.h"
#include "analyses/multi.h"
#include "analyses/pp.h"
#include "analyses/threshold.h"
#include "analysis_window.h"
#include "made_image.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
namespace fs = std::filesystem;

struct Handler {
  const char* name;
  void (*run)();
};
void PrintTo(const Handler& handler, std::ostream* out) {
  *out << handler.name;
}
const Handler HANDLERS[] = {{"extract", kvo3_extract}, {"globals", kvo3_globals},
                            {"lm", kvo3_lm},           {"mask", kvo3_dialog_create_roimask},
                            {"mean", kvo3_mean},       {"multi", kvo3_multi},
                            {"pp", kvo3_pp},           {"threshold", kvo3_threshold}};

/// A name whose parts would each do something if the shell saw them, and how a command quotes it.
constexpr const char* HOSTILE = "`touch${IFS}pwned`$(touch${IFS}pwned)>pwned;b|c&(d)";
constexpr const char* QUOTED = R"(\`touch\${IFS}pwned\`\$(touch\${IFS}pwned)>pwned;b|c&(d))";

/// A line of handlers.tsv.
struct Row {
  std::string first;    ///< a command of the shell, to be run before
  std::string table;    ///< of the studies; empty for the one of Handlers
  std::string answers;  ///< as Dialog_driver::play takes them
  std::string outcome;  ///< the batch pane's text; the last message when nothing is run
  std::string shown;    ///< the end of what Dialog_driver::shown gives
};

class Handlers : public Analysis_window, public testing::WithParamInterface<Handler> {
 protected:
  Handlers() { prepare({}); }

  /// Fills the folders, also with images that are no masks and names that are quoted or refused.
  void prepare(const Row& row) {
    reset();
    const auto hostile_mask = Q_format("mask_%s.nii.gz", HOSTILE).str();
    const fs::path share = root() / "share";
    for (const auto& name : {hostile_mask.c_str(), "cor_cerebrospinal_fluid.nii.gz",
                             "cor_fractional_anisotropy.nii.gz", "cor_gray_matter.nii.gz",
                             "cor_t,.nii.gz", "mask_brain.nii.gz", "mask_gray_matter.nii.gz",
                             "mask_m=1.nii.gz", "mask_tbss.nii.gz", "atlas.nii.gz"})
      write_text(share / name, "");
    for (const auto& name :
         {hostile_mask.c_str(), "mask_a.nii.gz", "mask_a-b.nii.gz", "mask_it's.nii.gz",
          "mask_.nii.gz", "mask_x.nii", "Mask_y.nii.gz", "cor_mask_z.nii.gz", "mask_a.nii.gz.bak"})
      write_text(name, "");
    write_text("kvo_maps.txt", "My Mean\nM1_0\nM2_00\nM3_000\nM4_0000\nM_00000\nM\nxM_0\nMy_M_0\n");
    write_text("kvo_nd.txt",
               Q_format("name values\nMyMean 1\nMyMean_n 1\nAgeMap 1\n%s 1\n", HOSTILE).str());
    for (const char* name : {"fmri", "gm"}) write_text(std::string(name) + "_p.nii.gz", name);
    fs::remove_all(results());
    fs::create_directory(results());
    write_text(results() / "old_p.nii.gz", "old");
    load_table(row.table.empty() ? Q_format("study n1 mean1 sd1 age patients siblings z%s\n"
                                            "A 5 2 3 30 0 0 1\nB$(1) 6 2 3 40 1 NA 0\n",
                                            HOSTILE)
                                       .str()
                                 : row.table + "\n");
    ASSERT_TRUE(row.first.empty() || std::system(row.first.c_str()) == 0);
  }
  [[nodiscard]] fs::path results() const { return base() / "results"; }

  /// A line of the table with what its words in capitals stand for.
  [[nodiscard]] std::string with_values(std::string line) const {
    const std::pair<const char*, std::string> words[] = {
        {"IMAGES",
         "Meta-analysis 1, p-value image=WORK/gm_p.nii.gz; "
         "Meta-analysis 2, p-value image=WORK/fmri_p.nii.gz"},
        {"INDICATORS", "<(none), patients, siblings, zHOSTILE>"},
        {"VARIABLES", "<(none), age, mean1, patients, sd1, siblings, zHOSTILE>"},
        {"JACKKNIFE", KVO_JACKKNIFE_VARIABLE},
        {"NO_MAPS", "No maps found. Please run preprocessing and try again."},
        {"NO_NAME", "Please enter a name and try again."},
        {"HOSTILE", HOSTILE},
        {"QUOTED", QUOTED},
        {"WORK", work().string()},
        {"BASE", base().string()},
        {"\\n", "\n"}};
    for (const auto& [word, value] : words)
      for (std::size_t at = 0; (at = line.find(word, at)) != std::string::npos; at += value.size())
        line.replace(at, std::strlen(word), value);
    return line;
  }
  [[nodiscard]] std::vector<Row> rows() const {
    std::vector<Row> result;
    std::istringstream lines(read_text(HANDLERS_TABLE));
    for (std::string line; std::getline(lines, line);) {
      std::istringstream cells(with_values(line) + "\t\t\t\t");
      const auto cell = [&cells](std::string text = "") {
        return std::getline(cells, text, '\t'), text;
      };
      if (cell() == GetParam().name) result.push_back({cell(), cell(), cell(), cell(), cell()});
    }
    return result;
  }
};

/// The words that the shell makes of each command in the text of the batch pane.
std::vector<Arguments> commands_in(const std::string& batch) {
  std::vector<Arguments> result;
  std::istringstream lines(batch);
  for (std::string line; std::getline(lines, line);) {
    gchar** words = nullptr;
    gint count = 0;
    if (line.empty() || line[0] == '#' ||
        !g_shell_parse_argv(line.c_str(), &count, &words, nullptr))
      continue;
    result.emplace_back(words, words + count);
    g_strfreev(words);
  }
  return result;
}

TEST_P(Handlers, DoWhatTheirRowsSay) {
  const std::vector<Row> all = rows();
  EXPECT_GT(all.size(), 5U);
  for (const Row& row : all) {
    SCOPED_TRACE(row.answers + "\n" + row.table + "\n" + row.first);
    prepare(row);
    Dialog_driver user;
    user.play(row.answers);
    GetParam().run();
    EXPECT_THAT(user.shown(), EndsWith(row.shown));
    std::string batch = pane_text(1);
    EXPECT_EQ(runs(), commands_in(batch));
    const bool has_run = !batch.empty();
    EXPECT_THAT(batch, EndsWith(has_run ? "\n\n" : ""));
    batch.resize(has_run ? batch.size() - 2 : 0);
    EXPECT_EQ(has_run ? batch : user.messages().back(), row.outcome);
    if (has_run) continue;
    EXPECT_EQ(pane_text(0), "");
    EXPECT_EQ(fs::current_path(), work());
    EXPECT_EQ(kvo_s_user_dir, work().c_str());
    EXPECT_FALSE(fs::is_regular_file(root() / "etc/linux64.ini"));
    EXPECT_EQ(std::distance(fs::directory_iterator(results()), {}), 1);
    EXPECT_EQ(read_text(results() / "old_p.nii.gz"), "old");
    EXPECT_EQ(read_text("gm_p.nii.gz") + read_text("fmri_p.nii.gz"), "gmfmri");
  }
}

INSTANTIATE_TEST_SUITE_P(All, Handlers, testing::ValuesIn(HANDLERS),
                         [](const auto& handler) { return std::string(handler.param.name); });

using Handler_details = Handlers;

TEST_F(Handler_details, MasksAreMadeOfRegionsThatTheAtlasHas) {
  // The regions 0 to 22, each with Brodmann area 50, and 24 without one.
  std::vector<float> values = made_values();
  values.back() = 24;
  write_gzip(root() / "share/atlas_aal_frw.nii.gz", single_file(made_header(), bytes_of(values)));
  const std::string medial = " superior frontal gyrus, medial";
  const std::string no_voxel = "The atlas has no voxel of region ";
  for (const auto& [region, refusal] : std::map<std::string, std::string>{
           {"Left gyrus rectus",
            no_voxel + "27, 'Left gyrus rectus'. Please select another region and try again."},
           {"Left" + medial, no_voxel + "23, 'Left" + medial + "'"},
           {"Right" + medial, ""}}) {
    Dialog_driver user;
    user.play("OK | Brain region=" + region + (refusal.empty() ? "" : " | OK"));
    kvo3_dialog_create_roimask();
    EXPECT_EQ(runs().size(), refusal.empty() ? 1U : 0U);
    EXPECT_THAT(user.messages().back(), HasSubstr(refusal));
  }
}

TEST_F(Handler_details, MultimodalAnalysesRunInTheFolderOfResults) {
  Qs_HelpURL = "http://site/manual/?show=";
  Dialog_driver user;
  user.play(with_values("IMAGES; Meta-analysis 2, short name=old"))
      .then([&](Shown_dialog& dialog) {
        EXPECT_TRUE(has_selected(dialog.widget(), work().string()));
        dialog.select(results().string());
        dialog.press("Open");
      })
      .play("OK | OK")
      .then([](Shown_dialog& dialog) {
        EXPECT_THAT(dialog.explanation(), EndsWith("(http://site/manual/?show=multi)."));
        dialog.press("OK");
      });
  kvo3_multi();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("multi", "meta1,", "old,", "0.00250,", "0.00025,",
                                              "10,", "1,", "2,", "0.10000")));
  EXPECT_EQ(fs::current_path(), results());
  EXPECT_EQ(kvo_s_user_dir, results().c_str());
  EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(Qw_Window)),
               ("KVO v4.31 - " + results().string()).c_str());
  EXPECT_THAT(read_text(root() / "etc/linux64.ini"),
              HasSubstr("working directory = " + results().string()));
  EXPECT_EQ(read_text("meta1_p.nii.gz") + read_text("old_p.nii.gz"), "gmfmri");
}

}  // namespace
