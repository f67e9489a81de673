#ifndef TESTS_SUPPORT_CODE_PAGE_H_
#define TESTS_SUPPORT_CODE_PAGE_H_

namespace corvan_test {

// Whether the C library takes paths in UTF-8. On Windows, only in a process whose code page is
// UTF-8.
bool c_library_takes_utf8();

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_CODE_PAGE_H_
