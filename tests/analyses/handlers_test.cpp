// Each handler through its dialogs, against an engine that records its arguments: what
// handlers.tsv says, and what needs more than a line.

#include <gmock/gmock.h>

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
#include "table_rows.h"

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

class Handlers : public Analysis_window, public testing::WithParamInterface<Handler> {
 protected:
  Handlers() { prepare("", ""); }

  /// Fills the folders, also with images that are no masks and names that are quoted or refused,
  /// and loads the study table, unless it is empty. `first` is a command of the shell.
  void prepare(const std::string& table, const std::string& first) {
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
    load_table(table.empty() ? Q_format("study n1 mean1 sd1 age patients siblings z%s\n"
                                        "A 5 2 3 30 0 0 1\nB$(1) 6 2 3 40 1 NA 0\n",
                                        HOSTILE)
                                   .str()
                             : table + "\n");
    ASSERT_TRUE(first.empty() || std::system(first.c_str()) == 0);
  }
  [[nodiscard]] fs::path results() const { return base() / "results"; }

  /// What the words in capitals of the table stand for.
  [[nodiscard]] Words words() const {
    return {{"IMAGES",
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

/// A row has the handler, a command of the shell to be run before, the study table unless it is
/// that of Handlers, the answers as Dialog_driver::play takes them, the text of the batch pane or,
/// when nothing is run, the last message, and the end of what Dialog_driver::shown gives.
TEST_P(Handlers, DoWhatTheirRowsSay) {
  int rows = 0;
  for (const auto& row : table_rows(HANDLERS_TABLE, words())) {
    const auto &first = row[1], &table = row[2], &answers = row[3], &outcome = row[4];
    if (row[0] != GetParam().name) continue;
    SCOPED_TRACE(testing::PrintToString(row));
    ++rows;
    prepare(table, first);
    Dialog_driver user;
    user.play(answers);
    GetParam().run();
    EXPECT_THAT(user.shown(), EndsWith(row[5]));
    std::string batch = pane_text(1);
    EXPECT_EQ(runs(), commands_in(batch));
    const bool has_run = !batch.empty();
    EXPECT_THAT(batch, EndsWith(has_run ? "\n\n" : ""));
    batch.resize(has_run ? batch.size() - 2 : 0);
    EXPECT_EQ(has_run ? batch : user.messages().back(), outcome);
    if (has_run) continue;
    EXPECT_EQ(pane_text(0), "");
    EXPECT_EQ(fs::current_path(), work());
    EXPECT_EQ(kvo_s_user_dir, work().c_str());
    EXPECT_FALSE(fs::is_regular_file(root() / "etc/linux64.ini"));
    EXPECT_EQ(std::distance(fs::directory_iterator(results()), {}), 1);
    EXPECT_EQ(read_text(results() / "old_p.nii.gz"), "old");
    EXPECT_EQ(read_text("gm_p.nii.gz") + read_text("fmri_p.nii.gz"), "gmfmri");
  }
  EXPECT_GT(rows, 5);
}

INSTANTIATE_TEST_SUITE_P(All, Handlers, testing::ValuesIn(HANDLERS),
                         [](const auto& handler) { return std::string(handler.param.name); });

using Handler_details = Handlers;

TEST_F(Handler_details, MasksAreMadeOfRegionsThatTheAtlasHas) {
  // The regions 0 to 22, each with Brodmann area 50, and 24 without one.
  std::vector<float> values = made_values();
  values.back() = 24;
  write_gzip(root() / "share/atlas_aal_frw.nii.gz", single_file(made_header(), bytes_of(values)));
  const std::pair<std::string, std::string> cases[] = {
      {"Left gyrus rectus",
       "region 27, 'Left gyrus rectus'. Please select another region and try again."},
      {"Left superior frontal gyrus, medial", "region 23, 'Left superior frontal gyrus, medial'. "},
      {"Right superior frontal gyrus, medial", ""}};
  for (const auto& [region, refusal] : cases) {
    Dialog_driver user;
    user.play("OK | Brain region=" + region + (refusal.empty() ? "" : " | OK"));
    kvo3_dialog_create_roimask();
    EXPECT_EQ(runs().size(), refusal.empty() ? 1U : 0U);
    EXPECT_THAT(user.messages().back(),
                HasSubstr(refusal.empty() ? "" : "The atlas has no voxel of " + refusal));
  }
}

TEST_F(Handler_details, MultimodalAnalysesRunInTheFolderOfResults) {
  Qs_HelpURL = "http://site/manual/?show=";
  Dialog_driver user;
  user.play(with_values("IMAGES; Meta-analysis 2, short name=old", words()))
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
