// Studies from other programs' files into the working folder, and out of it.

#include "engine/base/exists.h"
#include "engine/base/outputs.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/wording.h"
#include "engine/formats/bundle.h"
#include "engine/formats/folder_studies.h"
#include "engine/formats/foreign_file.h"
#include "engine/results/shared_results.h"
#include "engine/verbs/verbs.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::verbs {

using namespace formats;
using namespace results;

namespace {

/// The space that the command gives to coordinates of which the file does not say it.
Space given_space(const Command& command) {
  const std::string& name = command.arguments[1];
  if (name.empty()) return Space::unknown;
  const Space space = space_named(name);
  if (space == Space::unknown)
    throw Refusal("The space '" + name + "' is neither MNI nor Talairach.");
  return space;
}

void say_remarks(const std::vector<std::string>& remarks) {
  for (const std::string& remark : remarks) say(remark);
}

/// Where an export goes; a file of that name stays.
FileKind prepare_export(const std::string& name) {
  const FileKind kind = file_kind(name);
  if (entry_exists(name))
    throw Refusal("There is already a '" + name + "'. Please choose another name.");
  check_folder_writable();
  return kind;
}

/// Results that were exported before stay.
void prepare_results() {
  const std::string folder = KVO_RESULTS_FOLDER;
  if (entry_exists(folder))
    throw Refusal("There is already a '" + folder + "'. Please move or remove it first.");
  check_folder_writable();
  check_shared_results();
}

void run_export_of_results() {
  prepare_results();
  Outputs outputs;
  const std::size_t maps = share_results(outputs, all_verbs());
  outputs.commit();
  say("Results: folder " + std::string(KVO_RESULTS_FOLDER) + ", " + Q_counted(maps, "map", "maps"));
}

void say_not_exported(const ExportedStudies& from, FileKind kind) {
  if (!from.with_images.empty())
    say("Left out, as " + Q_counted(from.with_images.size(), "study has", "studies have") +
        " an image and no peaks: " + listed(from.with_images));
  if (kind == FileKind::sleuth)
    say("Such lists have no place for heights, thresholds and other variables, and both samples "
        "are one number; coordinates are in MNI space");
}

}  // namespace

void check_import(const Command& command) {
  const Space space = given_space(command);
  const std::string& path = command.arguments[0];
  check_folder_writable();
  if (file_kind(path) == FileKind::bundle) {
    check_bundle(path);
    return;
  }
  const NewStudies studies = read_foreign(path, space);
  import_plan(studies);
}

void run_import(const Command& command) {
  const std::string& path = command.arguments[0];
  if (file_kind(path) == FileKind::bundle) {
    const BundleContents contents = unpack_bundle(path);
    say("Made by " + contents.version + ": " + Q_counted(contents.added.size(), "file", "files") +
        " added, " + std::to_string(contents.known) + " were there already");
    return;
  }
  const NewStudies studies = read_foreign(path, given_space(command));
  const ImportPlan plan = import_plan(studies);
  write_import(plan);
  say(Q_counted(studies.studies.size(), "study", "studies") + " with " +
      Q_counted(studies.peaks, "peak", "peaks") + ": " + std::to_string(plan.added.size()) +
      " added, " + std::to_string(plan.known) + " were there already");
  say_remarks(studies.remarks);
}

void check_export(const Command& command) {
  if (command.arguments[0] == KVO_RESULTS_FOLDER) {
    prepare_results();
    return;
  }
  if (prepare_export(command.arguments[0]) != FileKind::bundle && folder_studies().studies.empty())
    throw Refusal("No study has peaks: only a bundle (.zip) takes images.");
}

void run_export(const Command& command) {
  const std::string& name = command.arguments[0];
  if (name == KVO_RESULTS_FOLDER) {
    run_export_of_results();
    return;
  }
  const FileKind kind = prepare_export(name);
  Outputs outputs;
  if (kind == FileKind::bundle) {
    const std::size_t files = write_bundle(outputs.path_of(name)).size();
    outputs.commit();
    say("Bundle: " + name + ", " + Q_counted(files, "file", "files"));
    return;
  }
  const ExportedStudies from = folder_studies();
  outputs.write_text(name, foreign_text_of(from.studies, kind));
  outputs.commit();
  say(Q_counted(from.studies.size(), "study", "studies") + ": " + name);
  say_not_exported(from, kind);
}

}  // namespace kvo::verbs
