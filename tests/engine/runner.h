#pragma once

// An installation of the engine with a small mask, a meta-analysis to run it on, and ways to look
// at what it leaves.

#include <sys/types.h>

#include <array>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "companions/common/nifti.h"
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

  /// Starts kvo_parse with the words of the command; `prepare` runs in the new process before that.
  Running_command start(const std::string& command,
                        const std::function<void()>& prepare = {}) const;
  Outcome run(const std::string& command, const std::function<void()>& prepare = {}) const {
    return start(command, prepare).finish();
  }

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

/// Writes a mask of the voxels at those coordinates.
void write_mask(const std::filesystem::path& path, const std::vector<std::array<int, 3>>& voxels);

/// The value of an image at an MNI coordinate.
float value_at(const Image& image, const std::array<int, 3>& mm);

/// Every entry below the current folder with its content.
std::map<std::string, std::string> snapshot();

/// Writes a table and peaks files of so many studies with a few peaks each in and around the box.
void write_studies(int studies);

/// Writes the image of a study, with t values in and around the box and 0 in the rest.
void write_t_image(const std::string& study, int seed);
