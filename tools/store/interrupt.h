// Removes unfinished files when an interrupt ends the program.

#ifndef TOOLS_STORE_INTERRUPT_H_
#define TOOLS_STORE_INTERRUPT_H_

#include <functional>
#include <string>

namespace corvan_tool {

// From now on, an interrupt removes every registered path before it ends the program:
// handle_interrupts() lists the interrupts. Call this once, before another thread starts.
void remove_unfinished_when_interrupted();

// Calls `make` and registers the path that it returns; no interrupt is handled in between.
// `kept_as` is the name of the path in errors; if it is empty, the path itself.
std::string make_unfinished(const std::string& kept_as, const std::function<std::string()>& make);

// Calls `keep` and forgets the path; no interrupt is handled in between. If `keep` throws, the path
// stays registered.
void keep_unfinished(const std::string& path, const std::function<void()>& keep);

// Removes the path with its content, if it is still there, and forgets it.
void remove_unfinished(const std::string& path);

// The final name of a path at or below a registered one, for errors; any other path as it is.
std::string kept_name(const std::string& path);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_INTERRUPT_H_
