// A sample of what headers hold, for the test of the filter.
//
// More of the file.

#ifndef SAMPLE_H_
#define SAMPLE_H_

// What stands alone belongs to nothing.

namespace sample {

enum Colour {
  kRed = 1,  // as blood
  kGreen,
};

// A record.
struct Record {
  int count_ = 0;  // how many
  const char* text_ = "  // no comment";
  const char* name_ = "x";  // such as "x"
};

// The class.
//
// Its details.
class Store {
 public:
  Store(const Store&) = delete;

  // ---- First things -----------------------------------------------------------------------------

  // Opens.
  bool init_open_db(const char* a_folder_with_a_name_that_is_long,
                    const char* a_key_with_a_name_that_is_long_as_well);

  // Writes a number,
  // or a text.
  void write(int number);
  void write64(long number);
  template <typename Text>
  void write(Text text) {
    put(text);  // in the end
  }

  void uncommented();

  // -- Building blocks --

  // What holds for all of them.
  // All.

  // Puts.
  void put(int number);

  // ---- Last things ------------------------------------------------------------------------------

  void close();

 private:
  int state_ = 0;  // what it is
};

}  // namespace sample

#endif  // SAMPLE_H_
