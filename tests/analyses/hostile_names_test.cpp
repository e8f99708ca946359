// Names that would run a command if the shell saw them unquoted, wherever a handler takes names
// from: the engine gets them as they are.

#include <gmock/gmock.h>

#include <functional>

#include "analyses/create_mask.h"
#include "analyses/extract.h"
#include "analyses/globals.h"
#include "analyses/lm.h"
#include "analyses/mean.h"
#include "analyses/names.h"
#include "analyses/pp.h"
#include "analyses/threshold.h"
#include "analysis_window.h"

namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

using Hostile_names = Analysis_window;

TEST_F(Hostile_names, ReachTheEngineAndRunNothing) {
  const std::string hostile[] = {"a;touch${IFS}pwned", "`touch${IFS}pwned`", "$(touch${IFS}pwned)",
                                 "x>pwned", "|touch\xc2\xa0pwned"};
  preprocess();
  for (const std::string& name : hostile) {
    SCOPED_TRACE(name);
    // Files of these names stand beside the working folder's harmless ones.
    load_table("study n1 mean1 sd1 aaa " + name + "\nA 1 1 1 1 1\n" + name + " 1 1 1 0 0\n");
    write_text("kvo_nd.txt", "header\n" + name + " 1\n");
    const fs::path mask = "mask_" + name + ".nii.gz";
    const fs::path share_mask = root() / "share" / mask;
    write_text(mask, "");
    write_text(share_mask, "");
    const struct {
      const char* name;
      void (*handler)();
      std::function<void()> answer;
    } cases[] = {
        {"filter", kvo3_mean,
         [&] {
           user.answer({{"Filter", name}});
         }},
        {"jackknife's filter", kvo3_mean,
         [&] {
           user.answer({{"Filter", name}, {"Jackknife", "yes"}});
         }},
        {"jackknife's study", kvo3_mean,
         [&] {
           user.answer({{"Jackknife", "yes"}});
         }},
        {"covariate", kvo3_globals,
         [&] {
           user.answer({{"Covariate", name}});
         }},
        {"regressor", kvo3_lm,
         [&] {
           user.choose("Meta-regression").answer({{"Regressor", name}});
         }},
        {"model's filter", kvo3_lm,
         [&] {
           user.choose("Meta-regression").answer({{"Filter", name}});
         }},
        {"null distribution", kvo3_threshold, [&] { user.answer({}); }},
        {"mask", kvo3_extract,
         [&] {
           user.answer({{"Mask", name}});
         }},
        {"installed mask", kvo3_pp,
         [&] {
           user.answer({}).answer({{"Mask", name}});
         }},
        {"typed name", kvo3_mean,
         [&] {
           user.answer({{"Name", name}});
         }},
        {"typed mask", kvo3_dialog_create_roimask,
         [&] {
           user.answer({}).answer({{"Name (optional)", name}});
         }},
    };
    for (const auto& c : cases) {
      SCOPED_TRACE(c.name);
      c.answer();
      const bool is_made_safe =
          std::string(c.name).starts_with("typed") || std::string(c.name) == "jackknife's study";
      c.handler();
      std::string words;
      for (const Arguments& run : runs())
        for (const std::string& word : run) words += word + "\n";
      // A jackknife names its filter in no command, but takes the studies that it lets through.
      if (std::string(c.name) == "jackknife's filter")
        EXPECT_THAT(words, HasSubstr("MyMeanJKA\n"));
      else
        EXPECT_THAT(words, HasSubstr(is_made_safe ? kvo_safe_name(name) : name));
      EXPECT_FALSE(fs::exists("pwned"));
      clear_pane(0);
      clear_pane(1);
    }
    fs::remove(mask);
    fs::remove(share_mask);
  }
}

}  // namespace
