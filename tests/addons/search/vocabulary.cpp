#include "tests/addons/search/vocabulary.h"

namespace corvan_test {

namespace {

const std::vector<std::string>& words() {
  static const std::vector<std::string> list = {
      "hello",
      "Hello",
      "HELLO",
      "ｈｅｌｌｏ",
      "help",
      "helpful",
      "he",
      "a",
      "I",
      "the",
      "straße",
      "STRASSE",
      "naïve",
      "nai\u0308ve",
      "ﬁne",
      "2024",
      "42",
      "x86_64",
      "don't",
      "https://example.org/a?b=c",
      "me@example.org",
      "{\"content\":\"hello\",\"extra\":\"\"}",
      "Привет",
      "привет",
      "мир",
      "ΣΟΦΌΣ",
      "σοφός",
      "سلام",
      "שלום",
      "नमस्ते",
      "İstanbul",
      "istanbul",
      "电影",
      "電影",
      "我们今天看电影",
      "今天",
      "天",
      "看",
      "日本語",
      "東京",
      "カタカナ",
      "ｶﾀｶﾅ",
      "ひらがな",
      "안녕하세요",
      "안녕",
      "한국어",
      "สวัสดี",
      "ขอบคุณ",
      "ສະບາຍດີ",
      "សួស្តី",
      "မင်္ဂလာပါ",
      "👍",
      "👍🏽",
      "👨‍👩‍👧",
      "🎉",
      "🇩🇪",
      "❤️",
      "☎",
      "①",
      "½",
      "℃",
      "𠀋",
      "a\u200bb",
      "co\u00adop",
  };
  return list;
}

const std::vector<std::string>& separators() {
  static const std::vector<std::string> list = {" ", " ", " ", "",   "",   ", ", ". ", "\n",
                                                "-", "_", "/", "。", "、", "　", "…",  "!"};
  return list;
}

std::size_t next_character(const std::string& text, std::size_t at) {
  ++at;
  while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0U) == 0x80U) ++at;
  return at;
}

}  // namespace

const std::string& Vocabulary::word() {
  // The first words are more frequent.
  const std::size_t count = one_in(3) ? words().size() : words().size() / 4;
  return words()[one_in(2) ? below(words().size()) : below(count)];
}

const std::string& Vocabulary::separator() {
  return separators()[below(separators().size())];
}

std::string Vocabulary::text() {
  if (one_in(40)) return "";
  if (one_in(60)) return "broken \xff\xc3 " + word() + "\xe4\xbd";
  const std::size_t count = one_in(150) ? 300 + below(300) : 1 + below(6);
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += word() + separator();
  return text;
}

std::string Vocabulary::part_of_word() {
  const std::string& whole = word();
  std::vector<std::size_t> starts = {0};
  while (starts.back() < whole.size()) starts.push_back(next_character(whole, starts.back()));
  const std::size_t begin = one_in(2) ? 0 : below(starts.size() - 1);
  const std::size_t end = begin + 1 + below(starts.size() - 1 - begin);
  return whole.substr(starts[begin], starts[end] - starts[begin]);
}

std::string Vocabulary::term() {
  switch (below(8)) {
    case 0:
      return part_of_word() + "*";
    case 1:
      return part_of_word();
    case 2:
      return "\"" + word() + separator() + word() + "\"";
    case 3:
      return "“" + word() + " " + part_of_word() + "”*";
    case 4:
      return word() + word();
    default:
      return word();
  }
}

std::string Vocabulary::query() {
  if (one_in(60)) return one_in(2) ? "" : separator() + "*" + separator();
  if (one_in(60)) return "\"" + word() + separator();
  if (one_in(60)) return "\xff" + word() + "\xe4\xbd";
  std::string query = term();
  while (one_in(4)) query += (one_in(4) ? "　" : " ") + term();
  return query;
}

const std::vector<std::string>& all_queries() {
  static const std::vector<std::string> list = [] {
    std::vector<std::string> queries = words();
    for (const char* const query : {"he*",
                                    "hel*",
                                    "stra*",
                                    "h*",
                                    "1*",
                                    "прив*",
                                    "σο*",
                                    "सन*",
                                    "सन",
                                    "नम*",
                                    "影",
                                    "电",
                                    "今天看",
                                    "天看电影",
                                    "本",
                                    "カ",
                                    "ｶ",
                                    "ナ",
                                    "안",
                                    "녕하",
                                    "วัส",
                                    "ขอบ",
                                    "ສະ",
                                    "សួ",
                                    "မ",
                                    "👨",
                                    "👍*",
                                    "\"hello hello\"",
                                    "\"hello, help\"",
                                    "“电影 hello”",
                                    "hello 电影",
                                    "the 👍",
                                    "he* 天",
                                    "\"hello he\"*",
                                    "org",
                                    "example.org",
                                    "content",
                                    "\"content hello\"",
                                    "ＨＥＬＬＯ",
                                    "B",
                                    "coop",
                                    "nothing-has-this"}) {
      queries.emplace_back(query);
    }
    return queries;
  }();
  return list;
}

const std::vector<std::string>& few_queries() {
  static const std::vector<std::string> list = {"hello", "he*", "电影", "天",   "カタカナ",
                                                "👍",     "мир", "สวัส",  "안녕", "\"hello hello\""};
  return list;
}

}  // namespace corvan_test
