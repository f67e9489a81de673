#include "examples/client/verify.h"

#include <array>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <vector>

namespace example {

namespace {

struct Explanation {
  const char* begin;  // of the line
  const char* text;
};

// The first match applies.
const std::vector<Explanation> kExplanations = {
    {"ok:",
     "the rows do not contradict each other: counters, newest messages and times are correct; "
     "notes report what ordinary use leaves"},
    {"failed (note",
     "own messages that the server refused: the client keeps them, marked as failed"},
    {"sync-behind (note",
     "own messages sent after the last fetch: the mark moves when they are fetched"},
    {"  by:", "the operations that can leave such a row"},
    {"    ", "the conversation, its kind, the value and the message ids"},
};

// Quotes `text` for the shell.
std::string quoted(const std::string& text) {
  std::string word = "'";
  for (const char c : text) word += c == '\'' ? "'\\''" : std::string(1, c);
  return word + "'";
}

// Prints a line of the tool's output and its explanation. Returns false if there is none.
bool explain(const std::string& line) {
  if (line.empty()) return true;
  std::cout << "  " << line << "\n";
  for (const auto& explanation : kExplanations) {
    if (line.rfind(explanation.begin, 0) != 0) continue;
    std::cout << "      ^ " << explanation.text << "\n";
    return true;
  }
  return false;
}

}  // namespace

bool verify(const std::string& tool, const std::string& folder) {
  std::cout << "$ corvan verify " << folder << "\n" << std::flush;
  // NOLINTNEXTLINE(cert-env33-c): every argument is quoted, and none comes from outside
  FILE* pipe = popen((quoted(tool) + " verify " + quoted(folder)).c_str(), "r");
  if (pipe == nullptr) return false;
  std::string answer;
  std::array<char, 4096> part = {};
  for (size_t size = 0; (size = fread(part.data(), 1, part.size(), pipe)) > 0;) {
    answer.append(part.data(), size);
  }
  bool sound = pclose(pipe) == 0;
  std::istringstream lines(answer);
  for (std::string line; std::getline(lines, line);) sound = explain(line) && sound;
  return sound && !answer.empty();
}

}  // namespace example
