#include "runner.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <omp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "engine/base/outcome.h"
#include "engine/base/outputs.h"
#include "engine/base/progress.h"
#include "engine/verbs/verbs.h"

using namespace kvo::verbs;

/// Of a build with counters, which a process that ends by _exit() must have written itself.
extern "C" [[gnu::weak]] int __llvm_profile_write_file();

namespace fs = std::filesystem;

namespace {

std::vector<std::string> lines_of(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace

pid_t Running_command::child() const {
  const std::string pid = std::to_string(pid_);
  for (int attempt = 0; attempt < 6000; ++attempt, usleep(10000))
    if (const std::string text = read_text("/proc/" + pid + "/task/" + pid + "/children");
        !text.empty())
      return std::stoi(text);
  ADD_FAILURE() << "no child was started";
  return -1;
}

bool Running_command::read_more() {
  std::array<char, 4096> bytes{};
  const ssize_t got = read(output_.get(), bytes.data(), bytes.size());
  if (got > 0) read_.append(bytes.data(), std::size_t(got));
  return got > 0;
}

void Running_command::read_until(const std::string& beginning) {
  while (("\n" + read_).find("\n" + beginning) == std::string::npos)
    ASSERT_TRUE(read_more()) << "no line '" << beginning << "' in:\n" << read_;
}

Outcome Running_command::finish() {
  while (output_ && read_more()) continue;
  int status = 0;
  waitpid(pid_, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, lines_of(read_)};
}

Installation::Installation() {
  fs::permissions(folder_.path(), fs::perms(0755));
  fs::create_directories(folder_.path() / "bin/linux64");
  fs::create_directories(share());
  fs::create_directories(work());
  fs::copy_file(KVO_PARSE, program("kvo_parse"));
  fs::copy_file(KVO_CORE, program("kvo_core"));
  write_mask(share() / "mask_gray_matter.nii.gz", box_voxels());
  fs::current_path(work());
}

namespace {

/// Runs `work` in a new process, with its standard output as a pipe.
Running_command launch(const std::function<void()>& work) {
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  Q_fd reader(ends[0]);
  const Q_fd writer(ends[1]);
  std::fflush(nullptr);  // or the child would write it again
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(writer.get(), STDOUT_FILENO);
    work();
    _exit(127);
  }
  return {pid, std::move(reader)};
}

int carry_out(const std::string& text) {
  return exit_status_of([&] {
    const Command command = command_of(text);
    recover_folder();
    command.verb->check(command);
    check_folder_writable();
    command.verb->run(command);
    say_done();
    return true;
  });
}

}  // namespace

Running_command Installation::start(const std::string& command,
                                    const std::function<void()>& prepare) const {
  const std::string program_path = program("kvo_parse");
  return launch([&] {
    if (prepare) prepare();
    execl(program_path.c_str(), program_path.c_str(), command.c_str(), nullptr);
  });
}

Outcome Installation::run(const std::string& command, const std::function<void()>& prepare) const {
  std::string program_path = program("kvo_core");
  return launch([&] {
           program_invocation_name = program_path.data();
           omp_set_num_threads(1);
           if (prepare) prepare();
           const int status = carry_out(command);
           if (__llvm_profile_write_file != nullptr) __llvm_profile_write_file();
           _exit(status);
         })
      .finish();
}

void Installation::must_run(std::initializer_list<const char*> commands) const {
  for (const char* command : commands) {
    const Outcome outcome = run(command);
    ASSERT_EQ(outcome.closing(), "d") << command;
    EXPECT_EQ(outcome.status, 0) << command;
  }
}

Outcome Installation::expect_refused(const std::string& command, const std::string& reason,
                                     const std::function<void()>& prepare) const {
  const auto before = snapshot();
  Outcome outcome = run(command, prepare);
  EXPECT_EQ(outcome.status, 1) << command << ": " << reason;
  EXPECT_TRUE(outcome.closing().starts_with("WARNING: " + reason))
      << command << ": '" << outcome.closing() << "' instead of '" << reason << "'";
  EXPECT_TRUE(snapshot() == before) << command << " has changed the folder: " << reason;
  return outcome;
}

void Installation::save() const {
  fs::create_directories(folder_.path() / "saved");
  for (const char* part : {"work", "share"}) {
    fs::remove_all(folder_.path() / "saved" / part);
    fs::copy(folder_.path() / part, folder_.path() / "saved" / part, fs::copy_options::recursive);
  }
}

void Installation::restore() const {
  for (const char* part : {"work", "share"}) {
    for (const auto& entry : fs::directory_iterator(folder_.path() / part)) fs::remove_all(entry);
    fs::copy(folder_.path() / "saved" / part, folder_.path() / part, fs::copy_options::recursive);
  }
}

void remove_everything() {
  for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
}

void become_nobody() {
  constexpr gid_t nobody = 65534;
  if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0))
    _exit(126);
}

std::vector<std::array<int, 3>> box_voxels() {
  std::vector<std::array<int, 3>> voxels;
  for (int z = 0; z < 12; z += 2)
    for (int y = -20; y < -6; y += 2)
      for (int x = 20; x < 36; x += 2) voxels.push_back({x, y, z});
  return voxels;
}

namespace {
std::size_t grid_index(const std::array<int, 3>& mm) {
  return mni_grid().index((mm[0] + 90) / 2, (mm[1] + 126) / 2, (mm[2] + 72) / 2);
}
}  // namespace

Image image_of(float value) {
  Image image;
  image.grid = mni_grid();
  image.values.assign(image.grid.voxels(), value);
  return image;
}

void write_mask(const fs::path& path, const std::vector<std::array<int, 3>>& voxels) {
  Image image = image_of(0);
  for (const auto& voxel : voxels) image.values[grid_index(voxel)] = 1;
  write_image(path, image);
}

float value_at(const Image& image, const std::array<int, 3>& mm) {
  return image.values.at(grid_index(mm));
}

std::map<std::string, std::string> snapshot() {
  std::map<std::string, std::string> content;
  for (const auto& entry : fs::recursive_directory_iterator("."))
    content[entry.path()] = entry.is_symlink()        ? "-> " + read_symlink(entry.path()).string()
                            : entry.is_regular_file() ? read_text(entry.path())
                                                      : "(other)";
  return content;
}

void write_studies(int studies) {
  std::ostringstream table;
  table << "study\tn1\tn2\n";
  for (int s = 0; s < studies; ++s) {
    const std::string name = "study" + std::to_string(s);
    table << name << '\t' << 12 + s % 9 << '\t' << (s % 3 == 0 ? "NA" : "15") << '\n';
    std::ostringstream peaks;
    peaks << "# space: MNI\n";
    for (int p = 0; p <= s % 4; ++p)
      peaks << 20 + (5 * s + 7 * p) % 16 << ' ' << -20 + (3 * s + 5 * p) % 14 << ' '
            << (2 * s + p) % 12 << ' ' << 2.5 + 0.1 * s << '\n';
    write_text(name + ".peaks.txt", peaks.str());
  }
  write_text("kvo_table.txt", table.str());
}

void write_t_image(const std::string& study, int seed) {
  Image image = image_of(0);
  image.intent_code = 3;
  for (int z = -4; z < 10; z += 2)
    for (int y = -24; y < 0; y += 2)
      for (int x = 16; x < 40; x += 2)
        image.values[grid_index({x, y, z})] =
            float(2 + std::sin(0.3 * x + seed) + std::cos(0.4 * y - 0.2 * z * seed));
  write_image(study + ".nii.gz", image);
}
