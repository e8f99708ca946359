// Commands run through the shell: waiting, quoting, and the noticed end of a background command.

#include "util/process.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

#include "each.h"
#include "test_folder.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr int MOST_WAIT = 30000;  // ms; only a failing test waits that long

std::string output_of(const Q_pipe& pipe) {
  std::string output;
  for (int byte = std::fgetc(pipe.get()); byte != EOF; byte = std::fgetc(pipe.get()))
    output += static_cast<char>(byte);
  return output;
}

/// The content of a file, as soon as it has some.
std::string awaited(const char* path) {
  for (int i = 0; i < MOST_WAIT / 5 && read_text(path).empty(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return read_text(path);
}

/// How a command ends, noticed through its descriptor, as a main loop does.
std::string end_of(Q_watched_command& command) {
  pollfd state{command.fd(), POLLIN, 0};
  if (poll(&state, 1, MOST_WAIT) != 1 || !command.ended() || !command.ended()) return "not at all";
  return command.wait_status() ? Q_wait_status_text(*command.wait_status()) : "unknown";
}

TEST(ShellQuoted, RoundTripsThroughARealShell) {
  std::string all_bytes;
  for (int byte = 1; byte < 256; ++byte) all_bytes += static_cast<char>(byte);
  for (const std::string& text :
       {std::string(), std::string("$HOME ${HOME} $(echo x) `echo x`"), std::string("\\\\\""),
        std::string("\"; echo x; \""), std::string("it's !! *?[a-z]~ \\$\\`\\\""),
        std::string("a\nb\n\n."), std::string("-n & | ; < > ( ) { } #"), all_bytes})
    EXPECT_EQ(output_of(Q_openr_exec(true, "printf '%%s' %s", Q_shell_quoted(text).c_str())), text);
}

TEST(Execute, WaitsOnlyWhenAsked) {
  const Test_folder folder;
  ASSERT_EQ(mkfifo("gate", 0600), 0);
  // Blocks until somebody writes into the gate: returning at all shows that nobody waited.
  Q_execute_r(false, "read line < gate && echo \"$line\" > %s", "behind");
  EXPECT_FALSE(fs::exists("behind"));
  write_text("gate", "opened\n");
  EXPECT_EQ(awaited("behind"), "opened\n");
  Q_execute_r(true, "sleep 0.2; echo '%s' > %s", "%d", "finished");
  EXPECT_EQ(read_text("finished"), "%d\n");

  EXPECT_EQ(output_of(Q_openr_exec(true, "echo %s %i; echo b; exit 3", "a", 1)), "a 1\nb\n");
  EXPECT_EQ(output_of(Q_openr_exec(false, "echo a | tr a b")), "b\n");
  EXPECT_EQ(Q_execute_status("exit %i", 0), std::optional(0));
  EXPECT_EQ(WEXITSTATUS(Q_execute_status("exit 3").value_or(0)), 3);
  EXPECT_EQ(WTERMSIG(Q_execute_status("kill -9 $$").value_or(0)), SIGKILL);
}

TEST(WatchedCommand, TellsHowTheCommandEnded) {
  const Test_folder folder;
  write_text("not executable", "#!/bin/sh\n");
  write_text("odd", std::string("\x7F") + "ELFnonsense");
  fs::permissions("odd", fs::perms(0755));
  testing::internal::CaptureStderr();  // the shell's own complaints
  expect_each<std::string, std::string>(
      [](const std::string& line) {
        Q_watched_command command(line);
        return end_of(command);
      },
      {{"true", "exit status 0"},
       {"sh -c 'exit 7'", "exit status 7"},
       {"sh -c 'kill -9 $$'", "signal 9 (Killed)"},
       {"sh -c 'kill -SEGV $$'", "signal 11 (Segmentation fault)"},
       {"./none", "exit status 127"},
       {"'./not executable'", "exit status 126"},
       {"./odd", "exit status 126"},
       {"echo (", "exit status 2"},  // the shell itself fails
       {"echo \"", "exit status 2"}});
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(Q_shell_complaint("echo > made"), "");
  EXPECT_THAT(Q_shell_complaint("echo ("), HasSubstr("Syntax error"));
  EXPECT_FALSE(fs::exists("made"));
}

TEST(WatchedCommand, EndsOnlyWithAllThatItStarted) {
  const Test_folder folder;
  ASSERT_EQ(mkfifo("gate", 0600), 0);
  // The command itself fails at once; what it left in the background waits at the gate.
  Q_watched_command command("sh -c 'echo $$ > started; read line < gate & exit 5'");
  ASSERT_NE(awaited("started"), "");
  pollfd state{command.fd(), POLLIN, 0};
  EXPECT_EQ(poll(&state, 1, 100), 0);
  EXPECT_FALSE(command.ended());
  EXPECT_FALSE(command.wait_status());
  write_text("gate", "go\n");
  EXPECT_EQ(end_of(command), "exit status 5");

  Q_watched_command killed("sh -c 'echo $$ > pid; exec sleep 60'");
  ASSERT_EQ(kill(std::stoi(awaited("pid")), SIGTERM), 0);
  EXPECT_EQ(end_of(killed), "signal 15 (Terminated)");
}

TEST(WatchedCommand, GoesOnWithoutItsWatchAndLeavesNoZombie) {
  const Test_folder folder;
  ASSERT_EQ(mkfifo("gate", 0600), 0);
  const char* line = "read line < gate && echo done > finished";
  { const Q_watched_command command(line); }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  EXPECT_EQ(errno, ECHILD);
  write_text("gate", "go\n");
  EXPECT_EQ(awaited("finished"), "done\n");

  fs::remove("finished");
  const pid_t program = fork();
  if (program == 0) {
    const Q_watched_command command(line);
    kill(getpid(), SIGKILL);
  }
  int status = 0;
  waitpid(program, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));
  write_text("gate", "go\n");
  EXPECT_EQ(awaited("finished"), "done\n") << "of a program that was killed";
}

TEST(WatchedCommand, InheritsNoneOfTheProgramsFiles) {
  const Test_folder folder;
  write_text("secret", "");
  // Without the close-on-exec flag, as libraries open their connections.
  const Q_file held(std::fopen("secret", "r"));
  Q_watched_command command("ls -l /proc/self/fd > fds");
  EXPECT_EQ(end_of(command), "exit status 0");
  EXPECT_THAT(read_text("fds"), AllOf(HasSubstr("fds"), Not(HasSubstr("secret"))));
}

}  // namespace
