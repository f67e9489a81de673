#include "tests/damage/kinds.h"

#include <algorithm>

namespace corvan_test {

namespace {

constexpr std::size_t kHeader = 100;    // of the file, at the start of its first page
constexpr std::size_t kLogHeader = 32;  // of "-wal"

void flip_bits(std::string& content, std::size_t count, std::size_t end, Random& random) {
  for (std::size_t i = 0; i < count; ++i) {
    char& byte = content[random.below(std::min(end, content.size()))];
    byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (1U << random.below(8)));
  }
}

void flip_anywhere(std::string& content, std::size_t count, Random& random) {
  flip_bits(content, count, content.size(), random);
}

std::size_t random_page(const std::string& content, Random& random) {
  return random.below(content.size() / kPage) * kPage;
}

void header_1_bit(Files& files, Random& random) {
  flip_bits(files[""], 1, kHeader, random);
}
void header_16_bits(Files& files, Random& random) {
  flip_bits(files[""], 16, kHeader, random);
}
void first_page_16_bits(Files& files, Random& random) {
  flip_bits(files[""], 16, kPage, random);
}
void any_page_1_bit(Files& files, Random& random) {
  flip_anywhere(files[""], 1, random);
}
void any_page_16_bits(Files& files, Random& random) {
  flip_anywhere(files[""], 16, random);
}
void any_page_1000_bits(Files& files, Random& random) {
  flip_anywhere(files[""], 1000, random);
}

void cut_anywhere(Files& files, Random& random) {
  files[""].resize(random.below(files[""].size()));
}
void cut_at_a_page(Files& files, Random& random) {
  files[""].resize(random_page(files[""], random));
}
void cut_in_first_page(Files& files, Random& random) {
  files[""].resize(1 + random.below(kPage - 1));
}

void page_of_zeros(Files& files, Random& random) {
  files[""].replace(random_page(files[""], random), kPage, kPage, '\0');
}
void page_of_noise(Files& files, Random& random) {
  files[""].replace(random_page(files[""], random), kPage, random.bytes(kPage));
}
void page_of_another(Files& files, Random& random) {
  const std::string page = files[""].substr(random_page(files[""], random), kPage);
  files[""].replace(random_page(files[""], random), kPage, page);
}

void log_1_bit(Files& files, Random& random) {
  flip_anywhere(files["-wal"], 1, random);
}
void log_16_bits(Files& files, Random& random) {
  flip_anywhere(files["-wal"], 16, random);
}
void log_cut(Files& files, Random& random) {
  files["-wal"].resize(random.below(files["-wal"].size()));
}
void log_of_noise(Files& files, Random& random) {
  files["-wal"] = random.bytes(1 + random.below(20 * kPage));
}
// Keeps the log's header.
void log_header_and_noise(Files& files, Random& random) {
  files["-wal"].replace(kLogHeader, std::string::npos, random.bytes(20 * kPage));
}
// Ends with a whole frame: SQLite accepts what is there as the whole log.
void log_of_another_store(Files& files, Random& random) {
  const std::string& other = other_store().at("-wal");
  const std::size_t frames = (other.size() - kLogHeader) / (kPage + 24);
  files["-wal"] = other.substr(0, kLogHeader + (1 + random.below(frames)) * (kPage + 24));
}

// The log's index is kept as well.
void index_1_bit(Files& files, Random& random) {
  flip_bits(files["-shm"], 1, 136, random);  // its header
}
void index_of_noise(Files& files, Random& random) {
  files["-shm"] = random.bytes(1 + random.below(files["-shm"].size()));
}

}  // namespace

const std::vector<DamageKind>& damage_kinds() {
  static const std::vector<DamageKind> kinds{
      {"1 bit of the file's header", false, header_1_bit},
      {"16 bits of the file's header", false, header_16_bits},
      {"16 bits of the first page", false, first_page_16_bits},
      {"1 bit anywhere", false, any_page_1_bit},
      {"16 bits anywhere", false, any_page_16_bits},
      {"1000 bits anywhere", false, any_page_1000_bits},
      {"16 bits anywhere, later rows in \"-wal\"", true, any_page_16_bits},
      {"cut at any byte", false, cut_anywhere},
      {"cut at any byte, later rows in \"-wal\"", true, cut_anywhere},
      {"cut at a page's border", false, cut_at_a_page},
      {"cut in the first page", false, cut_in_first_page},
      {"a page of zeros", false, page_of_zeros},
      {"a page of noise", false, page_of_noise},
      {"a page in place of another", false, page_of_another},
      {"1 bit of \"-wal\"", true, log_1_bit},
      {"16 bits of \"-wal\"", true, log_16_bits},
      {"\"-wal\" cut at any byte", true, log_cut},
      {"\"-wal\" of noise", false, log_of_noise},
      {"\"-wal\" of noise after its header", true, log_header_and_noise},
      {"\"-wal\" of another store", false, log_of_another_store},
      {"1 bit of \"-shm\"", true, index_1_bit},
      {"\"-shm\" of noise", true, index_of_noise},
  };
  return kinds;
}

}  // namespace corvan_test
