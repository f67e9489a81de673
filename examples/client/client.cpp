// Two users write to each other through a server and a network that loses, repeats and reorders
// messages. Each has a store. At the end both stores must agree with the server.
//
// Usage: client FOLDER [SEED [TOOL]]. Recreates the stores FOLDER/u01 and FOLDER/u02. If TOOL, the
// path of the program "corvan", is given, both stores are verified with it.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "examples/client/device.h"
#include "examples/client/server.h"
#include "examples/client/verify.h"

namespace {

using example::Device;

constexpr int kTurns = 12;

// Prints what was found. Returns true if nothing was.
bool nothing(const Device& device, const std::vector<std::string>& found) {
  for (const auto& line : found) std::cout << device.user() << ": " << line << "\n";
  return found.empty();
}

// One turn: the user signs in, receives, sends and reads messages, searches, and signs out. Returns
// false if the store cannot be opened, or if at the end of the turn it contradicts itself or a
// search disagrees with it.
bool take_turn(Device& device, example::Network& network, int number) {
  if (!device.start()) return false;
  device.reconnect();
  device.receive_events();
  const size_t messages = network.any(5);
  for (size_t i = 0; i < messages; ++i) {
    const bool spam = network.any(8) == 0;
    device.send((spam ? "spam " : "hello ") + std::to_string(number) + "." + std::to_string(i));
  }
  if (network.any(2) == 0) device.read();
  const bool is_consistent = nothing(device, device.contradictions());
  const bool is_found = nothing(device, device.search_differences());
  device.stop();
  std::cout << "turn " << number << ", " << device.user() << ": " << device.summary() << "\n";
  return is_consistent && is_found;
}

// What a client does once its network works again.
bool settle(Device& device, bool read) {
  if (!device.start()) return false;
  device.reconnect();
  device.receive_events();
  if (read) device.read();
  const bool fits = nothing(device, device.contradictions());
  device.stop();
  return fits;
}

bool agrees(Device& device) {
  if (!device.start()) return false;
  const bool same = nothing(device, device.differences());
  device.stop();
  if (same) std::cout << device.user() << "'s store agrees with the server\n";
  return same;
}

int fail(const std::string& what) {
  std::cerr << "client: " << what << "\n";
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return fail("usage: client FOLDER [SEED [TOOL]]");
  const std::string folder = argv[1];
  const uint32_t seed = argc > 2 ? static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10)) : 1;
  for (const char* user : {"/u01", "/u02"})
    std::filesystem::remove_all(std::filesystem::u8path(folder + user));

  example::Server server;
  example::Network network(seed);
  Device u01(folder + "/u01", "u01", "u02", &server, &network);
  Device u02(folder + "/u02", "u02", "u01", &server, &network);
  for (int turn = 1; turn <= kTurns; ++turn) {
    if (!take_turn(turn % 2 == 1 ? u01 : u02, network, turn))
      return fail("a store that cannot be used");
  }

  std::cout << "the network works again\n";
  network.calm_down();
  // Two rounds: in the second each user receives what the other one resent or read in the first.
  for (int round = 1; round <= 2; ++round) {
    if (!settle(u01, true) || !settle(u02, false)) return fail("a store that cannot be used");
  }
  std::cout << "the server has " << server.letters().size() << " messages\n";
  const bool u01_agrees = agrees(u01);
  const bool u02_agrees = agrees(u02);
  Corvan::CvDbSingleton::delete_instance();
  if (!u01_agrees || !u02_agrees) return fail("a store does not agree with the server");

  if (argc < 4) return 0;
  const bool u01_sound = example::verify(argv[3], u01.folder());
  const bool u02_sound = example::verify(argv[3], u02.folder());
  return u01_sound && u02_sound ? 0 : fail("corvan verify reported a problem");
}
