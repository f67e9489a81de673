// Kinds of random damage.

#ifndef TESTS_DAMAGE_KINDS_H_
#define TESTS_DAMAGE_KINDS_H_

#include <vector>

#include "tests/damage/files.h"

namespace corvan_test {

struct DamageKind {
  const char* name;
  bool crashed;  // applies to crashed_store(); otherwise to closed_store()
  void (*strike)(Files& files, Random& random);
};

const std::vector<DamageKind>& damage_kinds();

}  // namespace corvan_test

#endif  // TESTS_DAMAGE_KINDS_H_
