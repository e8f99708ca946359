#include "engine/formats/bundle.h"

#include <zip.h>

#include <map>
#include <memory>

#include "engine/base/exists.h"
#include "engine/base/outputs.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "engine/studies/study.h"
#include "engine/studies/study_rules.h"
#include "engine/studies/study_source.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::formats {

namespace {

constexpr const char* manifest_name = "kvo_bundle.txt";
constexpr std::size_t max_entry = std::size_t(1) << 30;  // bytes
constexpr zip_int64_t max_entries = 100000;
// The earliest date of zip files, so that the same content gives the same bytes.
constexpr zip_uint16_t no_date = (1 << 5) | 1, no_time = 0;

struct ZipDiscard {
  void operator()(zip_t* zip) const { zip_discard(zip); }
};
using Zip = std::unique_ptr<zip_t, ZipDiscard>;
struct ZipFileClose {
  void operator()(zip_file_t* file) const { zip_fclose(file); }
};

Zip open_zip(const std::string& path, int flags) {
  int code = 0;
  Zip zip(zip_open(path.c_str(), flags, &code));
  if (zip) return zip;
  zip_error_t error;
  zip_error_init_with_code(&error, code);
  const std::string why = zip_error_strerror(&error);
  zip_error_fini(&error);
  throw Refusal("'" + path + "' cannot be opened as a zip file: " + why + ".");
}

/// The files of the meta-analysis in the working folder.
std::vector<std::string> folder_files() {
  std::vector<std::string> files = {KVO_TABLE_FILE};
  for (const Study& study : read_study_table().studies) files.push_back(study_source(study).file);
  if (entry_exists(KVO_BATCH_FILE)) files.emplace_back(KVO_BATCH_FILE);
  return files;
}

/// Adds an entry, whose content is read when the zip file is closed.
void add_entry(zip_t* zip, const std::string& path, const std::string& name, zip_source_t* source) {
  const zip_int64_t index =
      source == nullptr ? -1 : zip_file_add(zip, name.c_str(), source, ZIP_FL_ENC_UTF_8);
  if (index < 0) {
    zip_source_free(source);
    throw Refusal("'" + path + "' cannot be written: " + zip_strerror(zip) + ".");
  }
  zip_file_set_dostime(zip, zip_uint64_t(index), no_time, no_date, 0);
}

/// Whether a file of a meta-analysis may have the name.
bool is_bundle_name(std::string_view name) {
  for (const std::string& ending : {peaks_file_of(""), image_file_of("")})
    if (name.ends_with(ending))
      return Q_name_fault(name.substr(0, name.size() - ending.size())) == nullptr;
  return name == KVO_TABLE_FILE || name == KVO_BATCH_FILE;
}

/// An opened bundle: the checksum of each of its files.
struct Bundle {
  std::string path;
  Zip zip;
  std::string version;
  std::map<std::string, std::string> checksums;

  [[noreturn]] void refuse(const std::string& what) const {
    throw Refusal("'" + path + "' " + what + ".");
  }

  [[nodiscard]] std::string content(const std::string& name) const {
    zip_stat_t status;
    if (zip_stat(zip.get(), name.c_str(), 0, &status) != 0) refuse("has no '" + name + "'");
    if ((status.valid & ZIP_STAT_SIZE) == 0 || status.size > max_entry)
      refuse("has too large a '" + name + "'");
    const std::unique_ptr<zip_file_t, ZipFileClose> file(zip_fopen(zip.get(), name.c_str(), 0));
    std::string bytes(std::size_t(status.size), '\0');
    if (!file || zip_fread(file.get(), bytes.data(), bytes.size()) != zip_int64_t(bytes.size()))
      refuse("is damaged: '" + name + "' cannot be read");
    return bytes;
  }

  void read_manifest() {
    const std::string text = content(manifest_name);
    for (const TextLine& line : filled_lines(text)) {
      const std::size_t equals = line.text.find(" = ");
      if (equals == std::string_view::npos) refuse("is damaged: its list is no list");
      const std::string key(line.text.substr(0, equals)), value(line.text.substr(equals + 3));
      if (key == "program") {
        version = value;
      } else if (!is_bundle_name(key)) {
        refuse("holds '" + key + "', which is no file of a meta-analysis");
      } else {
        checksums[key] = value;
      }
    }
    if (!checksums.contains(KVO_TABLE_FILE)) refuse("holds no study table");
  }

  /// The content as it was when the bundle was made.
  [[nodiscard]] std::string checked_content(const std::string& name) const {
    std::string bytes = content(name);
    if (Q_sha256(bytes) != checksums.at(name))
      refuse("is damaged: '" + name + "' differs from its checksum");
    return bytes;
  }
};

Bundle open_bundle(const std::string& path) {
  Bundle bundle{path, open_zip(path, ZIP_RDONLY), "", {}};
  if (zip_get_num_entries(bundle.zip.get(), 0) > max_entries) bundle.refuse("has too many files");
  bundle.read_manifest();
  return bundle;
}

BundleContents compared(const Bundle& bundle) {
  BundleContents contents{{}, 0, bundle.version};
  for (const auto& [name, checksum] : bundle.checksums)
    if (!entry_exists(name))
      contents.added.push_back(name);
    else if (file_checksum(name) == checksum)
      ++contents.known;
    else
      throw Refusal("The folder has another '" + name + "' than '" + bundle.path +
                    "'. Please unpack it in a folder of its own.");
  return contents;
}

}  // namespace

std::vector<std::string> write_bundle(const std::string& path) {
  std::vector<std::string> files = folder_files();
  std::string manifest = "program = " + program_text() + "\n";
  for (const std::string& name : files)
    manifest.append(name).append(" = ").append(file_checksum(name)).append("\n");
  Zip zip = open_zip(path, ZIP_CREATE | ZIP_TRUNCATE);
  add_entry(zip.get(), path, manifest_name,
            zip_source_buffer(zip.get(), manifest.data(), manifest.size(), 0));
  for (const std::string& name : files)
    add_entry(zip.get(), path, name, zip_source_file(zip.get(), name.c_str(), 0, -1));
  if (zip_close(zip.get()) != 0)
    throw Refusal("'" + path + "' cannot be written: " + zip_strerror(zip.get()) + ".");
  (void)zip.release();  // closed
  return files;
}

BundleContents check_bundle(const std::string& path) {
  const Bundle bundle = open_bundle(path);
  BundleContents contents = compared(bundle);
  for (const std::string& name : contents.added) (void)bundle.checked_content(name);
  return contents;
}

BundleContents unpack_bundle(const std::string& path) {
  const Bundle bundle = open_bundle(path);
  BundleContents contents = compared(bundle);
  if (contents.added.empty()) return contents;
  Outputs outputs;
  for (const std::string& name : contents.added)
    outputs.write_text(name, bundle.checked_content(name));
  outputs.commit();
  return contents;
}

}  // namespace kvo::formats
