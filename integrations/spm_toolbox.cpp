#include "integrations/spm_toolbox.h"

#include <algorithm>
#include <array>

#include "kvo_config.h"
#include "util/error.h"
#include "util/files.h"
#include "util/site_address.h"
#include "util/whole_file.h"
#include "workspace/files/settings_file.h"

namespace {

constexpr int WORD_SIZE = 64;

constexpr const char* PROGRAMS[] = {"imgcalc", "kvo_core", "kvo_edit", "kvo_gui", "kvo_parse"};
constexpr const char* DATA_FILES[] = {
    "atlas_aal_frw.nii.gz",
    "cor_cerebrospinal_fluid.nii.gz",
    "cor_fractional_anisotropy.nii.gz",
    "cor_white_matter.nii.gz",
    "cor_gray_matter.nii.gz",
    "mask_brain.nii.gz",
    "mask_cerebrospinal_fluid.nii.gz",
    "mask_gray_matter.nii.gz",
    "mask_intracranial.nii.gz",
    "mask_tbss.nii.gz",
    "mask_white_matter.nii.gz",
    "kvo_template.nii.gz",
};

/// The files of one kind: where they are, relative to the program folder, and the folders of the
/// toolbox, outermost first, that are made for them; the last one takes the files.
struct File_group {
  std::string source;  // with a final slash unless it is empty
  std::vector<std::string> folders;
  std::vector<std::string> names;
  bool programs = false;
};

std::vector<File_group> toolbox_files() {
  const std::string bin = std::string("/KVO/bin/") + KVO_PLATFORM;
  return {
      {"../../", {"/KVO"}, {"README.txt"}},
      {"", {"/KVO/bin", bin}, {std::begin(PROGRAMS), std::end(PROGRAMS)}, true},
      {"../../etc/", {"/KVO/etc"}, {"kvo.gtkrc"}},
      {"../../share/", {"/KVO/share"}, {std::begin(DATA_FILES), std::end(DATA_FILES)}},
  };
}

void check_sources(const std::vector<File_group>& groups) {
  for (const File_group& group : groups)
    for (const std::string& name : group.names)
      if (Q_openr("%s%s", group.source.c_str(), name.c_str()) == nullptr)
        Q_error("Copy: source file '%s%s' not found", group.source.c_str(), name.c_str());
}

void copy_group(const File_group& group, const char* folder,
                const std::function<void()>& after_file) {
  for (const std::string& sub_folder : group.folders) Q_mkdir("%s%s", folder, sub_folder.c_str());
  const std::string target = folder + group.folders.back() + "/";
  for (const std::string& name : group.names) {
    Q_cp((group.source + name).c_str(), "%s%s", target.c_str(), name.c_str());
    after_file();
  }
  if (!group.programs) return;
  for (const std::string& name : group.names) Q_chmod_x("%s%s", target.c_str(), name.c_str());
}

/// The toolbox keeps the settings that it has.
void copy_settings(const char* folder) {
  const Q_string source = Q_format("../../etc/%s.ini", KVO_PLATFORM);
  const Q_string target = Q_format("%s/KVO/etc/%s.ini", folder, KVO_PLATFORM);
  if (Q_file_exists("%s", target.c_str()) == 0 && Q_file_exists("%s", source.c_str()) != 0)
    Q_cp(source.c_str(), "%s", target.c_str());
}

}  // namespace

void kvo_copy_toolbox(const char* folder, const std::function<void()>& after_file) {
  Q_chdir_or_die("%s", Qs_ProgramDir.c_str());
  const std::vector<File_group> groups = toolbox_files();
  check_sources(groups);
  for (const File_group& group : groups) {
    copy_group(group, folder, after_file);
    if (group.source == "../../etc/") copy_settings(folder);
  }
}

std::string kvo_matlab_file_text() {
  return Q_format(
             "function kvo()\n"
             "%% kvo: Quorvane v%.2f\n"
             "%% (SPM toolbox interface)\n"
             "%%\n"
             "%% Quorvane (formerly Telvarine) is a\n"
             "%% statistical technique for meta-analyzing studies on differences\n"
             "%% in brain activity or structure which used neuroimaging techniques such as\n"
             "%% fMRI, VBM, DTI or PET.\n"
             "%%\n"
             "%% It is made by the Quorvane developers.\n"
             "%% For more information please visit %s\n"
             "\n"
             "    temp = mfilename('fullpath');\n"
             "    kvo_toolbox_directory = temp(1:length(temp)-4);\n"
             "    kvo_software_call = sprintf('%%s/bin/linux%i/kvo_gui', kvo_toolbox_directory);\n"
             "    system(kvo_software_call);\n"
             "end\n",
             KVO_VERSION, kvo_public_site(), WORD_SIZE)
      .str();
}

void kvo_write_matlab_file(const char* folder) {
  const Q_string path = Q_format("%s/KVO/KVO.m", folder);
  if (!Q_write_whole_or_die(path.c_str(), kvo_matlab_file_text()))
    Q_error("File '%s' not writable", path.c_str());
}

bool kvo_is_plain_path(std::string_view path) {
  constexpr std::string_view HARMLESS = "/._-+";
  return std::ranges::all_of(path, [&](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= 'a' && byte <= 'z') || byte >= 0x80 ||
           HARMLESS.find(character) != std::string_view::npos;
  });
}
