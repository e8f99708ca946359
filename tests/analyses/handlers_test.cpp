// Each handler through its dialogs, against an engine that records its arguments.

#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>

#include <algorithm>

#include "analyses/create_mask.h"
#include "analyses/extract.h"
#include "analyses/globals.h"
#include "analyses/lm.h"
#include "analyses/mean.h"
#include "analyses/multi.h"
#include "analyses/pp.h"
#include "analyses/threshold.h"
#include "analysis_window.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

using Options = std::vector<std::string>;

const char* const NO_MAPS = "No maps found. Please run preprocessing and try again.";

class Handlers : public Analysis_window {
 protected:
  /// Makes the working folder one that has been preprocessed.
  static void preprocess(const std::string& maps = "") { write_text("kvo_maps.txt", maps); }

  /// Runs a handler that is expected to show the one message and do nothing else.
  void expect_refused(void (*handler)(), const std::string& message) {
    user.then(press_ok);
    const std::size_t before = user.messages().size();
    handler();
    ASSERT_EQ(user.messages().size(), before + 1);
    EXPECT_EQ(user.messages().back(), message);
    expect_nothing_run();
  }

  /// Runs a handler that is expected to end when its dialog is cancelled.
  void expect_cancellable(void (*handler)()) {
    user.answer({}, "Cancel");
    handler();
    expect_nothing_run();
  }

  Dialog_driver user;
};

TEST_F(Handlers, NeedMaps) {
  const struct {
    void (*handler)();
    const char* topic;
  } cases[] = {
      {kvo3_mean, "old"},
      {kvo3_lm, "old"},
      {kvo3_dialog_create_roimask, "old"},
      {kvo3_extract, "old"},
      {kvo3_threshold, "threshold"},
  };
  for (const auto& c : cases) {
    expect_refused(c.handler, NO_MAPS);
    EXPECT_EQ(Qs_HelpTopic, c.topic);
  }
}

TEST_F(Handlers, Preprocessing) {
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ PREPROCESSING ]");
    EXPECT_EQ(dialog.explanation(),
              "A new meta-analysis will be created. Please choose the modality of the "
              "meta-analysis and the number or randomizations (you can select just one if this is "
              "not the final meta-analysis). Note that any previous meta-analysis in this folder "
              "will be removed.");
    EXPECT_THAT(fields(dialog),
                ElementsAre("Modality: Functional MRI or PET", "Number of randomizations: 1"));
    EXPECT_EQ(dialog.options("Modality"),
              (Options{"DTI - fractional anisotropy", "DTI - fractional anisotropy (TBSS)",
                       "Functional MRI or PET", "VBM - cerebrospinal fluid", "VBM - gray matter",
                       "VBM - white matter", "Other"}));
    dialog.set("Number of randomizations", "900");
    dialog.press("OK");
  });
  user.then([](Shown_dialog& dialog) {
    EXPECT_THAT(fields(dialog), ElementsAre("Correlation template: gray_matter", "Anisotropy: 1.0",
                                            "Isotropic FWHM (mm): 20", "Mask: gray_matter"));
    EXPECT_EQ(
        dialog.options("Correlation template"),
        (Options{"cerebrospinal_fluid", "fractional_anisotropy", "gray_matter", "white_matter"}));
    EXPECT_EQ(dialog.options("Mask"),
              (Options{"brain", "cerebrospinal_fluid", "gray_matter", "tbss", "white_matter"}));
    const Q_g_memory<char> tooltip(gtk_widget_get_tooltip_text(dialog.field("Anisotropy")));
    EXPECT_STREQ(tooltip.get(), "From 0.0 to 1.0");
    dialog.set("Anisotropy", "0.55");
    dialog.set("Isotropic FWHM (mm)", "12");
    dialog.set("Mask", "brain");
    dialog.press("OK");
  });
  kvo3_pp();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("pp", "gray_matter,", testing::AnyOf("0.5,", "0.6,"),
                                              "12,", "brain,", "500")));
  EXPECT_THAT(batch(), testing::MatchesRegex(
                           "# Preprocess the studies \\('gray_matter', anisotropy = 0\\.[56], "
                           "isotropic FWHM = 12mm, mask = 'brain', 500 randomizations\\):\n"
                           "pp gray_matter, 0\\.[56], 12, brain, 500\n\n"));
  EXPECT_EQ(Qs_HelpTopic, "pp");
}

TEST_F(Handlers, PreprocessingOfTbssAsksBefore) {
  for (const bool go_on : {false, true}) {
    user.answer({{"Modality", "DTI - fractional anisotropy (TBSS)"}});
    user.then([&](Shown_dialog& dialog) {
      EXPECT_EQ(Qs_HelpTopic, "tbss");
      EXPECT_THAT(dialog.explanation(), HasSubstr("information.  Do you want to continue?"));
      if (go_on)
        dialog.press("OK");
      else
        dialog.key(GDK_KEY_Return);
    });
    if (go_on) {
      user.then([](Shown_dialog& dialog) {
        EXPECT_EQ(Qs_HelpTopic, "pp");
        EXPECT_EQ(dialog.value("Correlation template"), "fractional_anisotropy");
        EXPECT_EQ(dialog.value("Mask"), "tbss");
        dialog.press("OK");
      });
    }
    kvo3_pp();
    if (!go_on) {
      expect_nothing_run();
      EXPECT_EQ(Qs_HelpTopic, "tbss");
    } else {
      EXPECT_THAT(runs(), ElementsAre(ElementsAre("pp", "fractional_anisotropy,", "1.0,", "20,",
                                                  "tbss,", "1")));
    }
  }
}

TEST_F(Handlers, PreprocessingGoesByTheInstalledImages) {
  const fs::path share = root() / "share";
  fs::remove(share / "mask_gray_matter.nii.gz");
  fs::remove(share / "cor_gray_matter.nii.gz");
  user.answer({}).then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.value("Correlation template"), "cerebrospinal_fluid");
    EXPECT_EQ(dialog.value("Mask"), "brain");
    dialog.press("Cancel");
  });
  kvo3_pp();
  expect_cancellable(kvo3_pp);

  for (const fs::path& file : fs::directory_iterator(share))
    if (file.filename().string().starts_with("mask_")) fs::remove(file);
  expect_refused(kvo3_pp, "No masks found in '" + share.string() + "'.");
  fs::remove_all(share);
  expect_refused(kvo3_pp, "No correlation templates found in '" + share.string() + "'.");
}

TEST_F(Handlers, Globals) {
  expect_refused(kvo3_globals, "Variable 'mean1' not found in the KVO table");
  load_table("study n1 n2 mean1 sd1 mean2\nA 1 1 1 1 1\n");
  expect_refused(kvo3_globals, "Variable 'sd2' not found in the KVO table");
  EXPECT_EQ(Qs_HelpTopic, "old");

  load_table("study n1 mean1 sd1 patients age adults\nA 9 2 3 1 30 0\nB 9 2 3 0 40 1\n");
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ GLOBALS ANALYSIS ]");
    EXPECT_THAT(fields(dialog), ElementsAre("Name: MyGlobals", "2nd group indicator: (none)",
                                            "3rd group indicator: (none)", "Covariate: (none)",
                                            "(another) Covariate: (none)", "Filter: (none)"));
    EXPECT_EQ(dialog.options("3rd group indicator"), (Options{"(none)", "adults", "patients"}));
    EXPECT_EQ(dialog.options("Covariate"),
              (Options{"(none)", "adults", "age", "mean1", "patients", "sd1"}));
    EXPECT_EQ(dialog.options("Filter"), (Options{"(none)", "adults", "patients"}));
    dialog.press("OK");
  });
  kvo3_globals();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("MyGlobals", "=", "globals")));
  EXPECT_EQ(batch(),
            "# Calculate globals of the model 'Y = 1' of all the studies as 'MyGlobals':\n"
            "MyGlobals = globals\n\n");

  user.answer({{"Name", "G 1"},
               {"2nd group indicator", "patients"},
               {"(another) Covariate", "age"},
               {"Filter", "adults"}});
  kvo3_globals();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("G_1", "=", "globals", "+", "patients", "+", "age,",
                                              "adults")));
  EXPECT_EQ(batch(),
            "# Calculate globals of the model 'Y = 1 + patients + age' of the subgroup 'adults' as "
            "'G_1':\nG_1 = globals + patients + age, adults\n\n");
  EXPECT_EQ(Qs_HelpTopic, "globals");
  clear_pane(0);
  expect_cancellable(kvo3_globals);
}

TEST_F(Handlers, Mean) {
  preprocess("My Mean\nMy_Map\n");
  load_table("study zz aa\nA 1 0\nB NA 1\n");
  expect_cancellable(kvo3_mean);
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ MEAN ANALYSIS ]");
    EXPECT_THAT(fields(dialog), ElementsAre("Name: MyMean", "Filter: (none)", "Jackknife: no"));
    EXPECT_EQ(dialog.options("Filter"), (Options{"(none)", "aa", "zz"}));
    dialog.press("OK");
  });
  kvo3_mean();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("MyMean", "=", "mean")));
  EXPECT_EQ(batch(), "# Calculate the mean of all the studies as 'MyMean':\nMyMean = mean\n\n");
  EXPECT_EQ(Qs_HelpTopic, "mean");

  user.answer({{"Name", "My Map"}, {"Filter", "zz"}});
  kvo3_mean();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("My_Map", "=", "mean", "zz")));
  EXPECT_EQ(batch(),
            "# Calculate the mean of the subgroup 'zz' as 'My_Map':\nMy_Map = mean zz\n\n");
  clear_pane(0);

  user.answer({{"Name", " "}}).then(press_ok);
  kvo3_mean();
  EXPECT_EQ(user.messages().back(), "Please enter a name and try again.");
  expect_nothing_run();
}

TEST_F(Handlers, MeanAsksBeforeItOverwrites) {
  preprocess("My Mean\n");
  user.answer({{"Name", "My  Mean "}}).then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(),
              "[ A map with the same name already exists. Do you want to overwrite it? ]");
    dialog.key(GDK_KEY_Return);
  });
  kvo3_mean();
  expect_nothing_run();
  user.answer({{"Name", "My Mean"}}).answer({});
  kvo3_mean();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("My_Mean", "=", "mean")));
}

TEST_F(Handlers, LinearModels) {
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

TEST_F(Handlers, LinearModelsRefuseWhatCannotBeRun) {
  preprocess("MyRegression_00\nMyTwoGroups\n");
  expect_refused(kvo3_lm, "No variables found. Please edit table and try again.");
  EXPECT_EQ(Qs_HelpTopic, "old");
  const struct {
    const char* table;
    const char* model;
    std::vector<std::pair<std::string, std::string>> answers;
    const char* message;
  } cases[] = {
      {"study a\nS 2\n",
       "Compare 2 groups",
       {},
       "Please select the 2nd group indicator and try again."},
      {"study a\nS 2\n",
       "Compare 3 groups",
       {},
       "Please select the 2nd group indicator and try again."},
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

TEST_F(Handlers, LinearModelsLeaveOutGroupsThatTheTableLacks) {
  preprocess();
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

TEST_F(Handlers, Threshold) {
  preprocess();
  const char* const none = "No null distrubutions found. Please estimate maps and try again.";
  expect_refused(kvo3_threshold, none);
  write_text("kvo_nd.txt", "name values\nMyMean 1\nMyMean_n 1\nAgeMap 1\n");
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ THRESHOLD ]");
    EXPECT_THAT(fields(dialog),
                ElementsAre("Map: AgeMap", "Probability: 0.00500", "Peak height threshold: 1.000",
                            "Extent threshold: 10"));
    EXPECT_EQ(dialog.options("Map"), (Options{"AgeMap", "MyMean"}));
    dialog.set("Map", "MyMean");
    dialog.set("Probability", "0");
    dialog.set("Extent threshold", "500");
    dialog.press("OK");
  });
  kvo3_threshold();
  EXPECT_THAT(runs(),
              ElementsAre(ElementsAre("threshold", "MyMean,", "p,", "0.00001,", "1.000,", "100")));
  EXPECT_EQ(batch(),
            "# Threshold 'MyMean' with p 0.00001, minimum peak height 1.000, minimum 100 voxels:\n"
            "threshold \"MyMean\", p, 0.00001, 1.000, 100\n\n");
  clear_pane(0);
  expect_cancellable(kvo3_threshold);
  // Another folder's list does not count.
  write_text("kvo_nd.txt", "name values\n");
  expect_refused(kvo3_threshold, none);
  fs::remove("kvo_nd.txt");
  expect_refused(kvo3_threshold, none);
}

TEST_F(Handlers, MasksOfLabels) {
  preprocess();
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ CREATION OF A MASK ]");
    EXPECT_EQ(dialog.options(), (Options{"AAL / Ferrow et al label", "MNI coordinate"}));
    EXPECT_EQ(dialog.chosen(), "AAL / Ferrow et al label");
    dialog.press("OK");
  });
  user.then([](Shown_dialog& dialog) {
    EXPECT_THAT(fields(dialog),
                ElementsAre("Brain region: Anterior commissure", "Name (optional): "));
    const Options regions = dialog.options("Brain region");
    EXPECT_EQ(regions.size(), 179);
    EXPECT_TRUE(std::ranges::is_sorted(regions));
    EXPECT_EQ(regions.back(), "Right thalamus");
    // The list is searched by typing.
    GtkWidget* entry = gtk_bin_get_child(GTK_BIN(dialog.field("Brain region")));
    gtk_widget_grab_focus(entry);
    gtk_editable_select_region(GTK_EDITABLE(entry), 0, -1);
    dialog.type("amyg right");
    dialog.press("OK");
  });
  kvo3_dialog_create_roimask();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("Right_amygdala", "=", "mask", "label,", "42")));
  EXPECT_EQ(batch(),
            "# Create a mask from label [Right amygdala]:\n"
            "Right_amygdala = mask label, 42\n\n");
  EXPECT_EQ(Qs_HelpTopic, "create.mask");

  const std::string region = "Left inferior parietal (excluding supramarginal and angular) gyri";
  user.answer({}).answer({{"Brain region", region}});
  kvo3_dialog_create_roimask();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre(
                          "Left_inferior_parietal_excluding_supramarginal_and_angular_gyri", "=",
                          "mask", "label,", "61")));
  EXPECT_THAT(batch(), HasSubstr("[" + region + "]:\n"));
}

TEST_F(Handlers, MasksOfCoordinates) {
  preprocess();
  user.choose("MNI coordinate").then([](Shown_dialog& dialog) {
    EXPECT_THAT(fields(dialog), ElementsAre("MNI coordinate: 0 0 0", "Name (optional): "));
    dialog.set("MNI coordinate", "10 -20 30");
    dialog.press("OK");
  });
  kvo3_dialog_create_roimask();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("10_-20_30", "=", "mask", "coordinate,", "10,",
                                              "-20,", "30")));
  EXPECT_EQ(batch(),
            "# Create a mask from coordinate [10,-20,30]:\n"
            "10_-20_30 = mask coordinate, 10, -20, 30\n\n");
  clear_pane(0);
  expect_cancellable(kvo3_dialog_create_roimask);
  user.choose("MNI coordinate").answer({}, "Cancel");
  kvo3_dialog_create_roimask();
  expect_nothing_run();
}

TEST_F(Handlers, Extraction) {
  preprocess();
  write_text("mask_x.nii", "");
  expect_refused(kvo3_extract, "No masks found. Please create or copy a mask and try again.");
  write_text("mask_a.nii.gz", "");
  write_text("mask_a-b.nii.gz", "");
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ EXTRACT ]");
    EXPECT_THAT(fields(dialog), ElementsAre("Mask: a-b"));
    EXPECT_EQ(dialog.options("Mask"), (Options{"a-b", "a"}));
    dialog.set("Mask", "a");
    dialog.press("OK");
  });
  kvo3_extract();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("extract", "a")));
  EXPECT_EQ(batch(), "# Extract values within mask 'a':\nextract a\n\n");
  clear_pane(0);
  expect_cancellable(kvo3_extract);
  EXPECT_EQ(Qs_HelpTopic, "extract");
}

class Multimodal : public Handlers {
 protected:
  Multimodal() {
    fs::create_directory(results());
    write_text(image("gm"), "first");
    write_text(image("fmri"), "second");
  }
  [[nodiscard]] fs::path results() const { return base() / "results"; }
  [[nodiscard]] fs::path image(const std::string& name) const {
    return work() / (name + "_p.nii.gz");
  }
  [[nodiscard]] std::vector<std::pair<std::string, std::string>> images() const {
    return {{"Meta-analysis 1, p-value image", image("gm").string()},
            {"Meta-analysis 2, p-value image", image("fmri").string()}};
  }
  void choose_folder(const fs::path& folder) {
    user.then([folder](Shown_dialog& dialog) {
      EXPECT_EQ(dialog.message(), "Select the folder where you want to save the results.");
      dialog.select(folder.string());
      dialog.press("Open");
    });
  }
  void expect_unchanged() {
    expect_nothing_run();
    EXPECT_EQ(fs::current_path(), work());
    EXPECT_EQ(kvo_s_user_dir, work().c_str());
    EXPECT_FALSE(fs::exists(root() / "etc" / "linux64.ini"));
    EXPECT_TRUE(fs::is_empty(results()));
    EXPECT_EQ(read_text(image("gm")) + read_text(image("fmri")), "firstsecond");
  }
};

TEST_F(Multimodal, RunsInTheResultsFolder) {
  Qs_HelpURL = "http://site/manual/?show=";
  user.then([&](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ MULTIMODAL META-ANALYSES ]");
    EXPECT_THAT(fields(dialog),
                ElementsAre("Meta-analysis 1, p-value image: ", "Meta-analysis 1, short name: ",
                            "Meta-analysis 2, p-value image: ", "Meta-analysis 2, short name: "));
    for (const auto& [label, value] : images()) dialog.set(label, value);
    dialog.press("OK");
  });
  user.then([&](Shown_dialog& dialog) {
    const Q_g_memory<char> start(gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(dialog.widget())));
    EXPECT_STREQ(start.get(), work().c_str());
    dialog.select(results().string());
    dialog.press("Open");
  });
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ THRESHOLD ]");
    EXPECT_THAT(fields(dialog), ElementsAre("Probability: 0.00250",
                                            "Peak height threshold: "
                                            "0.00025",
                                            "Extent threshold: 10"));
    dialog.press("OK");
  });
  user.then([](Shown_dialog& dialog) {
    EXPECT_THAT(dialog.explanation(), testing::EndsWith("(http://site/manual/?show=multi)."));
    EXPECT_THAT(fields(dialog), ElementsAre("Assume error in p-values (recommended): yes",
                                            "Decrease p-values as in a better scenario: yes",
                                            "Tolerable p-values in the meta-analyses: 0.10000"));
    dialog.press("OK");
  });
  kvo3_multi();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("multi", "meta1,", "meta2,", "0.00250,", "0.00025,",
                                              "10,", "1,", "2,", "0.10000")));
  EXPECT_EQ(fs::current_path(), results());
  EXPECT_EQ(kvo_s_user_dir, results().c_str());
  EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(Qw_Window)),
               ("KVO v4.31 - " + results().string()).c_str());
  EXPECT_THAT(read_text(root() / "etc" / "linux64.ini"),
              HasSubstr("working directory = " + results().string()));
  EXPECT_EQ(read_text("meta1_p.nii.gz"), "first");
  EXPECT_EQ(read_text("meta2_p.nii.gz"), "second");
  EXPECT_EQ(batch(),
            "# Perform a multimodal analysis of 'meta1' (copied from " + image("gm").string() +
                ") and 'meta2' (copied from " + image("fmri").string() +
                "),\n# threshold with p 0.00250, minimum peak height 0.00025, minimum 10 voxels, "
                "options: [1, 2, 0.10000]:\n"
                "multi meta1, meta2, 0.00250, 0.00025, 10, 1, 2, 0.10000\n\n");
  EXPECT_EQ(Qs_HelpTopic, "multi");
}

TEST_F(Multimodal, ChangesNothingBeforeAllIsAnswered) {
  const auto answer_until = [&](int step) {
    if (step == 0) return user.answer(images(), "Cancel"), void();
    user.answer(images());
    if (step == 1) return user.answer({}, "Cancel"), void();
    choose_folder(results());
    if (step == 2) return user.answer({}, "Cancel"), void();
    user.answer({}).answer({}, "Cancel");
  };
  for (int step = 0; step < 4; ++step) {
    SCOPED_TRACE(step);
    answer_until(step);
    kvo3_multi();
    expect_unchanged();
  }
}

TEST_F(Multimodal, RefusesImagesNamesAndFoldersBeforeAnythingChanges) {
  user.answer({}).then(press_ok);
  kvo3_multi();
  EXPECT_EQ(user.messages().back(),
            "No p-value image was specified for meta-analysis 1. Please try again.");
  expect_unchanged();

  auto answers = images();
  answers.emplace_back("Meta-analysis 2, short name", "x/y");
  user.answer(answers).then(press_ok);
  kvo3_multi();
  EXPECT_THAT(user.messages().back(), HasSubstr("The name 'x/y' cannot be used"));
  expect_unchanged();

  answers.back() = {"Meta-analysis 2, short name", "gm"};
  user.answer(answers);
  choose_folder(work());
  user.then(press_ok);
  kvo3_multi();
  EXPECT_THAT(user.messages().back(), HasSubstr("would overwrite one of the two images"));
  expect_unchanged();
}

/// Names that would run a command, wherever a handler takes names from.
TEST_F(Handlers, HostileNamesNeverRunAnything) {
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
          name.find_first_of("$`") == std::string::npos &&
          (std::string(c.name).starts_with("typed") || std::string(c.name) == "jackknife's study");
      if (is_made_safe) {
        c.handler();
        EXPECT_FALSE(runs().empty());
      } else {
        user.then(press_ok);
        c.handler();
        EXPECT_THAT(user.messages().back(), HasSubstr("cannot be used in a command because it"));
        expect_nothing_run();
      }
      EXPECT_FALSE(fs::exists("pwned"));
      clear_pane(0);
      clear_pane(1);
    }
    fs::remove(mask);
    fs::remove(share_mask);
  }
}

}  // namespace
