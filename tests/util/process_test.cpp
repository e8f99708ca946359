// Commands run through the shell: waiting, quoting, and the noticed end of a background command.

#include "util/process.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <string>
#include <thread>

#include "test_folder.h"
#include "util/files.h"

namespace {

namespace fs = std::filesystem;

constexpr int MOST_WAIT = 30000;  // ms; only a failing test waits that long

std::string output_of(const Q_pipe& pipe) {
  std::string output;
  for (int byte = std::fgetc(pipe.get()); byte != EOF; byte = std::fgetc(pipe.get()))
    output += static_cast<char>(byte);
  return output;
}

bool wait_for_file(const char* path) {
  for (int i = 0; i < MOST_WAIT / 5; ++i) {
    if (fs::exists(path) && !read_text(path).empty()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

/// Waits for the end of a command through its descriptor, as a main loop does.
bool wait_for_end(Q_watched_command& command) {
  pollfd state{command.fd(), POLLIN, 0};
  return poll(&state, 1, MOST_WAIT) == 1 && command.ended();
}

TEST(ShellQuoted, RoundTripsThroughARealShell) {
  std::string all_bytes;
  for (int byte = 1; byte < 256; ++byte) all_bytes += static_cast<char>(byte);
  const std::string texts[] = {"",
                               " ",
                               "a b",
                               "$HOME",
                               "${HOME}",
                               "$(echo x)",
                               "`echo x`",
                               "\\",
                               "\\\\\"",
                               "\"; echo x; \"",
                               "'",
                               "it's",
                               "!!",
                               "a\nb\n\n.",
                               "*?[a-z]~",
                               "-n",
                               "& | ; < > ( ) { } #",
                               "\\$\\`\\\"",
                               "\u00E9\xFF",
                               all_bytes};
  for (const std::string& text : texts) {
    const Q_pipe shell = Q_openr_exec(true, "printf '%%s' %s", Q_shell_quoted(text).c_str());
    EXPECT_EQ(output_of(shell), text);
  }
}

TEST(Execute, WaitsOnlyWhenAsked) {
  const Test_folder folder;
  ASSERT_EQ(mkfifo("gate", 0600), 0);
  // Blocks until somebody writes into the gate: returning at all shows that nobody waited.
  Q_execute_r(false, "read line < gate && echo \"$line\" > %s", "behind");
  EXPECT_FALSE(fs::exists("behind"));
  write_text("gate", "opened\n");
  ASSERT_TRUE(wait_for_file("behind"));
  EXPECT_EQ(read_text("behind"), "opened\n");

  Q_execute_r(true, "sleep 0.2; echo '%s' > %s", "%d", "finished");
  EXPECT_EQ(read_text("finished"), "%d\n");
}

TEST(OpenExec, ReadsTheOutput) {
  EXPECT_EQ(output_of(Q_openr_exec(true, "echo %s %i; echo b", "a", 1)), "a 1\nb\n");
  EXPECT_EQ(output_of(Q_openr_exec(false, "echo a | tr a b")), "b\n");
  EXPECT_EQ(output_of(Q_openr_exec(true, "exit 3")), "");
}

TEST(ExecuteStatus, TellsHowTheCommandEnded) {
  EXPECT_EQ(Q_execute_status("exit %i", 0), std::optional(0));
  EXPECT_EQ(WEXITSTATUS(Q_execute_status("exit 3").value_or(0)), 3);
  EXPECT_EQ(WTERMSIG(Q_execute_status("kill -9 $$").value_or(0)), SIGKILL);
}

TEST(WatchedCommand, TellsHowTheCommandEnded) {
  const Test_folder folder;
  write_text("not executable", "#!/bin/sh\n");
  write_text("odd",
             "\x7F"
             "ELFnonsense");
  fs::permissions("odd", fs::perms(0755));
  struct Case {
    std::string command;
    std::string status;
  };
  const Case cases[] = {
      {"true", "exit status 0"},
      {"false", "exit status 1"},
      {"sh -c 'exit 7'", "exit status 7"},
      {"sh -c 'kill -9 $$'", "signal 9 (Killed)"},
      {"sh -c 'kill -SEGV $$'", "signal 11 (Segmentation fault)"},
      {"./none 2> /dev/null", "exit status 127"},
      {"'./not executable' 2> /dev/null", "exit status 126"},
      {"./odd 2> /dev/null", "exit status 126"},
      {"echo ( 2> /dev/null", "exit status 2"},   // the shell itself fails
      {"echo \" 2> /dev/null", "exit status 2"},  // an unbalanced quote
  };
  testing::internal::CaptureStderr();  // the shell's own complaints
  for (const Case& c : cases) {
    Q_watched_command command(c.command);
    ASSERT_TRUE(wait_for_end(command)) << c.command;
    ASSERT_TRUE(command.wait_status()) << c.command;
    EXPECT_EQ(Q_wait_status_text(*command.wait_status()), c.status) << c.command;
    EXPECT_TRUE(command.ended()) << c.command << ", asked again";
  }
  testing::internal::GetCapturedStderr();
}

TEST(WatchedCommand, EndsOnlyWithAllThatItStarted) {
  const Test_folder folder;
  ASSERT_EQ(mkfifo("gate", 0600), 0);
  // The command itself fails at once; what it left in the background waits at the gate.
  Q_watched_command command("sh -c 'echo $$ > started; read line < gate & exit 5'");
  ASSERT_TRUE(wait_for_file("started"));
  pollfd state{command.fd(), POLLIN, 0};
  EXPECT_EQ(poll(&state, 1, 100), 0);
  EXPECT_FALSE(command.ended());
  EXPECT_FALSE(command.wait_status());
  write_text("gate", "go\n");
  ASSERT_TRUE(wait_for_end(command));
  EXPECT_EQ(Q_wait_status_text(command.wait_status().value_or(0)), "exit status 5");
}

TEST(WatchedCommand, NoticesAKillFromOutside) {
  const Test_folder folder;
  Q_watched_command command("sh -c 'echo $$ > pid; exec sleep 60'");
  ASSERT_TRUE(wait_for_file("pid"));
  EXPECT_FALSE(command.ended());
  ASSERT_EQ(kill(std::stoi(read_text("pid")), SIGTERM), 0);
  ASSERT_TRUE(wait_for_end(command));
  EXPECT_EQ(Q_wait_status_text(command.wait_status().value_or(0)), "signal 15 (Terminated)");
}

TEST(WatchedCommand, GoesOnWithoutItsWatchAndLeavesNoZombie) {
  const Test_folder folder;
  ASSERT_EQ(mkfifo("gate", 0600), 0);
  { const Q_watched_command command("read line < gate && echo done > finished"); }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  EXPECT_EQ(errno, ECHILD);
  write_text("gate", "go\n");
  EXPECT_TRUE(wait_for_file("finished"));
}

TEST(WatchedCommand, OutlivesAKilledProgram) {
  const Test_folder folder;
  ASSERT_EQ(mkfifo("gate", 0600), 0);
  const pid_t program = fork();
  if (program == 0) {
    const Q_watched_command command("read line < gate && echo done > finished");
    kill(getpid(), SIGKILL);
  }
  int status = 0;
  waitpid(program, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));
  write_text("gate", "go\n");
  EXPECT_TRUE(wait_for_file("finished"));
}

TEST(WatchedCommand, InheritsNoneOfTheProgramsFiles) {
  const Test_folder folder;
  write_text("secret", "");
  // Without the close-on-exec flag, as libraries open their connections.
  const Q_file held(std::fopen("secret", "r"));
  Q_watched_command command("ls -l /proc/self/fd > fds");
  ASSERT_TRUE(wait_for_end(command));
  EXPECT_THAT(read_text("fds"), testing::HasSubstr("fds"));
  EXPECT_THAT(read_text("fds"), testing::Not(testing::HasSubstr("secret")));
}

}  // namespace
