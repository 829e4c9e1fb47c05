// SPDX-License-Identifier: Apache-2.0
//
// Recording ip and vconfig in front of PATH, for tests that must force a tool to
// fail or that count what was run. Real processes run them, by the real shell.
#ifndef YBNET_TESTS_TOOL_SHIMS_H
#define YBNET_TESTS_TOOL_SHIMS_H

#include <string>
#include <vector>

class tool_shims {
  public:
    // Puts recording shims of ip and vconfig in front of PATH. They record their arguments and then run the
    // real tool.
    tool_shims();
    // Takes them away again.
    ~tool_shims();
    tool_shims(const tool_shims &) = delete;
    tool_shims &operator=(const tool_shims &) = delete;

    // From now on the tool ("ip", "vconfig") runs this shell text instead of the real tool; "exit 3" fails.
    void replace(const std::string &tool, const std::string &shell_text);

    // What was run, in order: "ip link add ...".
    std::vector<std::string> runs() const;

  private:
    std::string directory_; // the test kit's, while the shims live
    std::string old_directory_;
    std::string old_path_;
};

// What is written to standard error while it lives.
class stderr_capture {
  public:
    stderr_capture();
    ~stderr_capture();
    stderr_capture(const stderr_capture &) = delete;
    stderr_capture &operator=(const stderr_capture &) = delete;

    // Everything written so far.
    std::string text();

  private:
    int file_;
    int saved_;
};

// The output of a command, its trailing newline removed; standard error included.
std::string output_of(const std::string &command);

#endif
