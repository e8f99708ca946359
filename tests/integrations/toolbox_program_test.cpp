// The real installation as an SPM toolbox, and the program started from there as Matlab starts it.

#include <gmock/gmock.h>
#include <gtk/gtk.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "integrations/spm_toolbox.h"
#include "toolbox_files.h"

namespace {

namespace fs = std::filesystem;

TEST(ToolboxProgram, RunsFromTheToolbox) {
  umask(022);
  const Test_folder folder;
  const fs::path toolbox = folder.path() / "KVO";
  Qs_ProgramDir = INSTALLATION "/bin/linux64";
  kvo_copy_toolbox(folder.path().c_str(), [] {});
  kvo_write_matlab_file(folder.path().c_str());
  // Without a working folder the program shows its own root in the title.
  fs::remove(toolbox / "etc/linux64.ini");
  expect_toolbox(toolbox, INSTALLATION, {"KVO.m"});
  fs::current_path("/");
  const pid_t program = fork();
  if (program == 0) {
    const std::string command = "exec " + toolbox.string() + "/bin/linux64/kvo_gui";
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  const std::string search =
      "timeout 120 xdotool search --sync --name '^KVO v4[.]31 - " + toolbox.string() + "$'";
  EXPECT_EQ(std::system(search.c_str()), 0);
  kill(program, SIGTERM);
  waitpid(program, nullptr, 0);
}

}  // namespace
