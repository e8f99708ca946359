// Each handler through its dialogs, against an engine that records its arguments.

#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>

#include <algorithm>

#include "analyses/create_mask.h"
#include "analyses/extract.h"
#include "analyses/globals.h"
#include "analyses/lm.h"
#include "analyses/mean.h"
#include "analyses/pp.h"
#include "analyses/threshold.h"
#include "analysis_window.h"
#include "made_image.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

const char* const NO_MAPS = "No maps found. Please run preprocessing and try again.";

using Handlers = Analysis_window;

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

  // The regions 0 to 23 and no other, with Brodmann area 50.
  const std::string atlas = single_file(made_header(), bytes_of(made_values()));
  write_gzip(root() / "share" / "atlas_aal_frw.nii.gz", atlas);
  clear_pane(0);
  user.answer({}).answer({{"Brain region", region}}).then(press_ok);
  kvo3_dialog_create_roimask();
  EXPECT_THAT(user.messages().back(), HasSubstr("no voxel of region 61, '" + region + "'"));
  expect_nothing_run();
  user.answer({}).answer({{"Brain region", "Left gyrus rectus"}}).then(press_ok);
  kvo3_dialog_create_roimask();
  EXPECT_THAT(user.messages().back(), HasSubstr("no voxel of region 27"));
  user.answer({}).answer({{"Brain region", "Left superior frontal gyrus, medial"}});
  kvo3_dialog_create_roimask();
  EXPECT_EQ(runs().size(), 1);
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

}  // namespace
