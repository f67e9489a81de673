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

// The first that fits a line is taken.
const std::vector<Explanation> kExplanations = {
    {"ok:",
     "nothing in the file contradicts itself: counters, newest messages and times fit the rows; "
     "notes are what ordinary use leaves"},
    {"failed (note",
     "own messages that the server refused: the client keeps them, marked, for the user to see"},
    {"sync-behind (note",
     "own messages sent after the last fetch: the mark moves when the history brings them"},
    {"  by:", "the operations that leave such a row"},
    {"    ", "where: the conversation, its kind, the value, the messages' ids"},
};

// `text` as one word of a shell.
std::string quoted(const std::string& text) {
  std::string word = "'";
  for (const char c : text) word += c == '\'' ? "'\\''" : std::string(1, c);
  return word + "'";
}

// Prints a line of the tool's with what it means. False when that is not known.
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
  // NOLINTNEXTLINE(cert-env33-c): the command is quoted, and all of it is the example's own
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
