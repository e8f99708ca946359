#pragma once

// An installation of the engine with a small mask, a meta-analysis to run it on, and ways to look
// at what it leaves.

#include <sys/types.h>

#include <array>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "engine/images/image.h"
#include "test_folder.h"
#include "util/handles.h"

/// What a finished command has said, and its exit status (-1 after a signal).
struct Outcome {
  int status = -1;
  std::vector<std::string> lines;
  [[nodiscard]] std::string closing() const { return lines.empty() ? "" : lines.back(); }
};

/// A command that runs. Its standard output is a pipe.
class Running_command {
 public:
  Running_command(pid_t pid, Q_fd output) : pid_(pid), output_(std::move(output)) {}

  [[nodiscard]] pid_t pid() const { return pid_; }
  /// The process that it has started, once there is one.
  [[nodiscard]] pid_t child() const;
  /// Reads lines up to one that begins so.
  void read_until(const std::string& beginning);
  /// Nobody reads its output any more.
  void close_output() { output_.reset(); }
  /// Reads to the end and waits for it.
  Outcome finish();

 private:
  bool read_more();

  pid_t pid_;
  Q_fd output_;
  std::string read_;
};

class Installation {
 public:
  /// Makes the installation with a mask "gray_matter" of a small box, enters the working folder,
  /// which is empty.
  Installation();

  /// Starts kvo_parse, and so kvo_core, with the words of the command; `prepare` runs in the new
  /// process before that.
  Running_command start(const std::string& command,
                        const std::function<void()>& prepare = {}) const;
  /// Carries the command out as the two programs do, with one thread unless `prepare` says
  /// otherwise, in a single process that has nothing to load first.
  Outcome run(const std::string& command, const std::function<void()>& prepare = {}) const;
  /// As `run`, of commands that must succeed.
  void must_run(std::initializer_list<const char*> commands) const;
  /// Runs a command that must be refused for that reason, and must leave the folder as it is.
  Outcome expect_refused(const std::string& command, const std::string& reason,
                         const std::function<void()>& prepare = {}) const;

  /// Keeps what the working folder and the share folder hold now.
  void save() const;
  /// Makes them hold that again, and nothing else.
  void restore() const;

  [[nodiscard]] std::filesystem::path share() const { return folder_.path() / "share"; }
  [[nodiscard]] std::filesystem::path work() const { return folder_.path() / "work"; }
  [[nodiscard]] std::filesystem::path program(const std::string& name) const {
    return folder_.path() / "bin/linux64" / name;
  }

 private:
  Test_folder folder_;
};

/// Gives up the rights of the superuser, for the `prepare` of a command. Nothing without them.
void become_nobody();

/// The MNI coordinates of the voxels of the box, in the grid's order: 8 x 7 x 6 voxels.
std::vector<std::array<int, 3>> box_voxels();

/// An image of the grid in which each voxel has that value.
kvo::images::Image image_of(float value);

/// Writes a mask of the voxels at those coordinates.
void write_mask(const std::filesystem::path& path, const std::vector<std::array<int, 3>>& voxels);

/// The value of an image at an MNI coordinate.
float value_at(const kvo::images::Image& image, const std::array<int, 3>& mm);

/// Every entry below the current folder with its content.
std::map<std::string, std::string> snapshot();

/// Writes a table and peaks files of so many studies with a few peaks each in and around the box.
void write_studies(int studies);

/// A table of ten studies with variables of all kinds.
constexpr const char* table_with_variables =
    "study n1 n2 age dose sum same nearly huge tiny few one word\n"
    "study0 12 NA 20 1 21.1 7 0.1 1e13 1e-14 1 1 3\n"
    "study1 13 15 31 0.5 31.6 7 0.1 2 2e-14 4 NA 5\n"
    "study2 14 15 44 3 47.1 7 0.1 3 1e-14 2 NA low\n"
    "study3 15 NA 25 2.5 27.6 7 0.1 4 3e-14 NA NA NA\n"
    "study4 16 15 38 0 38.1 7 0.1 5 1e-14 NA NA 2\n"
    "study5 17 15 52 1.5 53.6 7 0.1 6 2e-14 NA NA 1\n"
    "study6 18 NA 29 2 31.1 7 0.1 7 1e-14 NA NA 2\n"
    "study7 19 15 63 4 67.1 7 0.1 8 5e-14 NA NA 3\n"
    "study8 20 15 47 3.5 50.6 7 0.1 9 1e-14 NA NA 4\n"
    "study9 12 NA NA NA NA NA 0.1000000001 NA NA NA NA NA\n";

/// Empties the current folder.
void remove_everything();

/// Writes the image of a study, with t values in and around the box and 0 in the rest.
void write_t_image(const std::string& study, int seed);
