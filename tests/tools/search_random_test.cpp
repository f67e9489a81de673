// Searches after random changes of the store, with and without the index.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "tests/tools/search_index_sample.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

class RandomSearchTest : public SearchIndexSample {
 protected:
  std::size_t below(std::size_t bound) { return random_() % bound; }

  std::string one_of(const std::vector<std::string>& all) { return all[below(all.size())]; }

  std::string content() {
    static const std::vector<std::string> words = {
        "Café",    "CAFE\u0301", "noon",   "電影",     "下午开会", "カフェ",  "ｶﾌｪ",    "한국어",
        "ภาษาไทย", "မြန်မာ",      "☕",      "👍🏽", "straße",   "STRASSE", "ＡＢＣ", "off_all",
        "x'y",     "50%",        "Привет", "noonday",  "ភាសាខ្មែរ", "ພາສາລາວ"};
    std::string text;
    for (std::size_t i = below(5); i > 0; --i) {
      text += one_of(words) + one_of({" ", ", ", "", "-", "。"});
    }
    return text;
  }

  // A value for a column `content`.
  std::string content_value() {
    if (below(12) == 0)
      return one_of({"null", "x'6e6f6f6eff'", "42", "cast(x'ff6e6f6f6e' as text)"});
    std::string quoted = content();
    for (std::size_t at = 0; (at = quoted.find('\'', at)) != std::string::npos; at += 2) {
      quoted.insert(at, "'");
    }
    return "'" + quoted + "'";
  }

  std::string time_value() {
    if (below(8) == 0) return one_of({"null", "'soon'", "'17'", "-5", "1e30", "x'31'"});
    return std::to_string(1700000000000 + static_cast<int64_t>(below(50)));
  }

  std::string id() { return std::to_string(1 + below(400)); }

  std::string insertion(const std::string& id) {
    return "insert or ignore into t_message(id,session_id,session_type,object_name,sender,content,"
           "sent_time)values(" +
           id + ",'s" + std::to_string(below(3)) + "'," + std::to_string(1 + below(5)) +
           ",'CV:TxtMsg','u'," + content_value() + "," + time_value() + ");";
  }

  std::string change() {
    switch (below(10)) {
      case 0:
        return "delete from t_message where id=" + id() + ";";
      case 1:
        return "update t_message set sent_time=" + time_value() + " where id=" + id() + ";";
      case 2:
        return insertion(one_of({"-3", "-1", "0"}));
      case 3:
      case 4:
        return "update t_message set content=" + content_value() + " where id=" + id() + ";";
      default:
        return insertion("null");
    }
  }

  void change_much(int changes) {
    std::string sql;
    for (int i = 0; i < changes; ++i) sql += change();
    plant(sql);
  }

  Arguments search() {
    Arguments arguments = {
        one_of({"café", "noon", "noo*", "\"café noon\"", "電影", "会",          "カフェ", "ｶﾌｪ",
                "한",   "ไทย",  "☕",    "strasse",       "abc",  "\"off all\"", "x y",    "привет",
                "n*",   "42",   "မြန်",  "ខ្មែរ",          "ລາວ",  "noon 下午"})};
    if (below(3) == 0) arguments.insert(arguments.end(), {"--session", "s1"});
    if (below(3) == 0) arguments.insert(arguments.end(), {"--type", one_of({"1", "2", "group"})});
    if (below(3) == 0) arguments.insert(arguments.end(), {"--limit", one_of({"1", "3", "100"})});
    if (below(4) == 0) {
      arguments.insert(arguments.end(), {"--before", one_of({"0:0", "1700000000020:50", "0:7"})});
    }
    return arguments;
  }

  std::mt19937_64 random_;
};

TEST_F(RandomSearchTest, ResultsAreThoseOfAScan) {
  for (unsigned seed = 1; seed <= 4; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    random_.seed(seed);
    fs::remove_all(store());
    import_numbers(1, 1);
    change_much(400);
    update();
    for (int round = 0; round < 4; ++round) {
      for (int i = 0; i < 6; ++i) compare(search());
      change_much(15);
      if (round == 1) plant("delete from t_message where session_id='s2'");
      if (round == 2) update();
    }
  }
}

}  // namespace
}  // namespace corvan_test
