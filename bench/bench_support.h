// What the benchmarks share: timing, medians, running a reference program
// with its output thrown away, and generating a large input in a child
// process so that neither its time nor its memory counts.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace bench {

using Clock = std::chrono::steady_clock;

inline double msSince(Clock::time_point since) {
  return std::chrono::duration<double, std::milli>(Clock::now() - since).count();
}

inline double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// "lo – hi" of the values, each printed with format f.
inline std::string range(const std::vector<double>& v, const char* f) {
  auto [lo, hi] = std::minmax_element(v.begin(), v.end());
  char a[32], b[32];
  std::snprintf(a, sizeof a, f, *lo);
  std::snprintf(b, sizeof b, f, *hi);
  return std::string(a) + " – " + b;
}

// Runs a program with stdout to /dev/null; false unless it exits with 0.
inline bool runQuiet(const std::vector<std::string>& args) {
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid;
  const int rc = posix_spawnp(&pid, argv[0], &fa, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&fa);
  if (rc != 0) return false;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Runs generate() in a child process, so that its memory stays out of the
// caller's peak resident set; throws when it fails.
inline void generateInChild(const std::function<void()>& generate) {
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    try {
      generate();
    } catch (const std::exception& e) {
      std::fprintf(stderr, "generation failed: %s\n", e.what());
      _exit(1);
    }
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error("generating the file failed");
}

}  // namespace bench
