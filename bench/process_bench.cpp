// Times whole processes: runs a command a number of times and prints the median and the fastest
// wall time and the largest peak resident memory of the runs. Standard output and error of the
// command are discarded.
//
// Usage: process_bench RUNS COMMAND [ARGUMENTS...]
// Prints: median_ms=... min_ms=... peak_kb=... status=...
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

extern char** environ;

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: process_bench RUNS COMMAND [ARGUMENTS...]\n");
    return 2;
  }
  const int runs = std::max(1, std::atoi(argv[1]));
  posix_spawn_file_actions_t quiet;
  posix_spawn_file_actions_init(&quiet);
  posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&quiet, 2, "/dev/null", O_WRONLY, 0);

  std::vector<double> times;
  long peak_kb = 0;
  int last_status = 0;
  for (int run = 0; run < runs; ++run) {
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    if (posix_spawnp(&child, argv[2], &quiet, nullptr, argv + 2, environ) != 0) {
      std::perror("posix_spawnp");
      return 2;
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    times.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    peak_kb = std::max(peak_kb, usage.ru_maxrss);
    last_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  std::sort(times.begin(), times.end());
  std::printf("median_ms=%.3f min_ms=%.3f peak_kb=%ld status=%d\n", times[times.size() / 2],
              times.front(), peak_kb, last_status);
  return 0;
}
