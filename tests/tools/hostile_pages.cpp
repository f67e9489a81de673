#include "tests/tools/hostile_pages.h"

namespace corvan_test {

namespace {

constexpr const char* kSalt = "saltSALT";

}  // namespace

std::string big_endian(std::uint64_t number, std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = size; i-- > 0; number >>= 8U) bytes[i] = static_cast<char>(number & 0xffU);
  return bytes;
}

std::string varint(std::uint64_t number) {
  std::string bytes(1, static_cast<char>(number & 0x7fU));
  while ((number >>= 7U) != 0) {
    bytes.insert(bytes.begin(), static_cast<char>((number & 0x7fU) | 0x80U));
  }
  return bytes;
}

std::string tree_page(std::size_t size, char type, const std::vector<std::string>& cells,
                      std::size_t pointers) {
  const std::size_t header = type == 5 ? 12 : 8;
  std::string page(size, '\0');
  std::size_t at = size;
  std::string places;
  for (const std::string& cell : cells) {
    at -= cell.size();
    page.replace(at, cell.size(), cell);
    places += big_endian(at, 2);
  }
  for (std::size_t i = 0; i < pointers; ++i) places += big_endian(at, 2);
  page[0] = type;
  page.replace(3, 2, big_endian(places.size() / 2, 2));
  page.replace(5, 2, big_endian(at % 65536, 2));
  return page.replace(header, places.size(), places);
}

MessageRecord message_record(std::uint64_t content) {
  const auto text = [](std::uint64_t size) { return varint(13 + 2 * size); };
  // id, session_id, session_type, object_name, content, sender, seven numbers and texts
  const std::string types = varint(0) + text(4) + varint(1) + text(9) + text(content) + text(3) +
                            varint(1) + varint(8) + varint(8) + varint(8) + varint(8) + varint(8) +
                            text(0);
  MessageRecord record;
  record.begin = varint(types.size() + 1) + types + "room" + "\2" + "CV:TxtMsg";
  record.size = record.begin.size() + content + 3 + 1;
  return record;
}

std::string message_cell(std::int64_t id, char letter, std::size_t content) {
  const MessageRecord record = message_record(content);
  return varint(record.size) + varint(static_cast<std::uint64_t>(id)) + record.begin +
         std::string(content, letter) + "u01" + "\1";
}

LogText::LogText(std::size_t page_size) : page_size_(page_size) {
  const std::string header = big_endian(0x377f0682, 4) + big_endian(3007000, 4) +
                             big_endian(page_size, 4) + big_endian(0, 4) + kSalt;
  sum(header);
  text_ = header + sums();
}

void LogText::add(const LogFrame& frame) {
  std::string content = frame.content;
  content.resize(page_size_, '\0');
  const std::string numbers = big_endian(frame.page, 4) + big_endian(frame.committed, 4);
  sum(numbers + content);
  text_ += numbers + kSalt + sums() + content;
}

std::string LogText::sums() const {
  return big_endian(first_, 4) + big_endian(second_, 4);
}

void LogText::sum(const std::string& bytes) {
  const auto word = [&bytes](std::size_t at) {
    std::uint32_t number = 0;
    for (std::size_t i = 4; i-- > 0;) {
      number = number << 8U | static_cast<unsigned char>(bytes[at + i]);
    }
    return number;
  };
  for (std::size_t at = 0; at < bytes.size(); at += 8) {
    first_ += word(at) + second_;
    second_ += word(at + 4) + first_;
  }
}

}  // namespace corvan_test
