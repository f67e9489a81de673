#ifndef TESTS_SUPPORT_UNCOUNTED_H_
#define TESTS_SUPPORT_UNCOUNTED_H_

namespace corvan_test {

// While one exists, the allocations of this thread belong to the test: suites that make allocations
// fail neither count them nor make them fail.
class Uncounted {
 public:
  Uncounted() { ++depth; }
  Uncounted(const Uncounted&) = delete;
  Uncounted& operator=(const Uncounted&) = delete;
  ~Uncounted() { --depth; }

  static bool now() { return depth > 0; }

 private:
  static inline thread_local int depth = 0;
};

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_UNCOUNTED_H_
