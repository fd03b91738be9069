#include "platform/posix/run_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace zaltor::platform {

ProcessResult run_process(const std::vector<std::string>& argv) {
  ProcessResult result;
  int out_pipe[2];
  int err_pipe[2];
  if (::pipe2(out_pipe, O_CLOEXEC) != 0) return result;
  if (::pipe2(err_pipe, O_CLOEXEC) != 0) {
    ::close(out_pipe[0]);
    ::close(out_pipe[1]);
    return result;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out_pipe[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err_pipe[1], 2);
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  const int spawn_error = ::posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(out_pipe[1]);
  ::close(err_pipe[1]);
  if (spawn_error == 0) {
    pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open_count = 2;
    while (open_count > 0) {
      if (::poll(fds, 2, -1) < 0) {
        if (errno == EINTR) continue;
        break;
      }
      for (int i = 0; i < 2; ++i) {
        if (fds[i].fd < 0 || fds[i].revents == 0) continue;
        char buf[4096];
        const ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
        if (n > 0) {
          sinks[i]->append(buf, static_cast<size_t>(n));
        } else if (n == 0 || errno != EINTR) {
          fds[i].fd = -1;
          --open_count;
        }
      }
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.started = true;
    result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    // The shell's answer for a program it could not find or run.
    if (result.exit_code == 127) result.started = false;
  }
  ::close(out_pipe[0]);
  ::close(err_pipe[0]);
  return result;
}

}  // namespace zaltor::platform
