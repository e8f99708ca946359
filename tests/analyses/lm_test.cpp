// The four kinds of linear models through their dialogs.

#include "analyses/lm.h"

#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>

#include "analysis_window.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using Linear_models = Analysis_window;

TEST_F(Linear_models, RunEachKind) {
  preprocess();
  load_table("study n1 patients siblings age dose\nA 5 0 0 30 1.5\nB 6 1 0 40 2\n");
  struct Case {
    const char* option;
    const char* topic;
    std::vector<std::string> fields;
    std::vector<std::pair<std::string, std::string>> answers;
    Arguments arguments;
    const char* comment;
  };
  const Case cases[] = {
      {"Compare 2 groups",
       "lm_groups",
       {"Name: MyTwoGroups", "2nd group indicator: patients", "Covariate: (none)",
        "(another) Covariate: (none)", "Filter: (none)"},
       {{"Covariate", "age"}, {"Filter", "siblings"}},
       {"MyTwoGroups", "=", "lm", "patients", "+", "age,", "siblings"},
       "# Calculate the linear model 'Y = patients + age' of the subgroup 'siblings' as "
       "'MyTwoGroups':\n"},
      {"Compare 3 groups",
       "lm_groups",
       {"Name: MyThreeGroups", "2nd group indicator: patients", "3rd group indicator: siblings",
        "Covariate: (none)", "(another) Covariate: (none)", "Filter: (none)"},
       {{"Name", "three"}, {"(another) Covariate", "dose"}},
       {"three", "=", "lm", "patients", "+", "siblings", "+", "dose"},
       "# Calculate the linear model 'Y = patients + siblings + dose' of all the studies as "
       "'three':\n"},
      {"Meta-regression",
       "lm_regression",
       {"Name: MyRegression", "Regressor: age", "Filter: (none)"},
       {{"Regressor", "dose"}},
       {"MyRegression", "=", "lm", "dose"},
       "# Calculate the linear model 'Y = dose' of all the studies as 'MyRegression':\n"},
      {"Multiple meta-regression",
       "lm_regression",
       {"Name: MyRegression", "1st regressor: age", "2nd regressor: dose", "Filter: (none)"},
       {{"2nd regressor", "(none)"}},
       {"MyRegression", "=", "lm", "age"},
       "# Calculate the linear model 'Y = age' of all the studies as 'MyRegression':\n"},
  };
  for (const Case& c : cases) {
    user.then([&](Shown_dialog& dialog) {
      EXPECT_EQ(Qs_HelpTopic, "lm");
      EXPECT_EQ(dialog.message(), "[ Select a model ]");
      EXPECT_EQ(dialog.chosen(), "Compare 2 groups");
      EXPECT_EQ(dialog.options(), (Options{"Compare 2 groups", "Compare 3 groups",
                                           "Meta-regression", "Multiple meta-regression"}));
      dialog.choose(c.option);
      dialog.press("OK");
    });
    user.then([&](Shown_dialog& dialog) {
      EXPECT_EQ(Qs_HelpTopic, c.topic);
      EXPECT_EQ(fields(dialog), c.fields);
      for (const auto& [label, value] : c.answers) dialog.set(label, value);
      dialog.press("OK");
    });
    kvo3_lm();
    EXPECT_THAT(runs(), ElementsAre(c.arguments));
    EXPECT_THAT(batch(), HasSubstr(c.comment));
  }
}

TEST_F(Linear_models, RefuseWhatCannotBeRun) {
  preprocess("MyRegression_00\nMyTwoGroups\n");
  expect_refused(kvo3_lm, "No variables found. Please edit table and try again.");
  EXPECT_EQ(Qs_HelpTopic, "old");
  const struct {
    const char* table;
    const char* model;
    std::vector<std::pair<std::string, std::string>> answers;
    const char* message;
  } cases[] = {
      {"study a\nS 1\n",
       "Compare 3 groups",
       {{"2nd group indicator", "(none)"}},
       "Please select the 2nd group indicator and try again."},
      {"study a\nS 1\n",
       "Meta-regression",
       {{"Regressor", "(none)"}},
       "Please select the regressor and try again."},
      {"study a\nS 1\n",
       "Multiple meta-regression",
       {{"1st regressor", "(none)"}},
       "Please select the 1st regressor and try again."},
      {"study a\nS 1\n", "Meta-regression", {{"Name", ""}}, "Please enter a name and try again."},
      {"study a\nS 1\n",
       "Meta-regression",
       {},
       "[ Maps with similar names already exist. Do you want to overwrite them if necessary? ]"},
  };
  for (const auto& c : cases) {
    load_table(c.table);
    user.choose(c.model).answer(c.answers);
    user.then([](Shown_dialog& dialog) { dialog.key(GDK_KEY_Return); });
    kvo3_lm();
    EXPECT_EQ(user.messages().back(), c.message);
    expect_nothing_run();
  }
}

TEST_F(Linear_models, LeaveOutGroupsThatTheTableLacks) {
  preprocess();
  load_table("study a\nS 2\n");
  for (const char* model : {"Compare 2 groups", "Compare 3 groups"}) {
    user.choose(model);
    user.then(press_ok);
    kvo3_lm();
    EXPECT_THAT(user.messages().back(), HasSubstr("No indicators found"));
    expect_nothing_run();
  }
  load_table("study patients\nA 0\nB 1\n");
  user.choose("Compare 3 groups").then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.value("3rd group indicator"), "");
    EXPECT_EQ(dialog.options("3rd group indicator"), (Options{"(none)", "patients"}));
    dialog.press("OK");
  });
  kvo3_lm();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("MyThreeGroups", "=", "lm", "patients")));
  clear_pane(0);
  batch();
  expect_cancellable(kvo3_lm);
  EXPECT_EQ(Qs_HelpTopic, "lm");
}

}  // namespace
