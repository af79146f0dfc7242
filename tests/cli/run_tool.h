// Runs a program as a subprocess with the given standard input and collects what it printed.
#pragma once

#include <string>
#include <vector>

struct ToolRun {
  int status = -1;  // exit status; -1 when it did not exit normally
  std::string out;
  std::string err;
};

ToolRun run_tool(const std::string& program, const std::vector<std::string>& arguments,
                 const std::string& input = "");
