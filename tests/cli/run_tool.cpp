#include "run_tool.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

extern char** environ;

namespace {

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

ToolRun run_tool(const std::string& program, const std::vector<std::string>& arguments,
                 const std::string& input) {
  char directory[] = "/tmp/tivalo-run-XXXXXX";
  ToolRun run;
  if (!mkdtemp(directory)) return run;
  const std::string in = std::string(directory) + "/in", out = std::string(directory) + "/out",
                    err = std::string(directory) + "/err";
  std::ofstream(in, std::ios::binary) << input;

  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, in.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&files, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  pid_t child;
  if (posix_spawn(&child, program.c_str(), &files, nullptr, argv.data(), environ) == 0) {
    int status = 0;
    waitpid(child, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  posix_spawn_file_actions_destroy(&files);
  run.out = read_file(out);
  run.err = read_file(err);
  for (const std::string& path : {in, out, err}) unlink(path.c_str());
  rmdir(directory);
  return run;
}
