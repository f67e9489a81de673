#ifndef TESTS_SUPPORT_GROUPING_LOCALE_H_
#define TESTS_SUPPORT_GROUPING_LOCALE_H_

#include <locale>
#include <string>

namespace corvan_test {

// While it exists, the global locale groups digits by thousands, as many locales do.
class GroupingLocale {
 public:
  GroupingLocale() : before_(std::locale::global(std::locale(std::locale(), new Grouping))) {}
  GroupingLocale(const GroupingLocale&) = delete;
  GroupingLocale& operator=(const GroupingLocale&) = delete;
  ~GroupingLocale() { std::locale::global(before_); }

 private:
  class Grouping : public std::numpunct<char> {
   protected:
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };

  std::locale before_;
};

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_GROUPING_LOCALE_H_
